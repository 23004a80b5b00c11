// A software token store in a temporary directory, made the library's store
// through SOFTTOKEN_STORE for the fixture's life, with helpers that drive
// the token through its exported functions.
#ifndef TESTS_SOFTTOKEN_TOKENFIXTURE_H
#define TESTS_SOFTTOKEN_TOKENFIXTURE_H

#include "skfapi.h"
#include "softtokenengine.h"

#include <QByteArray>
#include <QStringList>
#include <QTemporaryDir>

class TokenFixture
{
public:
    static const char *const UserPin;
    static const char *const AdminPin;
    static const char *const App;

    TokenFixture();
    ~TokenFixture();
    TokenFixture(const TokenFixture &) = delete;
    TokenFixture &operator=(const TokenFixture &) = delete;

    QString store() const { return m_dir.path(); }
    // Points the library at another store until the fixture ends.
    void useStore(const QString &dir);
    SoftTokenEngine &engine() { return m_engine; }

    // A device with the default PINs and application; containers as the
    // admin program takes them ("c1:sm2", "c2:rsa:1024", "empty").
    bool addDevice(const QString &name, const QStringList &containers = QStringList());

    // Each returns null (and warns) on failure.
    DEVHANDLE connect(const QString &device);
    HAPPLICATION openApp(DEVHANDLE dev, const char *app = App);
    HCONTAINER openContainer(HAPPLICATION app, const char *container);
    bool login(HAPPLICATION app, const char *pin = UserPin);
    // Connect, open the application, log in and open a container.
    HCONTAINER ready(const QString &device, const char *container, DEVHANDLE *dev, HAPPLICATION *app);

    // Splits an SKF multi-string (names ended by NUL, list by an empty name).
    static QStringList names(const QByteArray &multi);

private:
    QTemporaryDir m_dir;
    QByteArray m_oldStore;
    bool m_hadStore;
    SoftTokenEngine m_engine;
};

#endif // TESTS_SOFTTOKEN_TOKENFIXTURE_H
