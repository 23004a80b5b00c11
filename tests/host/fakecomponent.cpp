// A stand-in for the component library: the four entry points and a
// manager that reaches the host's core by name, as the real one does.
#include "twcall.h"

#include <QObject>
#include <QString>

#include <cstring>

namespace {

QObject *s_core = nullptr;

void coreLog(const QString &text)
{
    if (s_core)
        twCallVoid(s_core, "logDebug", text);
}

class FakeManager : public QObject
{
    Q_OBJECT

public:
    FakeManager()
    {
        QString bin;
        twCall(s_core, "binPath", bin);
        m_bin = bin;
        coreLog(QStringLiteral("fake manager made, bin ") + bin);
    }
    // Unlike the real library, forget the manager when it goes, so each
    // test case of one process can make its own.
    ~FakeManager() override;

    Q_INVOKABLE int count() { return 2; }
    Q_INVOKABLE QString scannedPath() { return m_bin + QStringLiteral("/kdp/"); }

private:
    QString m_bin;
};

FakeManager *s_manager = nullptr;

FakeManager::~FakeManager()
{
    coreLog(QStringLiteral("fake manager deleted"));
    s_manager = nullptr;
}

} // namespace

extern "C" {

Q_DECL_EXPORT int ComponentInit(QObject *core)
{
    s_core = core;
    return 1;
}

Q_DECL_EXPORT QObject *CreateComponent(QString progId, QString interfaceId)
{
    if (progId != QLatin1String("TWKEY.TWKey.1") && interfaceId != QLatin1String("3948311E-CB0F-4526-8D6C-8588A7C5E490"))
        return nullptr;
    if (!s_manager)
        s_manager = new FakeManager;
    return s_manager;
}

Q_DECL_EXPORT void ComponentDestroy()
{
    s_core = nullptr;
}

#ifndef FAKECOMPONENT_NO_VERSION
Q_DECL_EXPORT int TW_GetVersion(char *buffer, int *length)
{
    if (length)
        *length = 9;
    if (!buffer)
        return 0;
    std::memset(buffer, 0, size_t(*length));
    if (*length > 9) {
        std::memcpy(buffer, "V10.0.0.4", 9);
        return 0;
    }
    return -1;
}
#endif
}

#include "fakecomponent.moc"
