#ifndef TWKEY_KEYSESSION_H
#define TWKEY_KEYSESSION_H

// Every session class (KeyObjectSKF and its siblings) is a KeySession: the
// operations are written here once, reach the token only through a TokenApi,
// and write their log lines through say(), in the adapter's words.
//
// Making a sibling:
//  - derive from KeySession; put Q_OBJECT and then TW_SESSION_METHODS
//    (sessionmethods.h) first in the class: that gives it its own method
//    table in the contract's order;
//  - the constructor takes (package, devName, parent) and hands KeySession
//    the class's Traits (Traits() with what differs changed) and a new
//    adapter for the parent driver: SkfTokenApi, or the class's own
//    TokenApi (scoped(), handleUsable(), has() and reword() are where a
//    library without applications differs);
//  - the destructor calls closeV1();
//  - override, without Q_INVOKABLE, only what differs: a hook below, or an
//    operation, which may call KeySession's own for the shared steps.
//    An override of a method with defaulted arguments (eps*, createFile,
//    readFile) repeats the defaults: moc's shorter forms call it with
//    fewer arguments.
// open() here is the form that probes the file store; KeyObjectSKF has its
// own. say() rewords whole lines, data included: a line that carries data
// a library's words might match goes through twlog directly.

#include <QString>
#include <QStringList>
#include <QTime>

#include "keyobject.h"
#include "skf/skfapi.h"
#include "skfcall.h"
#include "tokenapi.h"

class KeyDriverPackage;

class KeySession : public KeyObject
{
public:
    // What tells one session class from another where a flag or a word
    // suffices. The defaults are KeyObjectSKF's.
    struct Traits
    {
        // PrintError's line start.
        const char *printTag = "[TWKeyObjectSkf::PrintError] Error:";
        // GetPINInfo's progress text.
        const char *pinInfoWord = " SKF_GetPINInfo ";
        // verifyPinEx prints a failure's words.
        bool verifyPrintsError = true;
        // close() ends the session through closeV1.
        bool closeEnds = false;
        // closeContainer gives the handle back to the library.
        bool closesContainers = false;
        // The size query of enumFiles fails like its fill.
        bool enumFilesSizeFailCloses = false;
        // writeFileV1 lists the files first and replaces whatever the
        // deletion gives.
        bool looseReplace = false;
        // writeFileV1 reads a bare failure to create as a full store for
        // the one package family whose tokens answer so.
        bool readsFullStore = true;
        // Logged ahead of writeFileV1's look for the file (null: nothing),
        // and the name and size logged around its start and its create.
        const char *fileProbeWord = nullptr;
        bool replaceLogsSize = false;
        // resetUserPin makes one try; resetUserPinV1 takes the built-in
        // administrator PIN for an empty one.
        bool singleUnblock = false;
        // eccExportSessionKey starts with " start", logs no cipher blob
        // and guards like the application operations.
        bool plainSessionKeyExport = false;
        bool sessionKeyExportAppGuard = false;
        // createContainer's guard words lack their " end.".
        bool shortContainerGuards = false;
        // enumContainer tells a missing device or function table first.
        bool enumContainerTellsWhy = false;
        // exportCertificate logs the certificate it read.
        bool exportLogsCertificate = false;
    };

    // Compiled-in PINs: the administrator PIN the system unblocks with,
    // and the user PIN an unblock sets.
    static const char kBuiltInAdminPin[];
    static const char kDefaultUserPin[];

    // What the classes that keep their session by this open() share
    // besides: close() that closes, containers given back, the first file
    // listing call failing like the second, the looser writeFileV1, one
    // unblock, and no PrintError for a refused PIN.
    static Traits probingTraits(const char *printTag, const char *pinInfoWord);

    KeySession(KeyDriverPackage *package, QString devName, const Traits &traits, TokenApi *api);
    ~KeySession() override;

