// SoftTokenEngine: the software token's store, driven from C++.
//
// The `softtoken` admin program is a thin command line over this class, and
// tests use it to prepare stores without running processes:
//
//   SoftTokenEngine engine(tempDir.path());
//   SoftTokenEngine::DeviceOptions opt;
//   opt.name = "token1";
//   opt.containers << SoftTokenEngine::ContainerSetup{"c1", SoftTokenEngine::ContainerSetup::Sm2};
//   if (!engine.createDevice(opt)) qWarning() << engine.lastError();
//   engine.setFault("token1", "SKF_ECCSignData", 0x0A000023, 1);
//   engine.removeDevice("token1");     // SKF calls now see SAR_DEVICE_REMOVED
//
// Point the token library at the same directory with SOFTTOKEN_STORE.
// Every call reads and writes the store itself, so changes made here are
// seen at once by the library in any process, and the other way round.
#ifndef SOFTTOKEN_SOFTTOKENENGINE_H
#define SOFTTOKEN_SOFTTOKENENGINE_H

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

class SoftTokenEngine
{
public:
    enum { UntilCleared = -1 };

    struct ContainerSetup {
        enum Type { Empty, Sm2, Rsa };
        QString name;
        Type type = Empty;
        int rsaBits = 2048;

        // "NAME", "NAME:sm2", "NAME:rsa", "NAME:rsa:1024", "NAME:rsa:2048".
        static bool parse(const QString &text, ContainerSetup *out, QString *error);
    };

    struct DeviceOptions {
        QString name;
        QString serial;       // empty: generated, unique in the store
        QString label;        // empty: the device name
        QString manufacturer = QStringLiteral("Software Token");
        QString issuer = QStringLiteral("Software Token");
        QString adminPin = QStringLiteral("88888888");
        QString userPin = QStringLiteral("12345678");
        int adminRetries = 10;
        int userRetries = 6;
        QString app = QStringLiteral("TW_APP");
        QString profile = QStringLiteral("standard"); // or "wg"
        QList<ContainerSetup> containers;
        quint32 totalSpace = 256 * 1024;
    };

    struct DeviceSummary {
        QString name;
        QString serial;
        bool present = false;
    };

    struct PinState {
        int maxRetries = 0;
        int remaining = 0;
        bool isDefault = false;
    };

    struct FileInfo {
        QString name;
        int size = 0;
        quint32 readRights = 0;
        quint32 writeRights = 0;
    };

    struct ContainerInfo {
        QString name;
        int type = 0; // 0 empty, 1 RSA, 2 SM2, as SKF_GetContainerType
        bool hasSignKey = false;
        bool hasEncKey = false;
        bool hasSignCert = false;
        bool hasEncCert = false;
    };

    // An empty directory means the default store (see DeviceStore).
    explicit SoftTokenEngine(const QString &storeDir = QString());

    QString storeDir() const { return m_storeDir; }
    static QString defaultStoreDir();
    // Text of the last failure, for messages.
    QString lastError() const { return m_error; }

    bool createDevice(const DeviceOptions &options);
    bool removeDevice(const QString &device);
    bool insertDevice(const QString &device);
    bool deleteDevice(const QString &device);

    // function: one of the eighty SKF/EPS names, or a TWF_/TWEPS_ name, kept
    // under its SKF counterpart where it has one (see planName).
    // skip: calls of the function that pass untouched before the entry acts.
    bool setFault(const QString &device, const QString &function, quint32 code, int times = UntilCleared,
                  int skip = 0);
    bool setSizeLie(const QString &device, const QString &function, qint32 delta, int times = UntilCleared,
                    int skip = 0);
    bool clearFaults(const QString &device);
    static bool knownFunction(const QString &function);
    // The name a plan entry for function is kept under; empty if unknown.
    static QString planName(const QString &function);

    QList<DeviceSummary> listDevices() const;
    bool deviceExists(const QString &device) const;
    bool isPresent(const QString &device) const;
    // app empty: the device's first application.
    bool pinState(const QString &device, bool admin, PinState *out, const QString &app = QString()) const;
    QStringList applications(const QString &device) const;
    QList<FileInfo> files(const QString &device, const QString &app = QString()) const;
    QList<ContainerInfo> containers(const QString &device, const QString &app = QString()) const;
    // Gives the file exactly these bytes, making it (anyone may read and
    // write) if it doesn't exist. app empty: the device's first application.
    bool writeFile(const QString &device, const QString &file, const QByteArray &bytes,
                   const QString &app = QString());
    // Everything `softtoken show` prints; empty on failure.
    QByteArray showJson(const QString &device) const;

private:
    bool fail(const QString &message) const;

    QString m_storeDir;
    mutable QString m_error;
};

#endif // SOFTTOKEN_SOFTTOKENENGINE_H
