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

} // namespace

QByteArray TWCall::signature(const char *method, std::initializer_list<TWArg> args)
{
    QByteArray sig = QByteArray(method).trimmed();
    sig += '(';
    bool first = true;
    for (const TWArg &arg : args) {
        if (!first)
            sig += ',';
        sig += arg.typeName;
        first = false;
    }
    sig += ')';
    return QMetaObject::normalizedSignature(sig.constData());
}

bool TWCall::invoke(QObject *target, const char *method, TWArg result, std::initializer_list<TWArg> args)
{
    if (!target || !method)
        return false;
    // The run-time meta-object, so the most derived class's methods count.
    const QMetaObject *meta = target->metaObject();
    const int index = meta->indexOfMethod(signature(method, args).constData());
    if (index < 0)
        return false;
    // A slot of another type would be written through the wrong type.
    if (result.ptr && !returnsType(meta->method(index), result.typeName))
        return false;

    QVarLengthArray<void *, 8> argv;
    argv.append(result.ptr);
    for (const TWArg &arg : args)
        argv.append(arg.ptr);
    QMetaObject::metacall(target, QMetaObject::InvokeMetaMethod, index, argv.data());
    return true;
}