    bool epsImportSymmKey(Qt::HANDLE container, quint64 ulKeyIndex, QByteArray szEncData, quint64 ulEncDataLen,
                          quint64 ulFlags = 0) override;
    QByteArray epsReadESealData(quint64 ulKeyIndex, quint64 ulKeyAlgId, quint64 ulFlags = 0) override;
    bool epsWriteESealData(QByteArray szData, quint64 ulDataSize, quint64 ulFlags = 0) override;
    bool open() override;
    void close() override;
    QString labelName() override;
    QString serialNumber() override;
    QString serialNumberEx() override;
    QString GetManufacturer() override;
    QString GetHWVersion() override;
    QString GetFirmwareVersion() override;
    bool SetlabelName(QString strlabelName) override;
    quint64 totalSpace() override;
    quint64 freeSpace() override;
    bool formatKey() override;
    bool changePIN(bool isAdmin, QString oldPin, QString newPin) override;
    bool verifyPin(QString pinCode, bool isAdmin) override;
    bool verifyPinEx(QString pinCode, bool isAdmin) override;
    bool resetUserPin() override;
    bool resetUserPinV1(QString AdminPin, QString NewUserPin) override;
    bool resetAdminPin() override;
    quint64 GetPINInfo(quint64 ulPINType, quint64 ulOutType) override;
    bool createFile(QString fileName, quint64 ulFileSize, quint64 readRights = 0xFF,
                    quint64 writeRights = 0xFF) override;
    QStringList enumFiles() override;
    QByteArray readFile(QString fileName, quint64 ulOffset = 0, quint64 ulSize = 0) override;
    bool writeFile(QString fileName, quint64 offset, QByteArray data) override;
    bool deleteFile(QString fileName) override;
    bool writeFileV1(QString fileName, QByteArray data) override;
    bool createFileByVerifyPin() override;
    Qt::HANDLE createContainer(QString containerName) override;
    bool deleteContainer(QString containerName) override;
    QStringList enumContainer() override;
    Qt::HANDLE openContainer(QString containerName) override;
    void closeContainer(Qt::HANDLE container) override;
    int getContainerType(Qt::HANDLE container) override;
    bool ImportCertificate(Qt::HANDLE container, bool signFlag, QByteArray cert) override;
    QByteArray exportCertificate(Qt::HANDLE container, bool signFlag) override;
    QStringList exportAllCertificate(bool signFlag) override;
    QByteArray genRSAKeyPair(Qt::HANDLE container, quint64 algId) override;
    bool importRSAKeyPair(Qt::HANDLE container, quint64 symAlgId, QByteArray wrappedKey,
                          QByteArray encryptedData) override;
    QByteArray rsaSignData(Qt::HANDLE container, QByteArray data) override;
    bool rsaVerify(QByteArray pubkeyBlob, QByteArray data, QByteArray signature) override;
    QByteArray genECCKeyPair(Qt::HANDLE container, quint64 algId) override;
    bool importECCKeyPair(Qt::HANDLE container, QByteArray envelopedKeyBlob) override;
    QByteArray eccSignData(Qt::HANDLE container, QByteArray data) override;
    bool eccVerify(QByteArray pubkeyBlob, QByteArray data, QByteArray signature) override;
    Qt::HANDLE importSessionKey(Qt::HANDLE container, quint64 ulAlgID, QByteArray wrapedData,
                                quint64 wrapedDataLen) override;
    bool encryptInit(Qt::HANDLE hKey, QByteArray encryptParamData) override;
    QByteArray encrypt(Qt::HANDLE hKey, QByteArray data, quint64 dataLen) override;
    bool decryptInit(Qt::HANDLE hKey, QByteArray decryptParamData) override;
    QByteArray decrypt(Qt::HANDLE hKey, QByteArray encryptedData, quint64 encryptedDataLen) override;
    QByteArray rsaSimpleSign(Qt::HANDLE container, QByteArray data, quint64 digestAlgID) override;
    QByteArray eccSimpleSign(Qt::HANDLE container, QByteArray data, bool usedPubkeyDigest) override;
    bool eccSimpleVerify(Qt::HANDLE container, QByteArray data, QByteArray signature, bool usedPubkeyDigest) override;
    Qt::HANDLE digestInit(quint64 ulAlgID, QByteArray pubkeyBlob, QString id) override;
    QByteArray digest(Qt::HANDLE hash, QByteArray data) override;
    QByteArray digestV1(Qt::HANDLE hash, QByteArray data) override;
    bool digestUpdate(Qt::HANDLE hash, QByteArray data) override;
    QByteArray digestFinal(Qt::HANDLE hash) override;
    QByteArray exportPublicKey(Qt::HANDLE container, bool bSignFlag) override;
    void closeHandle(Qt::HANDLE handle) override;
    QByteArray digestRsaByPubkey(QByteArray pbtData) override;
    QByteArray eccExportSessionKey(Qt::HANDLE container, quint64 ulAlgID, QByteArray pubkeyBlob,
                                   Qt::HANDLE *phSessionKey) override;
    bool closeV1() override;

