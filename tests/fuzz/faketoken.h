// A token library whose every answer comes from the fuzzer's bytes: result
// codes, names, file contents and the sizes it reports, which may lie. Like
// any library it writes no more than the buffer it is given.
#ifndef TWFUZZ_FAKETOKEN_H
#define TWFUZZ_FAKETOKEN_H

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstring>

#include "package/keydriverpackage.h"
#include "skf/keydriverskf.h"
#include "variants/keyobjectlmskf.h"

namespace fake {

inline FuzzedDataProvider *in = nullptr;
inline int handle = 0;

inline ULONG result()
{
    static const ULONG codes[] = {SAR_OK, SAR_OK, SAR_OK, SAR_FAIL, SAR_DEVICE_REMOVED, SAR_BUFFER_TOO_SMALL};
    return in->PickValueInArray(codes);
}

// Bytes into a buffer of *size (none without a buffer), then a size that
// is mostly the truth.
inline ULONG bytes(void *out, ULONG *size)
{
    const std::string b = in->ConsumeRandomLengthString(300);
    if (out)
        std::memcpy(out, b.data(), std::min<size_t>(b.size(), *size));
    *size = in->ConsumeBool() ? ULONG(b.size()) : in->ConsumeIntegral<ULONG>() % 1024;
    return result();
}

inline ULONG opened(void **out)
{
    *out = &handle;
    return result();
}

inline ULONG enumDev(BOOL, LPSTR out, ULONG *size) { return bytes(out, size); }
inline ULONG connectDev(LPSTR, DEVHANDLE *out) { return opened(out); }
inline ULONG plain(HANDLE) { return result(); }
inline ULONG devInfo(DEVHANDLE, DEVINFO *info)
{
    ULONG size = sizeof(*info);
    return bytes(info, &size);
}
inline ULONG names(HANDLE, LPSTR out, ULONG *size) { return bytes(out, size); }
inline ULONG openNamed(HANDLE, LPSTR, HANDLE *out) { return opened(out); }
inline ULONG fileInfo(HAPPLICATION, LPSTR, FILEATTRIBUTE *info)
{
    ULONG size = sizeof(*info);
    return bytes(info, &size);
}
inline ULONG readFile(HAPPLICATION, LPSTR, ULONG, ULONG size, BYTE *out, ULONG *length)
{
    *length = size;
    return bytes(out, length);
}
inline ULONG writeFile(HAPPLICATION, LPSTR, ULONG, BYTE *, ULONG) { return result(); }
inline ULONG createFile(HAPPLICATION, LPSTR, ULONG, ULONG, ULONG) { return result(); }
inline ULONG deleteFile(HAPPLICATION, LPSTR) { return result(); }
inline ULONG random(DEVHANDLE, BYTE *, ULONG) { return result(); }

inline void bind(KeyDriverSKF &d)
{
    d.pSKF_EnumDev = enumDev;
    d.pSKF_ConnectDev = connectDev;
    d.pSKF_DisConnectDev = plain;
    d.pSKF_GetDevInfo = devInfo;
    d.pSKF_GenRandom = random;
    d.pSKF_EnumApplication = names;
    d.pSKF_OpenApplication = openNamed;
    d.pSKF_CloseApplication = plain;
    d.pSKF_EnumContainer = names;
    d.pSKF_OpenContainer = openNamed;
    d.pSKF_CloseContainer = plain;
    d.pSKF_EnumFiles = names;
    d.pSKF_GetFileInfo = fileInfo;
    d.pSKF_ReadFile = readFile;
    d.pSKF_WriteFile = writeFile;
    d.pSKF_CreateFile = createFile;
    d.pSKF_DeleteFile = deleteFile;
}

// The fuzzer's bytes as a token, with a package and a driver bound to it.
struct Token
{
    FuzzedDataProvider input;
    KeyDriverPackage package{QString()};
    KeyDriverSKF driver{&package, QString()};

    Token(const uint8_t *data, size_t size) : input(data, size)
    {
        in = &input;
        bind(driver);
    }
};

// A session of class S on the token, its device and application open as
// a connect leaves them.
template <class S>
struct Session : S
{
    explicit Session(Token &token) : S(&token.package, QStringLiteral("fake"), &token.driver)
    {
        this->dev = this->app = &handle;
    }
};

} // namespace fake

#endif
