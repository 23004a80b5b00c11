// Late-bound calls by method name, made the way the host makes them: the
// normalized signature is built from the method name and the argument type
// names, looked up on the object's run-time meta-object, and called with
// one pointer per argument and a result slot that the caller presets.
// Giving fewer arguments reaches the shorter forms of defaulted methods.
#ifndef TWHOST_TWCALL_H
#define TWHOST_TWCALL_H

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

#include <initializer_list>
#include <type_traits>

// One argument or result slot: the type name as the meta-object spells it
// and a pointer to the value. A null ptr in the result means "no result".
struct TWArg
{
    const char *typeName;
    void *ptr;
};

// Pointer types the host knows only by name ("KeyObject*",
// "KeyDriverInfoAgent*", "Qt::HANDLE*"). As an argument it passes the
// pointer it holds; as a result it receives the pointer.
struct TWPtr
{
    const char *typeName;
    void *value = nullptr;

    QObject *object() const { return static_cast<QObject *>(value); }
};

// Type names per C++ type. Only these cross a late-bound call; any other
// type fails to compile rather than fail at run time.
template <typename T>
struct TWTypeName;

#define TWCALL_TYPE_NAME(T, N)                                                                                         \
    template <>                                                                                                        \
    struct TWTypeName<T>                                                                                               \
    {                                                                                                                  \
        static constexpr const char *name = N;                                                                         \
    }

TWCALL_TYPE_NAME(QString, "QString");
TWCALL_TYPE_NAME(QByteArray, "QByteArray");
TWCALL_TYPE_NAME(QStringList, "QStringList");
TWCALL_TYPE_NAME(bool, "bool");
TWCALL_TYPE_NAME(int, "int");
TWCALL_TYPE_NAME(uint, "uint");
TWCALL_TYPE_NAME(qint64, "qint64");
TWCALL_TYPE_NAME(quint64, "quint64");
TWCALL_TYPE_NAME(Qt::HANDLE, "Qt::HANDLE");
TWCALL_TYPE_NAME(QObject *, "QObject*");

#undef TWCALL_TYPE_NAME

class TWCall
{
public:
    // Finds `method` with exactly these argument types and calls it.
    // Returns false, and leaves the result untouched, when the object has
    // no such method or its result type differs from result.typeName.
    static bool invoke(QObject *target, const char *method, TWArg result, std::initializer_list<TWArg> args);
    // The same with an argument list built at run time.
    static bool invoke(QObject *target, const char *method, TWArg result, const TWArg *args, int count);

    // "name(Type1,Type2)", normalized.
    static QByteArray signature(const char *method, std::initializer_list<TWArg> args);
    static QByteArray signature(const char *method, const TWArg *args, int count);
};

namespace twcall_detail {

template <typename T>
TWArg slot(T &value)
{
    using Plain = std::remove_cv_t<T>;
    return TWArg{TWTypeName<Plain>::name, const_cast<Plain *>(&value)};
}

inline TWArg slot(TWPtr &p)
{
    return TWArg{p.typeName, &p.value};
}

inline TWArg slot(const TWPtr &p)
{
    return TWArg{p.typeName, const_cast<void **>(&p.value)};
}

} // namespace twcall_detail

// twCall(obj, "readFile", bytes, name) calls readFile(QString) into the
// preset `bytes`. Arguments may be temporaries: they live through the call.
template <typename R, typename... A>
bool twCall(QObject *target, const char *method, R &result, A &&...args)
{
    return TWCall::invoke(target, method, twcall_detail::slot(result), {twcall_detail::slot(args)...});
}

// The same for methods whose result the caller does not want.
template <typename... A>
bool twCallVoid(QObject *target, const char *method, A &&...args)
{
    return TWCall::invoke(target, method, TWArg{nullptr, nullptr}, {twcall_detail::slot(args)...});
}

#endif
