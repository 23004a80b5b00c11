#include "isolatedtest.h"

#include <QMetaMethod>
#include <QProcess>
#include <QTest>

int twRunIsolated(QObject *testObject, int argc, char **argv)
{
    if (argc > 1)
        return QTest::qExec(testObject, argc, argv);
    int failed = 0, run = 0;
    const QMetaObject *meta = testObject->metaObject();
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod m = meta->method(i);
        const QString name = QString::fromLatin1(m.name());
        if (m.methodType() != QMetaMethod::Slot || m.access() != QMetaMethod::Private || m.parameterCount() != 0 ||
            name.endsWith(QLatin1String("_data")) || QStringList{"initTestCase", "cleanupTestCase", "init", "cleanup"}.contains(name))
            continue;
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(QCoreApplication::applicationFilePath(), {name});
        ++run;
        failed += child.waitForFinished(-1) && child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0 ? 0 : 1;
    }
    std::printf("%d passed, %d failed\n", run - failed, failed);
    return failed;
}
