#include "directtoken.h"

#include <QFile>

#include <dlfcn.h>

namespace {

// The default user id of SM2 signatures, as eccSimpleSign passes it.
const char kUserId[] = "1234567812345678";

template <typename F>
bool resolve(void *lib, const char *name, F *out)
{
    *out = reinterpret_cast<F>(dlsym(lib, name));
    return *out != nullptr;
}

} // namespace

bool DirectToken::fail(const char *what)
{
    m_error = what;
    return false;
}

bool DirectToken::open(const QString &library, const char *device, const char *pin, const char *container)
{
    void *lib = dlopen(QFile::encodeName(library).constData(), RTLD_NOW);
    if (!lib)
        return fail(dlerror());
    decltype(&SKF_ConnectDev) connect = nullptr;
    decltype(&SKF_OpenApplication) openApp = nullptr;
    decltype(&SKF_VerifyPIN) verifyPin = nullptr;
    decltype(&SKF_OpenContainer) openContainer = nullptr;
    if (!resolve(lib, "SKF_ConnectDev", &connect) || !resolve(lib, "SKF_OpenApplication", &openApp)
        || !resolve(lib, "SKF_VerifyPIN", &verifyPin) || !resolve(lib, "SKF_OpenContainer", &openContainer)
        || !resolve(lib, "SKF_ExportPublicKey", &m_exportPublicKey) || !resolve(lib, "SKF_DigestInit", &m_digestInit)
        || !resolve(lib, "SKF_Digest", &m_digest) || !resolve(lib, "SKF_ECCSignData", &m_eccSignData))
        return fail("a token function is missing");
    // The library takes its texts by non-const pointer.
    QByteArray name(device), app("TW_APP"), userPin(pin), containerName(container);
    HAPPLICATION hApp = nullptr;
    ULONG retry = 0;
    if (connect(name.data(), &m_dev) != SAR_OK || openApp(m_dev, app.data(), &hApp) != SAR_OK
        || verifyPin(hApp, USER_TYPE, userPin.data(), &retry) != SAR_OK
        || openContainer(hApp, containerName.data(), &m_container) != SAR_OK)
        return fail("the token does not open directly");
    return true;
}

bool DirectToken::sign(const QByteArray &message, ECCSIGNATUREBLOB *blob)
{
    unsigned char id[sizeof kUserId];
    std::copy(kUserId, kUserId + sizeof kUserId, id);
    ULONG pubLen = 0;
    ULONG rv = m_exportPublicKey(m_container, TRUE, nullptr, &pubLen);
    QByteArray pub(int(pubLen) + 1, '\0');
    rv |= m_exportPublicKey(m_container, TRUE, reinterpret_cast<BYTE *>(pub.data()), &pubLen);
    HANDLE hash = nullptr;
    rv |= m_digestInit(m_dev, SGD_SM3, reinterpret_cast<ECCPUBLICKEYBLOB *>(pub.data()), id, 16, &hash);
    BYTE *data = reinterpret_cast<BYTE *>(const_cast<char *>(message.constData()));
    ULONG hashLen = 0;
    rv |= m_digest(hash, data, ULONG(message.size()), nullptr, &hashLen);
    BYTE value[33] = {0};
    hashLen = 32;
    rv |= m_digest(hash, data, ULONG(message.size()), value, &hashLen);
    rv |= m_eccSignData(m_container, value, 32, blob);
    return rv == SAR_OK;
}
