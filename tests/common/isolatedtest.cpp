#include "isolatedtest.h"

#include <QMetaMethod>
#include <QProcess>
#include <QStringList>
#include <QTest>

#include <cstdio>

namespace {

QStringList testFunctions(const QObject *testObject)
{
    static const QStringList special = {QStringLiteral("initTestCase"), QStringLiteral("cleanupTestCase"),
                                        QStringLiteral("init"), QStringLiteral("cleanup")};
    QStringList names;
    const QMetaObject *meta = testObject->metaObject();
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod m = meta->method(i);
        const QString name = QString::fromLatin1(m.name());
        if (m.methodType() == QMetaMethod::Slot && m.access() == QMetaMethod::Private && m.parameterCount() == 0 &&
            !special.contains(name) && !name.endsWith(QLatin1String("_data")))
            names << name;
    }
    return names;
}

} // namespace

int twRunIsolated(QObject *testObject, int argc, char **argv)
{
    if (argc > 1)
        return QTest::qExec(testObject, argc, argv);
    int failed = 0;
    const QStringList names = testFunctions(testObject);
    for (const QString &name : names) {
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(QCoreApplication::applicationFilePath(), {name});
        const bool ok = child.waitForFinished(-1) && child.exitStatus() == QProcess::NormalExit &&
                        child.exitCode() == 0;
        if (!ok)
            ++failed;
    }
    std::printf("%d passed, %d failed\n", int(names.size()) - failed, failed);
    return failed;
}
