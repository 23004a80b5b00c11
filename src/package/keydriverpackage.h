#ifndef TWKEY_KEYDRIVERPACKAGE_H
#define TWKEY_KEYDRIVERPACKAGE_H

#include <QObject>
#include <QString>

// One key driver package: a directory, or a zip file with the suffix "kdp"
// unpacked beside itself, holding "config.xml" and the token library.
// Read-only after open().
class KeyDriverPackage : public QObject
{
    Q_OBJECT
public:
    KeyDriverPackage(QString filePath, QObject *parent = nullptr);
    ~KeyDriverPackage() override;

    bool open();
    bool load();
    void close();

    bool isKDPFile();
    QString workPath();
    QString version();
    QString name();
    QString protocol();
    QString argument();
    QString modelId() const { return _modelId; }
    QString createFileByVerifyPin() const { return _createFileByVerifyPin; }
    QString cspname() const { return _cspname; }
    QString defaultAdminPin() const { return _defaultAdminPin; }
    QString skfPath() const { return _skfPath; }

    int GetLimitSize(int defaultSize) const;
    bool getSKFPath(QString iniPath, QString &out);

private:
    QString _kdpPath;
    QString _workPath;
    QString _configPath;
    bool _isKDPFile;
    QString _version;
    QString _name;
    QString _protocol;
    QString _argument;
    QString _modelId;
    QString _manufacturerId;
    QString _modifyDate;
    QString _cpuType;
    QString _cpuBits;
    QString _os;
    QString _author;
    QString _createFileByVerifyPin;
    QString _defaultAdminPin;
    QString _limitSerialNum;
    QString _limitSize;
    QString _library;
    QString _cspname;
    QString _algo;
    QString _digest;
    QString _driverName;
    QString _skfPath;
    QString _p11Path;
};

#endif
