#include "twcall.h"

#include <QMetaMethod>
#include <QMetaObject>
#include <QMetaType>
#include <QVarLengthArray>

namespace {

// moc records built-in types by id, so a method declared to give quint64
// reports "qulonglong"; compare ids where the name has one.
bool returnsType(const QMetaMethod &method, const char *typeName)
{
    const int wanted = QMetaType::type(typeName);
    if (wanted != QMetaType::UnknownType)
        return method.returnType() == wanted;
    return qstrcmp(method.typeName(), typeName) == 0;
}

// "name(Type1,Type2)" as the caller spelled it.
QByteArray spelledSignature(const char *method, const TWArg *args, int count)
{
    QByteArray sig = QByteArray(method).trimmed();
    sig += '(';
    for (int i = 0; i < count; ++i) {
        if (i > 0)
            sig += ',';
        sig += args[i].typeName;
    }
    sig += ')';
    return sig;
}

} // namespace

QByteArray TWCall::signature(const char *method, std::initializer_list<TWArg> args)
{
    return signature(method, args.begin(), int(args.size()));
}

QByteArray TWCall::signature(const char *method, const TWArg *args, int count)
{
    return QMetaObject::normalizedSignature(spelledSignature(method, args, count).constData());
}

bool TWCall::invoke(QObject *target, const char *method, TWArg result, std::initializer_list<TWArg> args)
{
    return invoke(target, method, result, args.begin(), int(args.size()));
}

bool TWCall::invoke(QObject *target, const char *method, TWArg result, const TWArg *args, int count)
{
    if (!target || !method)
        return false;
    // The run-time meta-object, so the most derived class's methods count.
    const QMetaObject *meta = target->metaObject();
    // Normalizing costs more than the search, and a signature that is found
    // as it is spelled is already in the form moc stores: this is how Qt's
    // own invokeMethod looks a method up.
    const QByteArray spelled = spelledSignature(method, args, count);
    int index = meta->indexOfMethod(spelled.constData());
    if (index < 0)
        index = meta->indexOfMethod(QMetaObject::normalizedSignature(spelled.constData()).constData());
    if (index < 0)
        return false;
    // A slot of another type would be written through the wrong type.
    if (result.ptr && !returnsType(meta->method(index), result.typeName))
        return false;

    QVarLengthArray<void *, 8> argv;
    argv.append(result.ptr);
    for (int i = 0; i < count; ++i)
        argv.append(args[i].ptr);
    QMetaObject::metacall(target, QMetaObject::InvokeMetaMethod, index, argv.data());
    return true;
}
