#include "testhost.h"

#include <QTest>

namespace {
// CreateComponent hands out the first manager for ever: a second host in
// the same process would get one that scanned another folder.
bool s_started = false;
} // namespace

TestHost::TestHost(const QString &binPath) : m_binPath(binPath)
{
    if (m_binPath.isEmpty()) {
        m_ownDir = std::make_unique<QTemporaryDir>();
        m_binPath = m_ownDir->path();
    }
    m_core.setBinPath(m_binPath);
    m_core.setConfigPath(m_binPath + QStringLiteral("/config"));
}

TestHost::~TestHost()
{
    m_host.shutdown(m_deleteManager);
}

QObject *TestHost::start(const QString &library)
{
    if (m_host.manager())
        return m_host.manager();
    if (s_started) {
        m_error = QStringLiteral("the library makes one key manager per process; run each scenario in a process "
                                 "of its own");
        return nullptr;
    }
    if (!m_host.load(library)) {
        m_error = m_host.errorString();
        return nullptr;
    }
    QObject *manager = m_host.start(&m_core);
    if (!manager) {
        m_error = m_host.errorString();
        return nullptr;
    }
    s_started = true;
    return manager;
}

int TestHost::count()
{
    return call<int>(manager(), "count");
}

QObject *TestHost::open(int index)
{
    return static_cast<QObject *>(callPointer(manager(), "open", "KeyObject*", index));
}

QObject *TestHost::openEx(int index, bool enumDev)
{
    return static_cast<QObject *>(callPointer(manager(), "openEx", "KeyObject*", index, enumDev));
}

QStringList TestHost::log() const
{
    QStringList lines;
    for (const TWCore::LogLine &l : m_core.lines())
        lines << l.text;
    return lines;
}

QStringList TestHost::errorLog() const
{
    return m_core.lines(TWCore::Level::Error);
}

bool TestHost::logHas(const QRegularExpression &pattern) const
{
    return logCount(pattern) > 0;
}

int TestHost::logCount(const QRegularExpression &pattern) const
{
    int n = 0;
    for (const QString &line : log())
        if (pattern.match(line).hasMatch())
            ++n;
    return n;
}

void TestHost::missing(QObject *target, const char *method, const QByteArray &signature)
{
    const QByteArray what = target ? QByteArray("no ") + signature + " on " + target->metaObject()->className()
                                   : QByteArray("call of ") + method + " on a null object";
    QTest::qFail(what.constData(), __FILE__, __LINE__);
}
