// Devices: enumeration, connection, device information, device
// authentication, locking, random numbers and device events.
#include "skfexport.h"

#include "deviceevents.h"
#include "handleregistry.h"
#include "skfcall.h"
#include "tokencrypto.h"

#include <chrono>
#include <string.h>
#include <thread>

namespace {

const ULONG kMaxRandom = 1024 * 1024;
const ULONG kAuthKeyLen = 16;

void copyText(CHAR *field, size_t size, const QString &text)
{
    const QByteArray b = text.toUtf8();
    memset(field, 0, size);
    memcpy(field, b.constData(), qMin(size_t(b.size()), size - 1));
}

} // namespace

SKF_EXPORT ULONG SKF_WaitForDevEvent(LPSTR szDevName, ULONG *pulDevNameLen, ULONG *pulEvent)
{
    {
        SkfCall call("SKF_WaitForDevEvent");
        DeviceStore store(SkfCall::storeRoot());
        const ULONG rv = call.anyDevice(store, DeviceCache::instance().listing(store).planned);
        if (rv != SAR_OK)
            return rv;
    }
    // Waiting must not hold up the other calls.
    return DeviceEvents::instance().wait(szDevName, pulDevNameLen, pulEvent);
}

SKF_EXPORT ULONG SKF_CancelWaitForDevEvent(void)
{
    DeviceEvents::instance().cancel();
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_EnumDev(BOOL bPresent, LPSTR szNameList, ULONG *pulSize)
{
    SkfCall call("SKF_EnumDev");
    if (!pulSize)
        return SAR_INVALIDPARAMERR;
    DeviceStore store(SkfCall::storeRoot());
    const DeviceCache::Listing &devices = DeviceCache::instance().listing(store);
    const ULONG rv = call.anyDevice(store, devices.planned);
    if (rv != SAR_OK)
        return rv;
    return call.fillText(bPresent ? devices.presentText : devices.allText, szNameList, pulSize);
}

SKF_EXPORT ULONG SKF_ConnectDev(LPSTR szName, DEVHANDLE *phDev)
{
    SkfCall call("SKF_ConnectDev");
    QString name;
    if (!szName || !phDev)
        return SAR_INVALIDPARAMERR;
    *phDev = nullptr;
    DeviceStore store(SkfCall::storeRoot());
    const DeviceData *data = nullptr;
    QByteArray token;
    const ULONG rv = call.presentDevice(store, szName, &name, &data, &token);
    if (rv != SAR_OK)
        return rv;
    *phDev = HandleRegistry::instance().add(std::make_unique<Connection>(store.root(), name, token));
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_DisConnectDev(DEVHANDLE hDev)
{
    SkfCall call("SKF_DisConnectDev");
    Connection *conn = nullptr;
    const ULONG rv = call.device(hDev, &conn);
    if (rv == SAR_INVALIDHANDLEERR || (rv != SAR_OK && rv != SAR_DEVICE_REMOVED))
        return rv;
    // A pulled device still gives its handles back.
    HandleRegistry::instance().close(conn);
    return rv;
}

SKF_EXPORT ULONG SKF_GetDevState(LPSTR szDevName, ULONG *pulDevState)
{
    SkfCall call("SKF_GetDevState");
    QString name;
    if (!szDevName || !pulDevState)
        return SAR_INVALIDPARAMERR;
    DeviceStore store(SkfCall::storeRoot());
    const DeviceCache::Listing &devices = DeviceCache::instance().listing(store);
    if (!SkfCall::name(szDevName, 64, &name) || !DeviceStore::validDeviceName(name) || !devices.isPresent.contains(name)) {
        *pulDevState = DEV_ABSENT_STATE;
        return SAR_OK;
    }
    const ULONG rv = call.named(store, name);
    if (rv != SAR_OK)
        return rv;
    *pulDevState = devices.isPresent.value(name) ? DEV_PRESENT_STATE : DEV_ABSENT_STATE;
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_SetLabel(DEVHANDLE hDev, LPSTR szLabel)
{
    SkfCall call("SKF_SetLabel");
    Connection *conn = nullptr;
    ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    QString label;
    if ((rv = SkfCall::nameArg(szLabel, 31, SAR_INDATALENERR, &label)) != SAR_OK)
        return rv;
    return call.modify(conn, [&](DeviceData &d, bool &) -> ULONG {
        d.label = label;
        return SAR_OK;
    });
}

SKF_EXPORT ULONG SKF_GetDevInfo(DEVHANDLE hDev, DEVINFO *pDevInfo)
{
    SkfCall call("SKF_GetDevInfo");
    Connection *conn = nullptr;
    ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    if (!pDevInfo)
        return SAR_INVALIDPARAMERR;
    const DeviceData *d = nullptr;
    if ((rv = call.data(conn, &d)) != SAR_OK)
        return rv;
    DEVINFO info;
    memset(&info, 0, sizeof info);
    info.Version.major = 1;
    info.Version.minor = 0;
    copyText(info.Manufacturer, sizeof info.Manufacturer, d->manufacturer);
    copyText(info.Issuer, sizeof info.Issuer, d->issuer);
    copyText(info.Label, sizeof info.Label, d->label);
    copyText(info.SerialNumber, sizeof info.SerialNumber, d->serial);
    info.HWVersion.major = d->hwMajor;
    info.HWVersion.minor = d->hwMinor;
    info.FirmwareVersion.major = d->fwMajor;
    info.FirmwareVersion.minor = d->fwMinor;
    info.AlgSymCap = SGD_SM4_ECB | SGD_SM4_CBC | SGD_SM4_CFB | SGD_SM4_OFB | SGD_SM4_MAC;
    info.AlgAsymCap = SGD_RSA | SGD_SM2_1 | SGD_SM2_3;
    info.AlgHashCap = SGD_SM3 | SGD_SHA1 | SGD_SHA256;
    info.DevAuthAlgId = SGD_SM4_ECB;
    info.TotalSpace = d->totalSpace;
    info.FreeSpace = d->freeSpace();
    info.MaxECCBufferSize = 1024;
    info.MaxBufferSize = 4096;
    memcpy(pDevInfo, &info, sizeof info);
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_LockDev(DEVHANDLE hDev, ULONG ulTimeOut)
{
    SkfCall call("SKF_LockDev");
    Connection *conn = nullptr;
    ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ulTimeOut);
    while (!conn->tryDeviceLock()) {
        if (ulTimeOut != 0xFFFFFFFF && std::chrono::steady_clock::now() >= deadline)
            return SAR_TIMEOUTERR;
        // Let the holder, maybe in this process, unlock meanwhile.
        call.unlockWhile([] { std::this_thread::sleep_for(std::chrono::milliseconds(10)); });
        if ((rv = call.device(hDev, &conn)) != SAR_OK)
            return rv;
    }
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_UnlockDev(DEVHANDLE hDev)
{
    SkfCall call("SKF_UnlockDev");
    Connection *conn = nullptr;
    const ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    if (!conn->holdsDeviceLock())
        return SAR_FAIL;
    conn->unlockDevice();
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_Transmit(DEVHANDLE hDev, BYTE *, ULONG, BYTE *, ULONG *)
{
    SkfCall call("SKF_Transmit");
    Connection *conn = nullptr;
    const ULONG rv = call.device(hDev, &conn);
    return rv != SAR_OK ? rv : SAR_NOTSUPPORTYETERR;
}

SKF_EXPORT ULONG SKF_ChangeDevAuthKey(DEVHANDLE hDev, BYTE *pbKeyValue, ULONG ulKeyLen)
{
    SkfCall call("SKF_ChangeDevAuthKey");
    Connection *conn = nullptr;
    const ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    if (!pbKeyValue)
        return SAR_INVALIDPARAMERR;
    if (ulKeyLen != kAuthKeyLen)
        return SAR_INDATALENERR;
    if (!conn->devAuthenticated())
        return TW_ERR_SECURITY_STATE;
    const QByteArray key(reinterpret_cast<const char *>(pbKeyValue), int(ulKeyLen));
    return call.modify(conn, [&](DeviceData &d, bool &) -> ULONG {
        d.devAuthKey = key;
        return SAR_OK;
    });
}

SKF_EXPORT ULONG SKF_DevAuth(DEVHANDLE hDev, BYTE *pbAuthData, ULONG ulLen)
{
    SkfCall call("SKF_DevAuth");
    Connection *conn = nullptr;
    ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    if (!pbAuthData)
        return SAR_INVALIDPARAMERR;
    const DeviceData *d = nullptr;
    if ((rv = call.data(conn, &d)) != SAR_OK)
        return rv;
    // The answer is the last random number asked of this connection,
    // zero-padded to a block and enciphered under the device key.
    const QByteArray challenge = conn->takeChallenge();
    if (challenge.isEmpty())
        return SAR_FAIL;
    QByteArray expected;
    const QByteArray block = (challenge + QByteArray(TokenCrypto::Sm4BlockSize, '\0')).left(TokenCrypto::Sm4BlockSize);
    if (!TokenCrypto::sm4(true, TokenCrypto::Sm4Ecb, d->devAuthKey, QByteArray(), false, block, &expected))
        return SAR_FAIL;
    const bool ok = ulLen == ULONG(expected.size()) && memcmp(pbAuthData, expected.constData(), ulLen) == 0;
    conn->setDevAuthenticated(ok);
    return ok ? SAR_OK : SAR_FAIL;
}

SKF_EXPORT ULONG SKF_GenRandom(DEVHANDLE hDev, BYTE *pbRandom, ULONG ulRandomLen)
{
    SkfCall call("SKF_GenRandom");
    Connection *conn = nullptr;
    const ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    if (ulRandomLen == 0)
        return SAR_OK;
    if (!pbRandom)
        return SAR_INVALIDPARAMERR;
    if (ulRandomLen > kMaxRandom)
        return SAR_INDATALENERR;
    const QByteArray r = TokenCrypto::random(int(ulRandomLen));
    if (r.isEmpty())
        return SAR_GENRANDERR;
    memcpy(pbRandom, r.constData(), ulRandomLen);
    conn->setChallenge(r.left(TokenCrypto::Sm4BlockSize));
    return SAR_OK;
}
