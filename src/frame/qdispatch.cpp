#include "qdispatch.h"

#include <QFile>
#include <QMetaMethod>
#include <QMetaObject>
#include <QRecursiveMutex>
#include <QTime>
#include <QVarLengthArray>

#include <cstdio>
#include <string_view>
#include <unordered_set>

#include <sys/stat.h>

namespace {

// Parameter types a late-bound call may carry, compared exactly. Every one
// travels the same way, as one pointer; the table only decides acceptance.
constexpr std::string_view kAcceptedTypes[] = {
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
    // Looked up by hash: this runs for every parameter of every call, and
    // the answer does not depend on the order of the table.
    static const std::unordered_set<std::string_view> accepted(std::begin(kAcceptedTypes), std::end(kAcceptedTypes));
    if (accepted.count(std::string_view(name.constData(), size_t(name.size()))))
        return true;
    // Pointers to anything and arrays pass; user value types do not.
    return name.endsWith('*') || name.endsWith(']');
}

// Whether a method's name is the call's name: its bytes against the
// characters, with nothing built.
bool sameName(const QByteArray &method, QStringView name)
{
    if (method.size() != name.size())
        return false;
    for (int k = 0; k < method.size(); ++k) {
        if (uchar(method.at(k)) != name.at(k).unicode())
            return false;
    }
    return true;
}

// Lowest method index whose signature starts with "name(", or -1. A
// signature is the name, "(" and the parameters, so for a name without "("
// that is the first method whose name is the name: compared on the
// meta-object's own strings. This runs for every log line.
int findMethodIndex(const QMetaObject *meta, const QString &methodName)
{
    const QStringView name = QStringView(methodName).trimmed();
    if (name.isEmpty())
        return -1;
    const int count = meta->methodCount();
    if (name.contains(QLatin1Char('('))) {
        const QByteArray prefix = name.toLatin1() + '(';
        for (int i = 0; i < count; ++i) {
            if (meta->method(i).methodSignature().startsWith(prefix))
                return i;
        }
        return -1;
    }
    for (int i = 0; i < count; ++i) {
        if (sameName(meta->method(i).name(), name))
            return i;
    }
    return -1;
}

// Appends one line to the trace file, opened and closed for each line.
void appendTrace(const QByteArray &dirName, QString text)
{
    const QByteArray path = dirName + "/quillset_core.log";
    text += QLatin1Char('\n');
    FILE *file = std::fopen(path.constData(), "a+");
    if (!file)
        return;
    std::fprintf(file, "%s: %s", QTime::currentTime().toString(Qt::TextDate).toUtf8().constData(),
                 text.toUtf8().constData());
    std::fclose(file);
}

} // namespace

Q_Dispatch::Q_Dispatch(QObject *target, QObject *parent)
    : QObject(parent), _traceDir(QDir::tempPath() + QStringLiteral("/tarnwick")), _target(target),
      _traceDirName(QFile::encodeName(_traceDir.path()))
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
    const bool trace = traceOn();
    if (trace)
        appendTrace(_traceDirName, QStringLiteral("methodName=") + methodName);
    if (!_target)
        return;

    const QMetaObject *meta = _target->metaObject();
    const int index = findMethodIndex(meta, methodName);
    if (index < 0) {
        if (trace)
            appendTrace(_traceDirName, QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt"));
        return;
    }

    const QList<QByteArray> types = meta->method(index).parameterTypes();
    QVarLengthArray<void *, 8> argv(types.size() + 1);
    // The count goes in as one character whose code is the count.
    if (trace)
        appendTrace(_traceDirName, QStringLiteral("methodName=") + methodName + QStringLiteral("::paramCount=")
                                       + QChar(ushort(types.size())));
    for (int i = 0; i < types.size(); ++i) {
        if (trace)
            appendTrace(_traceDirName, QStringLiteral("paramTypeName=") + QString::fromLatin1(types.at(i)));
        if (!acceptedType(types.at(i))) {
            if (trace)
                appendTrace(_traceDirName, QStringLiteral("参数错误"));
            return;
        }
        argv[i + 1] = va_arg(args, void *);
    }
    argv[0] = result;

    if (trace)
        appendTrace(_traceDirName, QStringLiteral("QMetaObject::metacall call in"));
    QMetaObject::metacall(_target, QMetaObject::InvokeMetaMethod, index, argv.data());
    if (trace)
        appendTrace(_traceDirName, QStringLiteral("QMetaObject::metacall call end"));
}

bool Q_Dispatch::traceOn() const
{
    // What _traceDir.exists() answers, without Qt's file engine: the
    // library never creates the directory, its presence switches the trace
    // on, and it is looked up afresh at every call.
    struct stat info;
    return ::stat(_traceDirName.constData(), &info) == 0 && S_ISDIR(info.st_mode);
}

void Q_Dispatch::Corelog(QString text)
{
    if (traceOn())
        appendTrace(_traceDirName, text);
}
