// What one software token holds, and its form on disk (JSON, binary
// values in base64). The store keeps one such document per device.
#ifndef SOFTTOKEN_DEVICEDATA_H
#define SOFTTOKEN_DEVICEDATA_H

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

class DeviceData
{
public:
    // Access rights as the token's files and applications carry them.
    enum Rights : quint32 { Never = 0x00, Admin = 0x01, User = 0x10, Anyone = 0xFF };
    enum ContainerType { EmptyContainer = 0, RsaContainer = 1, EccContainer = 2 };
    enum KeyAlg { NoKey = 0, Rsa = 1, Sm2 = 2 };

    struct Pin {
        QByteArray salt;
        QByteArray hash;
        int iterations = 0;
        int maxRetries = 0;
        int remaining = 0;
        bool isDefault = true;

        void set(const QByteArray &pin);
        bool matches(const QByteArray &pin) const;
    };

    // Private keys are kept in clear: this is a test token.
    struct KeyPair {
        KeyAlg alg = NoKey;
        int bits = 0;
        QByteArray priv; // SM2: 32-byte scalar; RSA: PKCS#1 DER
    };

    struct Container {
        QString name;
        KeyPair sign;
        KeyPair enc;
        QByteArray signCert;
        QByteArray encCert;

        ContainerType type() const;
    };

    struct File {
        QString name;
        quint32 readRights = Anyone;
        quint32 writeRights = Anyone;
        QByteArray data; // fixed at the size given on creation
    };

    struct SymmKey {
        quint32 algId = 0;
        QByteArray key;
    };

    struct App {
        QString name;
        Pin admin;
        Pin user;
        quint32 createFileRights = Anyone;
        QList<File> files;
        QList<Container> containers;
        QByteArray sealData;
        QMap<quint32, SymmKey> symmKeys;

        File *file(const QString &fileName);
        const File *file(const QString &fileName) const;
        Container *container(const QString &containerName);
        const Container *container(const QString &containerName) const;
    };

    // How the SKF face answers where token families differ: "standard", or
    // "wg" (SKF_EnumApplication gives the names blank-separated in one string).
    static const char *const StandardProfile;
    static const char *const WgProfile;
    static bool validProfile(const QString &profile);

    QString profile = QLatin1String(StandardProfile);
    QString label;
    QString serial;
    QString manufacturer;
    QString issuer;
    quint8 hwMajor = 1, hwMinor = 0;
    quint8 fwMajor = 1, fwMinor = 0;
    quint32 totalSpace = 0;
    QByteArray devAuthKey;
    QList<App> apps;

    App *app(const QString &appName);
    const App *app(const QString &appName) const;
    // Bytes taken by files, certificates, seal data and keys.
    quint32 usedSpace() const;
    quint32 freeSpace() const;

    QByteArray toJson() const;
    static bool fromJson(const QByteArray &json, DeviceData *out, QString *error);

    // Names of devices, applications, containers and files.
    static bool validName(const QString &name, int maxBytes = 32);
};

#endif // SOFTTOKEN_DEVICEDATA_H