    void PrintError(unsigned int ret, char *msg);

    // The application names. Here the form that reads one blank-separated
    // string of a size the library gives; KeyObjectSKF reads NUL-ended
    // names from one fixed buffer.
    virtual QStringList enumApplication();
    bool openApplication();
    HAPPLICATION openApplication(QString appName);

    // Writes one log line (an error line when `error`) under the caller's
    // location, in the adapter's words.
    void say(const char *function, int line, const QString &text, bool error = false) const;
    // The same for a fixed text, which goes into the line as it stands
    // unless the adapter rewords it: most lines are such texts.
    void say(const char *function, int line, const char *text, bool error = false) const
    {
        if (m_api->rewords(text))
            say(function, line, QString::fromUtf8(text), error);
        else if (error)
            twlog::error(function, line, text);
        else
            twlog::debug(function, line, text);
    }

protected:
    // A fixed text in the adapter's words.
    QString words(const char *text) const;

    // Guard words shared by the operations.
    static const char kAppIsNull[];
    static const char kDevIsNull[];
    static const char kNameInvalid[];
    static const char kDataInvalid[];
    static const char kContainerNameEmpty[];
    static const char kContainerIsNull[];
    static const char kKeyDriverIsNull[];
    static const char kHKeyIsNull[];
    static const char kVerifyInvalid[];

    // Input bytes for the library, which takes non-const pointers for
    // data it only reads; and room it writes.
    static BYTE *inBytes(const QByteArray &data);
    static BYTE *outBytes(QByteArray &buffer);
    // The first `length` bytes the library wrote, never past the buffer.
    static QByteArray written(const QByteArray &buffer, quint64 length);
    // A buffer of the library's size plus `extra` zeroed bytes; false for a
    // size that can't be real.
    static bool allocate(QByteArray &buffer, ULONG size, ULONG extra);
    // A file or container list as the library writes it.
    static QStringList splitNames(const QByteArray &buffer, ULONG size);

    // The serial number as DEVINFO holds it, and with the package's limit.
    static QString serialOf(const DEVINFO &info);
    QString limitedSerial();
    // The library's connect to this session's device.
    ULONG connectDevice(DEVHANDLE *handle);

    // Right after the library accepted a PIN.
    virtual void pinVerified(const QString &pinCode, bool isAdmin);
    // Past importRSAKeyPair's guards, before the library call. False ends
    // the operation; the hook records its own last error.
    virtual bool beforeRsaKeyPairImport();
    // Right after the library took a new label.
    virtual void labelSet(const QString &label);

    // The points of the file operations where a class lays names of its
    // own over the token's store. Create to Replace come past the guards,
    // with the host's name, and give the name the token is to see (Write
    // may change what is written); in writeFileV1, Replace follows the
    // listing that looseReplace makes, and ReplaceMake comes right before
    // the new file is made. ReadDone has what was read. `data` is null
    // where the step has none.
    enum class FileStep { Create, Read, Write, Delete, Replace, ReplaceMake, ReadDone };
    virtual QString fileStep(FileStep step, const QString &hostName, const QString &name, QByteArray *data);
    // The names of a listing that worked, as enumFiles is to give them.
    virtual QStringList filesFound(const QStringList &names);

    QStringList m_fileList;
    quint64 m_AlgID;
    KeyDriverPackage *m_package;
    QTime m_time;
    DEVHANDLE dev;
    HAPPLICATION app;
    DEVINFO devInfo;
    QString m_keyStatus;
    const Traits m_traits;
    TokenApi *const m_api;
    SkfCall m_call;

private:
    void refreshDevInfo(const char *function);
    QString versionText(const char *function, const VERSION &version) const;
    // Makes the built-in PIN the administrator PIN (resetAdminPin,
    // formatKey), logging under the caller's name.
    bool adoptBuiltInAdminPin(const char *function, bool emptyApIsSuccess);
};

#endif
