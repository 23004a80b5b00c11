#ifndef TWKEY_KEYOBJECT_H
#define TWKEY_KEYOBJECT_H

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVector>

class KeyDriverInfo;

// The one face a token shows to the host: a session on one device, driven
// by method name. The order of the invokable methods is part of the
// interface.
class KeyObject : public QObject
{
    Q_OBJECT
public:
    KeyObject(QString devName, QObject *parent = nullptr);
    ~KeyObject() override;

    Q_INVOKABLE qint64 lastError();
    Q_INVOKABLE bool isNeedEnumFile();

    Q_INVOKABLE virtual bool epsImportSymmKey(Qt::HANDLE container, quint64 ulKeyIndex, QByteArray szEncData,
                                              quint64 ulEncDataLen, quint64 ulFlags = 0) = 0;
    Q_INVOKABLE virtual QByteArray epsReadESealData(quint64 ulKeyIndex, quint64 ulKeyAlgId, quint64 ulFlags = 0) = 0;
    Q_INVOKABLE virtual bool epsWriteESealData(QByteArray szData, quint64 ulDataSize, quint64 ulFlags = 0) = 0;
    Q_INVOKABLE virtual bool open() = 0;
    Q_INVOKABLE virtual void close() = 0;
    Q_INVOKABLE virtual QString labelName() = 0;
    Q_INVOKABLE virtual QString serialNumber() = 0;
    Q_INVOKABLE virtual QString serialNumberEx() = 0;
    Q_INVOKABLE virtual QString GetManufacturer() = 0;
    Q_INVOKABLE virtual QString GetHWVersion() = 0;
    Q_INVOKABLE virtual QString GetFirmwareVersion() = 0;
    Q_INVOKABLE virtual bool SetlabelName(QString strlabelName) = 0;
    Q_INVOKABLE virtual quint64 totalSpace() = 0;
    Q_INVOKABLE virtual quint64 freeSpace() = 0;
    Q_INVOKABLE virtual bool formatKey() = 0;
    Q_INVOKABLE virtual bool changePIN(bool isAdmin, QString oldPin, QString newPin) = 0;
    Q_INVOKABLE virtual bool verifyPin(QString pinCode, bool isAdmin) = 0;
    Q_INVOKABLE virtual bool verifyPinEx(QString pinCode, bool isAdmin) = 0;
    Q_INVOKABLE virtual bool resetUserPin() = 0;
    Q_INVOKABLE virtual bool resetUserPinV1(QString AdminPin, QString NewUserPin) = 0;
    Q_INVOKABLE virtual bool resetAdminPin() = 0;
    Q_INVOKABLE virtual quint64 GetPINInfo(quint64 ulPINType, quint64 ulOutType) = 0;
    // No defaults here: the shorter forms of createFile exist on the
    // session classes only.
    Q_INVOKABLE virtual bool createFile(QString fileName, quint64 ulFileSize, quint64 readRights,
                                        quint64 writeRights) = 0;
    Q_INVOKABLE virtual QStringList enumFiles() = 0;
    Q_INVOKABLE virtual QByteArray readFile(QString fileName, quint64 ulOffset = 0, quint64 ulSize = 0) = 0;
    Q_INVOKABLE virtual bool writeFile(QString fileName, quint64 offset, QByteArray data) = 0;
    Q_INVOKABLE virtual bool deleteFile(QString fileName) = 0;
    Q_INVOKABLE virtual bool writeFileV1(QString fileName, QByteArray data) = 0;
    Q_INVOKABLE virtual bool createFileByVerifyPin() = 0;
    Q_INVOKABLE virtual Qt::HANDLE createContainer(QString containerName) = 0;
    Q_INVOKABLE virtual bool deleteContainer(QString containerName) = 0;
    Q_INVOKABLE virtual QStringList enumContainer() = 0;
    Q_INVOKABLE virtual Qt::HANDLE openContainer(QString containerName) = 0;
    Q_INVOKABLE virtual void closeContainer(Qt::HANDLE container) = 0;
    Q_INVOKABLE virtual int getContainerType(Qt::HANDLE container) = 0;
    Q_INVOKABLE virtual bool ImportCertificate(Qt::HANDLE container, bool signFlag, QByteArray cert) = 0;
    Q_INVOKABLE virtual QByteArray exportCertificate(Qt::HANDLE container, bool signFlag) = 0;
    Q_INVOKABLE virtual QStringList exportAllCertificate(bool signFlag) = 0;
    Q_INVOKABLE virtual QByteArray genRSAKeyPair(Qt::HANDLE container, quint64 algId) = 0;
    Q_INVOKABLE virtual bool importRSAKeyPair(Qt::HANDLE container, quint64 symAlgId, QByteArray wrappedKey,
                                              QByteArray encryptedData) = 0;
    Q_INVOKABLE virtual QByteArray rsaSignData(Qt::HANDLE container, QByteArray data) = 0;
    Q_INVOKABLE virtual bool rsaVerify(QByteArray pubkeyBlob, QByteArray data, QByteArray signature) = 0;
    Q_INVOKABLE virtual QByteArray genECCKeyPair(Qt::HANDLE container, quint64 algId) = 0;
    Q_INVOKABLE virtual bool importECCKeyPair(Qt::HANDLE container, QByteArray envelopedKeyBlob) = 0;
    Q_INVOKABLE virtual QByteArray eccSignData(Qt::HANDLE container, QByteArray data) = 0;
    Q_INVOKABLE virtual bool eccVerify(QByteArray pubkeyBlob, QByteArray data, QByteArray signature) = 0;
    Q_INVOKABLE virtual Qt::HANDLE importSessionKey(Qt::HANDLE container, quint64 ulAlgID, QByteArray wrapedData,
                                                    quint64 wrapedDataLen) = 0;
    Q_INVOKABLE virtual bool encryptInit(Qt::HANDLE hKey, QByteArray encryptParamData) = 0;
    Q_INVOKABLE virtual QByteArray encrypt(Qt::HANDLE hKey, QByteArray data, quint64 dataLen) = 0;
    Q_INVOKABLE virtual bool decryptInit(Qt::HANDLE hKey, QByteArray decryptParamData) = 0;
    Q_INVOKABLE virtual QByteArray decrypt(Qt::HANDLE hKey, QByteArray encryptedData, quint64 encryptedDataLen) = 0;
    Q_INVOKABLE virtual QByteArray rsaSimpleSign(Qt::HANDLE container, QByteArray data, quint64 digestAlgID) = 0;
    Q_INVOKABLE virtual QByteArray eccSimpleSign(Qt::HANDLE container, QByteArray data, bool usedPubkeyDigest) = 0;
    Q_INVOKABLE virtual bool eccSimpleVerify(Qt::HANDLE container, QByteArray data, QByteArray signature,
                                             bool usedPubkeyDigest) = 0;
    Q_INVOKABLE virtual Qt::HANDLE digestInit(quint64 ulAlgID, QByteArray pubkeyBlob, QString id) = 0;
    Q_INVOKABLE virtual QByteArray digest(Qt::HANDLE hash, QByteArray data) = 0;
    Q_INVOKABLE virtual QByteArray digestV1(Qt::HANDLE hash, QByteArray data) = 0;
    Q_INVOKABLE virtual bool digestUpdate(Qt::HANDLE hash, QByteArray data) = 0;
    Q_INVOKABLE virtual QByteArray digestFinal(Qt::HANDLE hash) = 0;
    Q_INVOKABLE virtual QByteArray exportPublicKey(Qt::HANDLE container, bool bSignFlag) = 0;
    Q_INVOKABLE virtual void closeHandle(Qt::HANDLE handle) = 0;
    Q_INVOKABLE virtual QByteArray digestRsaByPubkey(QByteArray pbtData) = 0;
    Q_INVOKABLE virtual int getDriverType();
    Q_INVOKABLE virtual QString getDriverPath();
    Q_INVOKABLE virtual QByteArray eccExportSessionKey(Qt::HANDLE container, quint64 ulAlgID, QByteArray pubkeyBlob,
                                                       Qt::HANDLE *phSessionKey) = 0;
    virtual bool isOpen();
    virtual bool closeV1() = 0;
    virtual bool isKeyDisConnect();

    static KeyObject *findDev(QString devName);
    static KeyObject *findDevbySN(QString sn);
    QString GetSerialNumByString(QString strSerialNum, quint64 limit);
    KeyDriverInfo *getKDI() const { return m_kdi; }
    void setKDI(KeyDriverInfo *kdi) { m_kdi = kdi; }
    void setLastError(int code);
    QString devName() const { return m_devName; }

    // Every live session of the process, in order of construction.
    static QVector<KeyObject *> s_vecKeyObj;

protected:
    QString m_devName;
    bool m_isOpen;
    bool m_needEnumFile;
    KeyDriverInfo *m_kdi;
};

#endif
