#ifndef TWKEY_SESSIONMETHODS_H
#define TWKEY_SESSIONMETHODS_H

#include <QObject>

// The invokable methods of every session class, in the order hosts rely on.
// Each session class names TW_SESSION_METHODS right behind Q_OBJECT. Only moc
// sees the list, so that each class gets its own method table like the one
// before it; the compiler sees nothing, and the bodies are KeySession's unless
// a class overrides one (without Q_INVOKABLE: the table is already here).
// KeySession itself has no Q_OBJECT and so adds no table of its own.
#ifdef Q_MOC_RUN
#define TW_SESSION_METHODS \
public: \
    Q_INVOKABLE bool epsImportSymmKey(Qt::HANDLE container, quint64 ulKeyIndex, QByteArray szEncData, \
        quint64 ulEncDataLen, quint64 ulFlags = 0) override; \
    Q_INVOKABLE QByteArray epsReadESealData(quint64 ulKeyIndex, quint64 ulKeyAlgId, \
        quint64 ulFlags = 0) override; \
    Q_INVOKABLE bool epsWriteESealData(QByteArray szData, quint64 ulDataSize, quint64 ulFlags = 0) override; \
    Q_INVOKABLE void close() override; \
    Q_INVOKABLE QString labelName() override; \
    Q_INVOKABLE QString serialNumber() override; \
    Q_INVOKABLE QString serialNumberEx() override; \
    Q_INVOKABLE QString GetManufacturer() override; \
    Q_INVOKABLE QString GetHWVersion() override; \
    Q_INVOKABLE QString GetFirmwareVersion() override; \
    Q_INVOKABLE bool SetlabelName(QString strlabelName) override; \
    Q_INVOKABLE quint64 totalSpace() override; \
    Q_INVOKABLE quint64 freeSpace() override; \
    Q_INVOKABLE bool formatKey() override; \
    Q_INVOKABLE bool changePIN(bool isAdmin, QString oldPin, QString newPin) override; \
    Q_INVOKABLE bool verifyPin(QString pinCode, bool isAdmin) override; \
    Q_INVOKABLE bool verifyPinEx(QString pinCode, bool isAdmin) override; \
    Q_INVOKABLE bool resetUserPin() override; \
    Q_INVOKABLE bool resetUserPinV1(QString AdminPin, QString NewUserPin) override; \
    Q_INVOKABLE bool resetAdminPin() override; \
    Q_INVOKABLE quint64 GetPINInfo(quint64 ulPINType, quint64 ulOutType) override; \
    Q_INVOKABLE bool createFile(QString fileName, quint64 ulFileSize, quint64 readRights = 0xFF, \
        quint64 writeRights = 0xFF) override; \
    Q_INVOKABLE QStringList enumFiles() override; \
    Q_INVOKABLE QByteArray readFile(QString fileName, quint64 ulOffset = 0, quint64 ulSize = 0) override; \
    Q_INVOKABLE bool writeFile(QString fileName, quint64 offset, QByteArray data) override; \
    Q_INVOKABLE bool deleteFile(QString fileName) override; \
    Q_INVOKABLE bool writeFileV1(QString fileName, QByteArray data) override; \
    Q_INVOKABLE bool createFileByVerifyPin() override; \
    Q_INVOKABLE Qt::HANDLE createContainer(QString containerName) override; \
    Q_INVOKABLE bool deleteContainer(QString containerName) override; \
    Q_INVOKABLE QStringList enumContainer() override; \
    Q_INVOKABLE Qt::HANDLE openContainer(QString containerName) override; \
    Q_INVOKABLE void closeContainer(Qt::HANDLE container) override; \
    Q_INVOKABLE int getContainerType(Qt::HANDLE container) override; \
    Q_INVOKABLE bool ImportCertificate(Qt::HANDLE container, bool signFlag, QByteArray cert) override; \
    Q_INVOKABLE QByteArray exportCertificate(Qt::HANDLE container, bool signFlag) override; \
    Q_INVOKABLE QStringList exportAllCertificate(bool signFlag) override; \
    Q_INVOKABLE QByteArray genRSAKeyPair(Qt::HANDLE container, quint64 algId) override; \
    Q_INVOKABLE bool importRSAKeyPair(Qt::HANDLE container, quint64 symAlgId, QByteArray wrappedKey, \
        QByteArray encryptedData) override; \
    Q_INVOKABLE QByteArray rsaSignData(Qt::HANDLE container, QByteArray data) override; \
    Q_INVOKABLE bool rsaVerify(QByteArray pubkeyBlob, QByteArray data, QByteArray signature) override; \
    Q_INVOKABLE QByteArray genECCKeyPair(Qt::HANDLE container, quint64 algId) override; \
    Q_INVOKABLE bool importECCKeyPair(Qt::HANDLE container, QByteArray envelopedKeyBlob) override; \
    Q_INVOKABLE QByteArray eccSignData(Qt::HANDLE container, QByteArray data) override; \
    Q_INVOKABLE bool eccVerify(QByteArray pubkeyBlob, QByteArray data, QByteArray signature) override; \
    Q_INVOKABLE Qt::HANDLE importSessionKey(Qt::HANDLE container, quint64 ulAlgID, QByteArray wrapedData, \
        quint64 wrapedDataLen) override; \
    Q_INVOKABLE bool encryptInit(Qt::HANDLE hKey, QByteArray encryptParamData) override; \
    Q_INVOKABLE QByteArray encrypt(Qt::HANDLE hKey, QByteArray data, quint64 dataLen) override; \
    Q_INVOKABLE bool decryptInit(Qt::HANDLE hKey, QByteArray decryptParamData) override; \
    Q_INVOKABLE QByteArray decrypt(Qt::HANDLE hKey, QByteArray encryptedData, \
        quint64 encryptedDataLen) override; \
    Q_INVOKABLE QByteArray rsaSimpleSign(Qt::HANDLE container, QByteArray data, quint64 digestAlgID) override; \
    Q_INVOKABLE QByteArray eccSimpleSign(Qt::HANDLE container, QByteArray data, bool usedPubkeyDigest) override; \
    Q_INVOKABLE bool eccSimpleVerify(Qt::HANDLE container, QByteArray data, QByteArray signature, \
        bool usedPubkeyDigest) override; \
    Q_INVOKABLE Qt::HANDLE digestInit(quint64 ulAlgID, QByteArray pubkeyBlob, QString id) override; \
    Q_INVOKABLE QByteArray digest(Qt::HANDLE hash, QByteArray data) override; \
    Q_INVOKABLE QByteArray digestV1(Qt::HANDLE hash, QByteArray data) override; \
    Q_INVOKABLE bool digestUpdate(Qt::HANDLE hash, QByteArray data) override; \
    Q_INVOKABLE QByteArray digestFinal(Qt::HANDLE hash) override; \
    Q_INVOKABLE QByteArray exportPublicKey(Qt::HANDLE container, bool bSignFlag) override; \
    Q_INVOKABLE void closeHandle(Qt::HANDLE handle) override; \
    Q_INVOKABLE QByteArray digestRsaByPubkey(QByteArray pbtData) override; \
    Q_INVOKABLE QByteArray eccExportSessionKey(Qt::HANDLE container, quint64 ulAlgID, QByteArray pubkeyBlob, \
        Qt::HANDLE *phSessionKey) override;
#else
#define TW_SESSION_METHODS
#endif

#endif
