// Declarations of the native token interface: 58 TWF_ functions and three
// TWEPS_ seal functions, all returning a 32-bit result code (SAR_* of
// skfapi.h, 0 for success). The device handle from TWF_ConnectDev comes
// first where a device is involved; a pointer to a length holds the
// buffer's capacity on the way in and the used size on the way out, and a
// null output buffer asks for the size. Shared by the library (which binds
// these names at run time) and the software token (which implements them).
#ifndef TWKEY_TWFAPI_H
#define TWKEY_TWFAPI_H

#include "../skf/skfapi.h"

#ifdef __cplusplus
extern "C" {
#endif

// Receives the library's log texts; the number is a level the caller may ignore.
typedef int (*TWF_LOGCALLBACK)(unsigned int uiLevel, char *szText);

ULONG TWF_Init_SDK(LPSTR szModelId, LPSTR szPath, TWF_LOGCALLBACK pfnLog, ULONG ulReserved);
ULONG TWF_Uinit_SDK(void);
ULONG TWF_EnumDev(LPSTR szNameList, ULONG *pulSize);
ULONG TWF_ConnectDev(LPSTR szName, DEVHANDLE *phDev);
ULONG TWF_IsConnectDev(DEVHANDLE hDev);
ULONG TWF_DisConnectDev(DEVHANDLE hDev);
ULONG TWF_GetSerialNumberByDevName(LPSTR szDevName, LPSTR szSerial, ULONG *pulLen);
ULONG TWF_GetLabelName(DEVHANDLE hDev, LPSTR szLabel, ULONG *pulLen);
ULONG TWF_GetSerialNumber(DEVHANDLE hDev, LPSTR szSerial, ULONG *pulLen);
ULONG TWF_GetTotalSpace(DEVHANDLE hDev, ULONG *pulSpace);
ULONG TWF_GetFreeSpace(DEVHANDLE hDev, ULONG *pulSpace);
ULONG TWF_FormatKey(DEVHANDLE hDev, LPSTR szUnblockPin, LPSTR szNewAdminPin);
ULONG TWF_ChangePIN(DEVHANDLE hDev, ULONG ulPINType, LPSTR szOldPin, LPSTR szNewPin, ULONG *pulRetryCount);
ULONG TWF_VerifyPIN(DEVHANDLE hDev, ULONG ulPINType, LPSTR szPIN, ULONG *pulRetryCount);
ULONG TWF_GetPINInfo(DEVHANDLE hDev, ULONG ulPINType, ULONG *pulMaxRetryCount, ULONG *pulRemainRetryCount, BOOL *pbDefaultPin);
ULONG TWF_UnblockPIN(DEVHANDLE hDev, LPSTR szAdminPIN, LPSTR szNewUserPIN, ULONG *pulRetryCount);
ULONG TWF_CreateFile(DEVHANDLE hDev, LPSTR szFileName, ULONG ulFileSize, ULONG ulReadRights, ULONG ulWriteRights);
ULONG TWF_DeleteFile(DEVHANDLE hDev, LPSTR szFileName);
ULONG TWF_EnumFiles(DEVHANDLE hDev, LPSTR szFileList, ULONG *pulSize);
ULONG TWF_ReadFile(DEVHANDLE hDev, LPSTR szFileName, ULONG ulOffset, ULONG ulSize, BYTE *pbOutData, ULONG *pulOutLen);
ULONG TWF_WriteFile(DEVHANDLE hDev, LPSTR szFileName, ULONG ulOffset, BYTE *pbData, ULONG ulSize);
ULONG TWF_IsFileExist(DEVHANDLE hDev, LPSTR szFileName);
ULONG TWF_CreateContainer(DEVHANDLE hDev, LPSTR szContainerName, HCONTAINER *phContainer);
ULONG TWF_DeleteContainer(DEVHANDLE hDev, LPSTR szContainerName);
ULONG TWF_EnumContainer(DEVHANDLE hDev, LPSTR szContainerList, ULONG *pulSize);
ULONG TWF_OpenContainer(DEVHANDLE hDev, LPSTR szContainerName, HCONTAINER *phContainer);
ULONG TWF_CloseContainer(DEVHANDLE hDev, HCONTAINER hContainer);
ULONG TWF_GetContainerType(DEVHANDLE hDev, HCONTAINER hContainer, ULONG *pulContainerType);
ULONG TWF_ImportCertificate(DEVHANDLE hDev, HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert, ULONG ulCertLen);
ULONG TWF_ExportCertificate(DEVHANDLE hDev, HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert, ULONG *pulCertLen);
ULONG TWF_GenRSAKeyPair(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulBitsLen, RSAPUBLICKEYBLOB *pBlob, ULONG *pulBlobLen);
ULONG TWF_ImportRSAKeyPair(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulSymAlgId, BYTE *pbWrappedKey, ULONG ulWrappedKeyLen, BYTE *pbEncryptedData, ULONG ulEncryptedDataLen);
ULONG TWF_RSASignData(DEVHANDLE hDev, HCONTAINER hContainer, BYTE *pbData, ULONG ulDataLen, BYTE *pbSignature, ULONG *pulSignLen);
ULONG TWF_RSAVerify(DEVHANDLE hDev, RSAPUBLICKEYBLOB *pPubKey, ULONG ulPubKeyLen, BYTE *pbData, ULONG ulDataLen, BYTE *pbSignature, ULONG ulSignLen);
ULONG TWF_GenECCKeyPair(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB *pBlob, ULONG *pulBlobLen);
ULONG TWF_ImportECCKeyPair(DEVHANDLE hDev, HCONTAINER hContainer, ENVELOPEDKEYBLOB *pEnvelopedKeyBlob, ULONG ulBlobLen);
ULONG TWF_ECCSignData(DEVHANDLE hDev, HCONTAINER hContainer, BYTE *pbData, ULONG ulDataLen, ECCSIGNATUREBLOB *pSignature, ULONG *pulSignLen);
ULONG TWF_ECCVerify(DEVHANDLE hDev, ECCPUBLICKEYBLOB *pPubKey, ULONG ulPubKeyLen, BYTE *pbData, ULONG ulDataLen, ECCSIGNATUREBLOB *pSignature, ULONG ulSignLen);
ULONG TWF_ExportPublicKey(DEVHANDLE hDev, HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbBlob, ULONG *pulBlobLen);
ULONG TWF_ImportSessionKey(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulAlgId, BYTE *pbWrapedData, ULONG ulWrapedLen, HANDLE *phKey);
ULONG TWF_EncryptInit(DEVHANDLE hDev, HANDLE hKey, BLOCKCIPHERPARAM *pParam, ULONG ulParamLen);
ULONG TWF_Encrypt(DEVHANDLE hDev, HANDLE hKey, BYTE *pbData, ULONG ulDataLen, BYTE *pbEncryptedData, ULONG *pulEncryptedLen);
ULONG TWF_EncryptUpdate(DEVHANDLE hDev, HANDLE hKey, BYTE *pbData, ULONG ulDataLen, BYTE *pbEncryptedData, ULONG *pulEncryptedLen);
ULONG TWF_EncryptFinal(DEVHANDLE hDev, HANDLE hKey, BYTE *pbEncryptedData, ULONG *pulEncryptedLen);
ULONG TWF_DecryptInit(DEVHANDLE hDev, HANDLE hKey, BLOCKCIPHERPARAM *pParam, ULONG ulParamLen);
ULONG TWF_Decrypt(DEVHANDLE hDev, HANDLE hKey, BYTE *pbEncryptedData, ULONG ulEncryptedLen, BYTE *pbData, ULONG *pulDataLen);
ULONG TWF_DecryptUpdate(DEVHANDLE hDev, HANDLE hKey, BYTE *pbEncryptedData, ULONG ulEncryptedLen, BYTE *pbData, ULONG *pulDataLen);
ULONG TWF_DecryptFinal(DEVHANDLE hDev, HANDLE hKey, BYTE *pbData, ULONG *pulDataLen);
ULONG TWF_DigestInit(DEVHANDLE hDev, ULONG ulAlgID, ECCPUBLICKEYBLOB *pPubKey, ULONG ulPubKeyLen, BYTE *pbID, ULONG ulIDLen, HANDLE *phHash);
ULONG TWF_Digest(DEVHANDLE hDev, HANDLE hHash, BYTE *pbData, ULONG ulDataLen, BYTE *pbHashData, ULONG *pulHashLen);
ULONG TWF_DigestUpdate(DEVHANDLE hDev, HANDLE hHash, BYTE *pbData, ULONG ulDataLen);
ULONG TWF_DigestFinal(DEVHANDLE hDev, HANDLE hHash, BYTE *pbHashData, ULONG *pulHashLen);
ULONG TWF_MacInit(DEVHANDLE hDev, HANDLE hKey, BLOCKCIPHERPARAM *pParam, ULONG ulParamLen, HANDLE *phMac);
ULONG TWF_Mac(DEVHANDLE hDev, HANDLE hMac, BYTE *pbData, ULONG ulDataLen, BYTE *pbMacData, ULONG *pulMacLen);
ULONG TWF_MacUpdate(DEVHANDLE hDev, HANDLE hMac, BYTE *pbData, ULONG ulDataLen);
ULONG TWF_MacFinal(DEVHANDLE hDev, HANDLE hMac, BYTE *pbMacData, ULONG *pulMacLen);
ULONG TWF_CloseHandle(DEVHANDLE hDev, HANDLE hHandle);
ULONG TWF_ECCExportSessionKey(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB *pPubKey, ULONG ulPubKeyLen, ECCCIPHERBLOB *pData, ULONG *pulDataLen, HANDLE *phSessionKey);
ULONG TWEPS_ImportSymmKey(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulKeyIndex, BYTE *pbEncData, ULONG ulEncDataLen, ULONG ulFlags);
ULONG TWEPS_WriteESealData(DEVHANDLE hDev, BYTE *pbData, ULONG ulDataSize, ULONG ulFlags);
ULONG TWEPS_ReadESealData(DEVHANDLE hDev, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbData, ULONG *pulDataLen, ULONG ulFlags);

#ifdef __cplusplus
}
#endif

