// A software token store in a temporary directory, made the library's store
// through SOFTTOKEN_STORE for the fixture's life, with helpers that drive
// the token through its exported functions; and steps for tables of calls.
#ifndef TESTS_SOFTTOKEN_TOKENFIXTURE_H
#define TESTS_SOFTTOKEN_TOKENFIXTURE_H

#include "skfapi.h"
#include "softtokenengine.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

class TokenFixture
{
public:
    static constexpr const char *UserPin = "12345678", *AdminPin = "88888888", *App = "TW_APP";

    TokenFixture() { useStore(m_dir.path()); }
    ~TokenFixture() { m_hadStore ? qputenv("SOFTTOKEN_STORE", m_oldStore) : qunsetenv("SOFTTOKEN_STORE"); }
    TokenFixture(const TokenFixture &) = delete;
    TokenFixture &operator=(const TokenFixture &) = delete;

    QString store() const { return m_dir.path(); }
    void useStore(const QString &dir) { qputenv("SOFTTOKEN_STORE", QFile::encodeName(dir)); } // until the fixture ends
    SoftTokenEngine &engine() { return m_engine; }
    // Default PINs and application; containers as the admin program takes them ("c1:sm2", "c2:rsa:1024", "empty").
    bool addDevice(const QString &name, const QStringList &containers = QStringList());
    // Each gives null (and warns) on failure.
    DEVHANDLE connect(const QString &device);
    HAPPLICATION openApp(DEVHANDLE dev, const char *app = App);
    HCONTAINER openContainer(HAPPLICATION app, const char *container);
    bool login(HAPPLICATION app, const char *pin = UserPin);
    HCONTAINER ready(const QString &device, const char *container, DEVHANDLE *dev, HAPPLICATION *app);

private:
    QTemporaryDir m_dir;
    QByteArray m_oldStore = qgetenv("SOFTTOKEN_STORE");
    bool m_hadStore = qEnvironmentVariableIsSet("SOFTTOKEN_STORE");
    SoftTokenEngine m_engine{m_dir.path()};
};

// A table of calls in order on shared handles: each step shows what it got
// (the result code in hex, values after it) against what the row expects.
struct TokenSteps
{
    TokenFixture fx;
    DEVHANDLE dev = nullptr, dev2 = nullptr;
    HAPPLICATION app = nullptr, app2 = nullptr;
    HCONTAINER c = nullptr, c2 = nullptr, c3 = nullptr;
    HANDLE h = nullptr, k = nullptr, k2 = nullptr;
    QByteArray a, b, d;
    ULONG n = 0, m = 0;
};
using TokenStep = std::function<QString(TokenSteps &)>;
Q_DECLARE_METATYPE(TokenStep)
inline QString rv(ULONG code) { return QString::number(code, 16); }
// Joins what a step shows in the order written, calls included: the
// operands of << are evaluated left to right, those of + in any order.
struct Out
{
    QString text;
    Out &operator<<(ULONG code) { return text += rv(code), *this; }
    Out &operator<<(const QString &t) { return text += t, *this; }
    Out &operator<<(const QByteArray &t) { return text += QString::fromLatin1(t), *this; }
    Out &operator<<(const char *t) { return text += QString::fromLatin1(t), *this; }
    Out &operator<<(char c) { return text += QLatin1Char(c), *this; }
    operator QString() const { return text; }
};
// A new table's columns and steps; the last table's fixture first gives the store setting back.
inline void newSteps(std::unique_ptr<TokenSteps> *steps)
{
    steps->reset();
    *steps = std::make_unique<TokenSteps>();
    QTest::addColumn<TokenStep>("step");
    QTest::addColumn<QString>("shows");
}
inline BYTE *bytes(QByteArray &b) { return reinterpret_cast<BYTE *>(b.data()); }
#define STEP(want, ...) QTest::newRow(#__VA_ARGS__) << TokenStep([]([[maybe_unused]] TokenSteps &s) -> QString { __VA_ARGS__; }) << QString(want)
#define TOKEN_STEPS_RUN(steps)                                                                                       \
    QFETCH(TokenStep, step);                                                                                         \
    QTEST(step(*steps), "shows")

#endif
