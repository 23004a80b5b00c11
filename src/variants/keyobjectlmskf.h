#ifndef TWKEY_KEYOBJECTLMSKF_H
#define TWKEY_KEYOBJECTLMSKF_H

#include <QMap>

#include "session/keysession.h"
#include "session/sessionmethods.h"

class KeyDriverPackage;

// The session for a token family that may keep its data as objects named
// "PUBOBJ" plus a hexadecimal index, each behind a header. The host calls
// such a file by a short decimal number; this class maps the number to the
// object and back, rebuilding the map from the token at every file
// operation.
class KeyObjectLmSKF : public KeySession
{
    Q_OBJECT
    TW_SESSION_METHODS
public:
    KeyObjectLmSKF(KeyDriverPackage *package, QString devName, QObject *parent = nullptr);
    ~KeyObjectLmSKF() override;

    QStringList enumFiles() override;

protected:
    void labelSet(const QString &label) override;
    QString fileStep(FileStep step, const QString &hostName, const QString &name, QByteArray *data) override;
    QStringList filesFound(const QStringList &names) override;

private:
    // 0 when the text holds only the digits 0 to 9 (or nothing).
    static int isDigitStr(QString text);
    // The plain read, for the objects' headers while listing.
    QByteArray readFileV1(QString fileName, quint64 ulOffset, quint64 ulSize);
    // The map knows the host's name.
    bool mapped(const QString &hostName) const;
    // A name the store is to get a new object for.
    bool allocates(const QString &name) const;
    // The object name for it, logged behind `word`.
    QString allocated(const char *function, const char *word, const QString &name) const;
    QString objectFor(const char *function, const QString &name) const;

    // The last listing found an object name.
    bool m_hasPubObj;
    // Host's name -> the name on the token.
    QMap<QString, QString> m_mapFileName;
    // Reading objects for the listing: names are the token's own.
    bool m_listing;
};

#endif
