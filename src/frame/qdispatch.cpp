#include "qdispatch.h"

#include <QFile>
#include <QMetaMethod>
#include <QMetaObject>
#include <QRecursiveMutex>
#include <QTime>

#include <cstdio>
#include <vector>

namespace {

// Parameter types a late-bound call may carry, compared exactly. Every one
// travels the same way, as one pointer; the table only decides acceptance.
const char *const kAcceptedTypes[] = {
    "char",         "short",         "int",          "long",         "unsigned char", "unsigned short",
    "unsigned int", "unsigned long", "uchar",        "ushort",       "uint",          "ulong",
    "float",        "double",        "bool",         "qint8",        "qint16",        "qint32",
    "qint64",       "qlonglong",     "quint8",       "quint16",      "quint32",       "quint64",
    "qulonglong",   "Qt::HANDLE",    "QString",      "QStringList",  "QByteArray",    "QBitArray",
    "QLatin1String", "QChar",        "QDate",        "QTime",        "QDateTime",     "QSize",
    "QSizeF",       "QPoint",        "QPointF",      "QLine",        "QLineF",        "QRect",
    "QRectF",       "QUrl",          "QLocale",      "QRegExp",      "QEasingCurve",  "Qt::GlobalColor",
    "QVariant",
};

bool acceptedType(const QByteArray &name)
{
    for (const char *accepted : kAcceptedTypes) {
        if (name == accepted)
            return true;
    }
    // Pointers to anything and arrays pass; user value types do not.
    return name.endsWith('*') || name.endsWith(']');
}

// Lowest method index whose signature starts with "name(", or -1. A
// signature is the name, "(" and the parameters, so for a name without "("
// that is the method whose name is the name: compared on the meta-object's
// own strings, without building a signature for every method passed.
int findMethodIndex(const QMetaObject *meta, const QString &methodName)
{
    const QString trimmed = methodName.trimmed();
    if (trimmed.isEmpty())
        return -1;
    const QByteArray name = trimmed.toLatin1();
    const bool plain = !name.contains('(');
    const QByteArray prefix = name + '(';
    for (int i = 0; i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (plain ? method.name() == name : method.methodSignature().startsWith(prefix))
            return i;
    }
    return -1;
}

// Appends one line to the trace file, opened and closed for each line.
void appendTrace(const QDir &dir, QString text)
{
    const QString path = dir.path() + QStringLiteral("/quillset_core.log");
    text += QLatin1Char('\n');
    FILE *file = std::fopen(QFile::encodeName(path).constData(), "a+");
    if (!file)
        return;
    std::fprintf(file, "%s: %s", QTime::currentTime().toString(Qt::TextDate).toUtf8().constData(),
                 text.toUtf8().constData());
    std::fclose(file);
}

} // namespace

Q_Dispatch::Q_Dispatch(QObject *target, QObject *parent)
    : QObject(parent), _traceDir(QDir::tempPath() + QStringLiteral("/tarnwick")), _target(target)
{
    // A non-empty object name is how the manager tells a proxy from a bare
    // object; nothing else in the library sets one.
    setObjectName(QStringLiteral("Agent"));
}

Q_Dispatch::~Q_Dispatch() = default;

void Q_Dispatch::invokeHelper(QString methodName, void *result, ...)
{
    va_list args;
    va_start(args, result);
    invokeHelperV(methodName, result, args);
    va_end(args);
}

void Q_Dispatch::invokeHelperV(QString methodName, void *result, va_list args)
{
    QMutexLocker lock(_lock);
    // Every log line of the library is one of these calls: the trace
    // directory is looked up once per call rather than once per trace line,
    // and no trace text is built while it is absent.
    const bool trace = _traceDir.exists();
    if (trace)
        appendTrace(_traceDir, QStringLiteral("methodName=") + methodName);
    if (!_target)
        return;

    const QMetaObject *meta = _target->metaObject();
    const int index = findMethodIndex(meta, methodName);
    if (index < 0) {
        if (trace)
            appendTrace(_traceDir, QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt"));
        return;
    }

    const QList<QByteArray> types = meta->method(index).parameterTypes();
    std::vector<void *> argv(size_t(types.size()) + 1, nullptr);
    // The count goes in as one character whose code is the count.
    if (trace)
        appendTrace(_traceDir, QStringLiteral("methodName=") + methodName + QStringLiteral("::paramCount=")
                                   + QChar(ushort(types.size())));
    for (int i = 0; i < types.size(); ++i) {
        if (trace)
            appendTrace(_traceDir, QStringLiteral("paramTypeName=") + QString::fromLatin1(types.at(i)));
        if (!acceptedType(types.at(i))) {
            if (trace)
                appendTrace(_traceDir, QStringLiteral("参数错误"));
            return;
        }
        argv[size_t(i) + 1] = va_arg(args, void *);
    }
    argv[0] = result;

    if (trace)
        appendTrace(_traceDir, QStringLiteral("QMetaObject::metacall call in"));
    QMetaObject::metacall(_target, QMetaObject::InvokeMetaMethod, index, argv.data());
    if (trace)
        appendTrace(_traceDir, QStringLiteral("QMetaObject::metacall call end"));
}

void Q_Dispatch::Corelog(QString text)
{
    // The library never creates the directory: its presence switches the
    // trace on.
    if (!_traceDir.exists())
        return;
    appendTrace(_traceDir, text);
}
