#ifndef TWKEY_KEYDRIVERINFO_H
#define TWKEY_KEYDRIVERINFO_H

#include <QObject>

class KeyDriver;
class KeyDriverPackage;
class KeyObject;

// Pairs a package with the driver that suits it, and carries the manager's
// index mapping (_active, _firstIndex, _count).
class KeyDriverInfo : public QObject
{
    Q_OBJECT
    friend class TWKey;

public:
    KeyDriverInfo(KeyDriverPackage *kdp, QObject *parent = nullptr);
    ~KeyDriverInfo() override;

    bool open();
    void close();
    int count();
    KeyObject *openKey(int index);
    KeyObject *openKeyWithoutEnumDev(int index);
    int getDriverType() const { return _driverType; }
    KeyDriver *getKeyDriver() const { return _keyDriver; }
    KeyDriverPackage *getKDP() const { return _kdp; }
    qint64 lastError();

    bool isActive() const { return _active; }
    int firstIndex() const { return _firstIndex; }
    int keyCount() const { return _count; }

private:
    bool _active;
    int _firstIndex;
    int _count;
    KeyDriverPackage *_kdp;
    KeyDriver *_keyDriver;
    int _driverType;
};

#endif
