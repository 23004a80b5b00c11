// counthost: the smallest host of the key library. It loads libTWKey.so at
// run time, hands it a core object, asks for the key manager by identifier,
// counts the keys and prints each one, all by method name: it knows none of
// the library's classes.
//
// Usage: counthost [LIBRARY [BIN_PATH]]
// (defaults: the installed library and its folder, known at build time)
#include "hostcore.h"

#include <twkey/twkey.h>

#include <QCoreApplication>
#include <QLibrary>
#include <QMetaObject>

#include <cstdio>

namespace {

// The library writes a few lines of its own on Qt's debug stream; a host
// keeps them with its log.
void qtMessage(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type != QtDebugMsg || qEnvironmentVariableIsSet("COUNTHOST_LOG"))
        std::fprintf(stderr, "%s\n", qUtf8Printable(text));
}

QString callString(QObject *object, const char *method)
{
    QString value;
    QMetaObject::invokeMethod(object, method, Qt::DirectConnection, Q_RETURN_ARG(QString, value));
    return value;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(qtMessage);
    const QStringList args = app.arguments();
    const QString libraryPath = args.value(1, QStringLiteral(COUNTHOST_LIBRARY));
    const QString binPath = args.value(2, QStringLiteral(COUNTHOST_BIN_PATH));

    // The library stays loaded for the life of the process.
    QLibrary library(libraryPath);
    const auto init = reinterpret_cast<TWKeyComponentInitFn>(library.resolve("ComponentInit"));
    const auto create = reinterpret_cast<TWKeyCreateComponentFn>(library.resolve("CreateComponent"));
    const auto destroy = reinterpret_cast<TWKeyComponentDestroyFn>(library.resolve("ComponentDestroy"));
    if (!init || !create || !destroy) {
        std::fprintf(stderr, "counthost: %s\n", qUtf8Printable(library.errorString()));
        return 3;
    }

    HostCore core(binPath);
    init(&core);
    QObject *manager = create(QStringLiteral(TWKEY_PROG_ID), QStringLiteral(TWKEY_INTERFACE_ID));
    if (!manager) {
        std::fprintf(stderr, "counthost: no key manager\n");
        destroy();
        return 3;
    }

    int count = 0;
    QMetaObject::invokeMethod(manager, "count", Qt::DirectConnection, Q_RETURN_ARG(int, count));
    std::printf("keys: %d\n", count);
    for (int i = 0; i < count; ++i) {
        // The key's class is known by its name only.
        QObject *key = nullptr;
        QMetaObject::invokeMethod(manager, "open", Qt::DirectConnection, QGenericReturnArgument("KeyObject*", &key),
                                  Q_ARG(int, i));
        if (!key) {
            std::printf("%d: cannot open (error 0x%08X)\n", i, core.getLastError());
            continue;
        }
        std::printf("%d: %s %s %s\n", i, qUtf8Printable(callString(key, "labelName")),
                    qUtf8Printable(callString(key, "serialNumberEx")), qUtf8Printable(callString(key, "GetManufacturer")));
    }

    // Deleting the manager closes the sessions; they log through the core,
    // so the core goes last.
    delete manager;
    destroy();
    return 0;
}
