#include "twcall.h"

#include <QMetaMethod>
#include <QMetaObject>
#include <QVarLengthArray>

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
    if (result.ptr && qstrcmp(meta->method(index).typeName(), result.typeName) != 0)
        return false;

    QVarLengthArray<void *, 8> argv;
    argv.append(result.ptr);
    for (const TWArg &arg : args)
        argv.append(arg.ptr);
    QMetaObject::metacall(target, QMetaObject::InvokeMetaMethod, index, argv.data());
    return true;
}
