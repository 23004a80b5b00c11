#ifndef TWKEY_TWKEY_H
#define TWKEY_TWKEY_H

#include <QFileInfo>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>

#include "frame/keydriverinfoagent.h"
#include "package/keydriverinfo.h"
#include "session/keyobject.h"

class KeyDriverPackage;

// The key manager, the one object the host asks for. It scans the package
// directory when built, counts distinct keys across all drivers and opens
// them by a flat index; a second road works on one package by handle.
class TWKey : public QObject
{
    Q_OBJECT
public:
    explicit TWKey(QObject *parent = nullptr);
    ~TWKey() override;

    Q_INVOKABLE qint64 lastError();
    Q_INVOKABLE KeyObject *open(int index);
    Q_INVOKABLE KeyObject *openEx(int index, bool bEnumDev);
    Q_INVOKABLE int count();
    Q_INVOKABLE KeyDriverInfo *createKDI(QString kdpPath);
    Q_INVOKABLE void destroyKDI(KeyDriverInfoAgent *kdi);
    Q_INVOKABLE KeyObject *openByKDI(KeyDriverInfoAgent *kdi, int index);
    Q_INVOKABLE int countByKDI(KeyDriverInfoAgent *kdi);

    void setLastError(long long code);

private:
    bool load();
    bool loadKDPs(QString path);
    bool loadKDP(const QFileInfo &info);
    void unload();
    void unloadKDPs();

    // Package plus bound driver, or null with the failure logged under
    // `function`; the pair has this manager as parent.
    KeyDriverInfo *openPackage(const char *function, const QString &path);
    // One driver's share of a counting pass: sets its mapping from
    // `firstIndex` and returns how many new serial numbers it brought.
    int countDriver(const char *function, KeyDriverInfo *info, int firstIndex, QStringList &seen, bool enumEach);
    KeyObject *openMapped(const char *function, int index, bool enumDev);

    QString _configPath;
    QString _kdpPath;
    QMap<QString, KeyDriverPackage *> _packages;
    QList<KeyDriverInfo *> _driverInfos;
};

#endif
