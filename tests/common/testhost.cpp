#include "testhost.h"

#include <QTest>

TestHost::TestHost(const QString &binPath)
{
    m_core.setBinPath(binPath);
    m_core.setConfigPath(binPath + QStringLiteral("/config"));
}

TestHost::~TestHost() { m_host.shutdown(true); }

QObject *TestHost::start()
{
    // CreateComponent hands out the first manager for ever: a second host in
    // one process would get one that scanned another folder.
    static bool started = false;
    if (!m_host.manager() && started)
        m_error = QStringLiteral("one key manager per process: run each scenario in a process of its own");
    else if (!m_host.manager() && !m_host.load(QStringLiteral(TWKEY_LIB)))
        m_error = m_host.errorString();
    else if (!m_host.manager() && !m_host.start(&m_core))
        m_error = m_host.errorString();
    started = started || m_host.manager();
    return m_host.manager();
}

QStringList TestHost::log() const
{
    QStringList lines;
    for (const TWCore::LogLine &l : m_core.lines())
        lines << l.text;
    return lines;
}

void TestHost::missing(QObject *target, const char *method, const QByteArray &signature)
{
    const QByteArray what = target ? "no " + signature + " on " + target->metaObject()->className()
                                   : QByteArray("call of ") + method + " on a null object";
    QTest::qFail(what.constData(), __FILE__, __LINE__);
}
