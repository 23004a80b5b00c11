#include "twfcall.h"

#include "handleregistry.h"

DEVHANDLE TwfCall::connectionOf(DEVHANDLE dev) const
{
    const TokenObject *app = HandleRegistry::instance().find(dev, TokenObject::AppKind);
    return app ? static_cast<TokenObject *>(app->connection()) : nullptr;
}

ULONG TwfCall::deviceData(DEVHANDLE dev, const DeviceData **out)
{
    AppObject *app = nullptr;
    const ULONG rv = this->app(dev, &app);
    return rv != SAR_OK ? rv : data(app->connection(), out);
}

ULONG TwfCall::openDevice(DEVHANDLE connection, DEVHANDLE *out)
{
    HandleRegistry &registry = HandleRegistry::instance();
    auto *conn = static_cast<Connection *>(registry.find(connection, TokenObject::ConnectionKind));
    const DeviceData *d = nullptr;
    ULONG rv = conn ? data(conn, &d) : ULONG(SAR_INVALIDHANDLEERR);
    if (rv == SAR_OK && d->apps.isEmpty())
        rv = SAR_APPLICATION_NOT_EXISTS;
    if (rv != SAR_OK) {
        if (conn)
            registry.close(conn);
        return rv;
    }
    conn->followSerial(d->serial);
    *out = registry.add(std::make_unique<AppObject>(conn, d->apps.first().name));
    return SAR_OK;
}

ULONG TwfCall::owns(DEVHANDLE dev, HANDLE handle) const
{
    const TokenObject *app = HandleRegistry::instance().find(dev, TokenObject::AppKind);
    const TokenObject *object = HandleRegistry::instance().find(handle);
    return app && object && object->connection() == app->connection() ? ULONG(SAR_OK) : ULONG(SAR_INVALIDHANDLEERR);
}

ULONG TwfCall::through(const char *function, DEVHANDLE dev, HANDLE handle, const std::function<ULONG()> &skf)
{
    TwfCall call(function);
    const ULONG rv = call.owns(dev, handle);
    return rv != SAR_OK ? rv : skf();
}

ULONG TwfCall::fixedSize(const char *function, DEVHANDLE dev, HANDLE handle, ULONG need, void *out, ULONG *len,
                         const std::function<ULONG()> &skf)
{
    TwfCall call(function);
    ULONG rv = call.owns(dev, handle);
    if (rv != SAR_OK)
        return rv;
    if (!out || !len || *len < need) {
        AppObject *app = nullptr;
        if ((rv = call.app(dev, &app)) == SAR_OK)
            call.sizeFirst(need, static_cast<BYTE *>(out), len, &rv);
        return rv;
    }
    // A size lie planned for the SKF function reaches this report too.
    if ((rv = skf()) == SAR_OK)
        call.reportSize(len, need);
    return rv;
}