// The 61 names the native driver binds, in binding order: X(name, required).
// Only TWF_ECCExportSessionKey may be missing from a library.
#define TWF_FUNCTION_ROWS(X)             \
    X(TWF_Init_SDK, 1)                   \
    X(TWF_Uinit_SDK, 1)                  \
    X(TWF_EnumDev, 1)                    \
    X(TWF_ConnectDev, 1)                 \
    X(TWF_IsConnectDev, 1)               \
    X(TWF_DisConnectDev, 1)              \
    X(TWF_GetSerialNumberByDevName, 1)   \
    X(TWF_GetLabelName, 1)               \
    X(TWF_GetSerialNumber, 1)            \
    X(TWF_GetTotalSpace, 1)              \
    X(TWF_GetFreeSpace, 1)               \
    X(TWF_FormatKey, 1)                  \
    X(TWF_ChangePIN, 1)                  \
    X(TWF_VerifyPIN, 1)                  \
    X(TWF_GetPINInfo, 1)                 \
    X(TWF_UnblockPIN, 1)                 \
    X(TWF_CreateFile, 1)                 \
    X(TWF_DeleteFile, 1)                 \
    X(TWF_EnumFiles, 1)                  \
    X(TWF_ReadFile, 1)                   \
    X(TWF_WriteFile, 1)                  \
    X(TWF_IsFileExist, 1)                \
    X(TWF_CreateContainer, 1)            \
    X(TWF_DeleteContainer, 1)            \
    X(TWF_EnumContainer, 1)              \
    X(TWF_OpenContainer, 1)              \
    X(TWF_CloseContainer, 1)             \
    X(TWF_GetContainerType, 1)           \
    X(TWF_ImportCertificate, 1)          \
    X(TWF_ExportCertificate, 1)          \
    X(TWF_GenRSAKeyPair, 1)              \
    X(TWF_ImportRSAKeyPair, 1)           \
    X(TWF_RSASignData, 1)                \
    X(TWF_RSAVerify, 1)                  \
    X(TWF_GenECCKeyPair, 1)              \
    X(TWF_ImportECCKeyPair, 1)           \
    X(TWF_ECCSignData, 1)                \
    X(TWF_ECCVerify, 1)                  \
    X(TWF_ExportPublicKey, 1)            \
    X(TWF_ImportSessionKey, 1)           \
    X(TWF_EncryptInit, 1)                \
    X(TWF_Encrypt, 1)                    \
    X(TWF_EncryptUpdate, 1)              \
    X(TWF_EncryptFinal, 1)               \
    X(TWF_DecryptInit, 1)                \
    X(TWF_Decrypt, 1)                    \
    X(TWF_DecryptUpdate, 1)              \
    X(TWF_DecryptFinal, 1)               \
    X(TWF_DigestInit, 1)                 \
    X(TWF_Digest, 1)                     \
    X(TWF_DigestUpdate, 1)               \
    X(TWF_DigestFinal, 1)                \
    X(TWF_MacInit, 1)                    \
    X(TWF_Mac, 1)                        \
    X(TWF_MacUpdate, 1)                  \
    X(TWF_MacFinal, 1)                   \
    X(TWF_CloseHandle, 1)                \
    X(TWF_ECCExportSessionKey, 0)        \
    X(TWEPS_ImportSymmKey, 1)            \
    X(TWEPS_WriteESealData, 1)           \
    X(TWEPS_ReadESealData, 1)

#endif // TWKEY_TWFAPI_H
