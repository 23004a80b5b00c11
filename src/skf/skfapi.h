// Declarations of the smart-token interface (GM/T 0016) and the makers'
// electronic-seal extension, as token libraries export them on Linux.
// Shared by the library (which binds these names at run time), the
// software token (which implements them) and the test token library.
#ifndef TWKEY_SKFAPI_H
#define TWKEY_SKFAPI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int8_t INT8;
typedef int16_t INT16;
typedef int32_t INT32;
typedef uint8_t BYTE;
typedef char CHAR;
typedef int16_t SHORT;
typedef uint16_t USHORT;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef uint32_t UINT;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef uint32_t FLAGS;
typedef char *LPSTR;
typedef void *HANDLE;
typedef int32_t BOOL;
typedef HANDLE DEVHANDLE;
typedef HANDLE HAPPLICATION;
typedef HANDLE HCONTAINER;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#define MAX_RSA_MODULUS_LEN 256
#define MAX_RSA_EXPONENT_LEN 4
#define ECC_MAX_XCOORDINATE_BITS_LEN 512
#define ECC_MAX_YCOORDINATE_BITS_LEN 512
#define ECC_MAX_MODULUS_BITS_LEN 512
#define MAX_IV_LEN 32

#define SECURE_NEVER_ACCOUNT 0x00000000
#define SECURE_ADM_ACCOUNT 0x00000001
#define SECURE_USER_ACCOUNT 0x00000010
#define SECURE_ANYONE_ACCOUNT 0x000000FF

#define ADMIN_TYPE 0
#define USER_TYPE 1

#define DEV_ABSENT_STATE 0x00000000
#define DEV_PRESENT_STATE 0x00000001
#define DEV_UNKNOW_STATE 0x00000002

#pragma pack(push, 1)

typedef struct Struct_Version {
    BYTE major;
    BYTE minor;
} VERSION;

typedef struct Struct_DEVINFO {
    VERSION Version;
    CHAR Manufacturer[64];
    CHAR Issuer[64];
    CHAR Label[32];
    CHAR SerialNumber[32];
    VERSION HWVersion;
    VERSION FirmwareVersion;
    ULONG AlgSymCap;
    ULONG AlgAsymCap;
    ULONG AlgHashCap;
    ULONG DevAuthAlgId;
    ULONG TotalSpace;
    ULONG FreeSpace;
    ULONG MaxECCBufferSize;
    ULONG MaxBufferSize;
    BYTE Reserved[64];
} DEVINFO, *PDEVINFO;

typedef struct Struct_RSAPUBLICKEYBLOB {
    ULONG AlgID;
    ULONG BitLen;
    BYTE Modulus[MAX_RSA_MODULUS_LEN];
    BYTE PublicExponent[MAX_RSA_EXPONENT_LEN];
} RSAPUBLICKEYBLOB, *PRSAPUBLICKEYBLOB;

typedef struct Struct_RSAPRIVATEKEYBLOB {
    ULONG AlgID;
    ULONG BitLen;
    BYTE Modulus[MAX_RSA_MODULUS_LEN];
    BYTE PublicExponent[MAX_RSA_EXPONENT_LEN];
    BYTE PrivateExponent[MAX_RSA_MODULUS_LEN];
    BYTE Prime1[MAX_RSA_MODULUS_LEN / 2];
    BYTE Prime2[MAX_RSA_MODULUS_LEN / 2];
    BYTE Prime1Exponent[MAX_RSA_MODULUS_LEN / 2];
    BYTE Prime2Exponent[MAX_RSA_MODULUS_LEN / 2];
    BYTE Coefficient[MAX_RSA_MODULUS_LEN / 2];
} RSAPRIVATEKEYBLOB, *PRSAPRIVATEKEYBLOB;

typedef struct Struct_ECCPUBLICKEYBLOB {
    ULONG BitLen;
    BYTE XCoordinate[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
    BYTE YCoordinate[ECC_MAX_YCOORDINATE_BITS_LEN / 8];
} ECCPUBLICKEYBLOB, *PECCPUBLICKEYBLOB;

typedef struct Struct_ECCPRIVATEKEYBLOB {
    ULONG BitLen;
    BYTE PrivateKey[ECC_MAX_MODULUS_BITS_LEN / 8];
} ECCPRIVATEKEYBLOB, *PECCPRIVATEKEYBLOB;

// Cipher is a variable tail: the real size is CipherLen bytes.
typedef struct Struct_ECCCIPHERBLOB {
    BYTE XCoordinate[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
    BYTE YCoordinate[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
    BYTE HASH[32];
    ULONG CipherLen;
    BYTE Cipher[1];
} ECCCIPHERBLOB, *PECCCIPHERBLOB;

typedef struct Struct_ECCSIGNATUREBLOB {
    BYTE r[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
    BYTE s[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
} ECCSIGNATUREBLOB, *PECCSIGNATUREBLOB;

typedef struct Struct_BLOCKCIPHERPARAM {
    BYTE IV[MAX_IV_LEN];
    ULONG IVLen;
    ULONG PaddingType;
    ULONG FeedBitLen;
} BLOCKCIPHERPARAM, *PBLOCKCIPHERPARAM;

typedef struct SKF_ENVELOPEDKEYBLOB {
    ULONG Version;
    ULONG ulSymmAlgID;
    ULONG ulBits;
    BYTE cbEncryptedPriKey[64];
    ECCPUBLICKEYBLOB PubKey;
    ECCCIPHERBLOB ECCCipherBlob;
} ENVELOPEDKEYBLOB, *PENVELOPEDKEYBLOB;

typedef struct Struct_FILEATTRIBUTE {
    CHAR FileName[32];
    ULONG FileSize;
    ULONG ReadRights;
    ULONG WriteRights;
} FILEATTRIBUTE, *PFILEATTRIBUTE;

#pragma pack(pop)

// Sizes the library relies on when it moves these structures as raw bytes.
#define SKF_RSAPUBLICKEYBLOB_SIZE 268
#define SKF_ECCPUBLICKEYBLOB_SIZE 132
#define SKF_ECCSIGNATUREBLOB_SIZE 128
#define SKF_ECCCIPHERBLOB_BUFFER_SIZE 197
#define SKF_BLOCKCIPHERPARAM_SIZE 44

// Algorithm identifiers (GM/T 0006).
#define SGD_SM1_ECB 0x00000101
#define SGD_SM1_CBC 0x00000102
#define SGD_SM1_CFB 0x00000104
#define SGD_SM1_OFB 0x00000108
#define SGD_SM1_MAC 0x00000110
#define SGD_SSF33_ECB 0x00000201
#define SGD_SSF33_CBC 0x00000202
#define SGD_SM4_ECB 0x00000401
#define SGD_SM4_CBC 0x00000402
#define SGD_SM4_CFB 0x00000404
#define SGD_SM4_OFB 0x00000408
#define SGD_SM4_MAC 0x00000410
#define SGD_RSA 0x00010000
#define SGD_SM2_1 0x00020100
#define SGD_SM2_2 0x00020200
#define SGD_SM2_3 0x00020400
#define SGD_SM3 0x00000001
#define SGD_SHA1 0x00000002
#define SGD_SHA256 0x00000004

// Container types.
#define CONTAINER_TYPE_EMPTY 0
#define CONTAINER_TYPE_RSA 1
#define CONTAINER_TYPE_ECC 2

// Device events of SKF_WaitForDevEvent.
#define SKF_DEV_EVENT_INSERT 1
#define SKF_DEV_EVENT_REMOVE 2

// Result codes.
#define SAR_OK 0x00000000
#define SAR_FAIL 0x0A000001
#define SAR_UNKNOWNERR 0x0A000002
#define SAR_NOTSUPPORTYETERR 0x0A000003
#define SAR_FILEERR 0x0A000004
#define SAR_INVALIDHANDLEERR 0x0A000005
#define SAR_INVALIDPARAMERR 0x0A000006
#define SAR_READFILEERR 0x0A000007
#define SAR_WRITEFILEERR 0x0A000008
#define SAR_NAMELENERR 0x0A000009
#define SAR_KEYUSAGEERR 0x0A00000A
#define SAR_MODULUSLENERR 0x0A00000B
#define SAR_NOTINITIALIZEERR 0x0A00000C
#define SAR_OBJERR 0x0A00000D
#define SAR_MEMORYERR 0x0A00000E
#define SAR_TIMEOUTERR 0x0A00000F
#define SAR_INDATALENERR 0x0A000010
#define SAR_INDATAERR 0x0A000011
#define SAR_GENRANDERR 0x0A000012
#define SAR_HASHOBJERR 0x0A000013
#define SAR_HASHERR 0x0A000014
#define SAR_GENRSAKEYERR 0x0A000015
#define SAR_RSAMODULUSLENERR 0x0A000016
#define SAR_CSPIMPRTPUBKEYERR 0x0A000017
#define SAR_RSAENCERR 0x0A000018
#define SAR_RSADECERR 0x0A000019
#define SAR_HASHNOTEQUALERR 0x0A00001A
#define SAR_KEYNOTFOUNTERR 0x0A00001B
#define SAR_CERTNOTFOUNTERR 0x0A00001C
#define SAR_NOTEXPORTERR 0x0A00001D
#define SAR_DECRYPTPADERR 0x0A00001E
#define SAR_MACLENERR 0x0A00001F
#define SAR_BUFFER_TOO_SMALL 0x0A000020
#define SAR_KEYINFOTYPEERR 0x0A000021
#define SAR_NOT_EVENTERR 0x0A000022
#define SAR_DEVICE_REMOVED 0x0A000023
#define SAR_PIN_INCORRECT 0x0A000024
#define SAR_PIN_LOCKED 0x0A000025
#define SAR_PIN_INVALID 0x0A000026
#define SAR_PIN_LEN_RANGE 0x0A000027
#define SAR_USER_ALREADY_LOGGED_IN 0x0A000028
#define SAR_USER_PIN_NOT_INITIALIZED 0x0A000029
#define SAR_USER_TYPE_INVALID 0x0A00002A
#define SAR_APPLICATION_NAME_INVALID 0x0A00002B
#define SAR_APPLICATION_EXISTS 0x0A00002C
#define SAR_USER_NOT_LOGGED_IN 0x0A00002D
#define SAR_APPLICATION_NOT_EXISTS 0x0A00002E
#define SAR_FILE_ALREADY_EXIST 0x0A00002F
#define SAR_NO_ROOM 0x0A000030
#define SAR_FILE_NOT_EXIST 0x0A000031
#define SAR_REACH_MAX_CONTAINER_COUNT 0x0A000032

// The system's own codes beyond the standard's range.
#define TW_ERR_SECURITY_STATE 0x0B000033
#define TW_ERR_OFFSET_BEYOND_FILE 0x0B000034
#define TW_ERR_CONTAINER_NOT_EXIST 0x0B000035
#define TW_ERR_CONTAINER_EXISTS 0x0B000036
#define TW_ERR_DEVAUTH_LOCKED 0x0B000037
#define TW_ERR_ECC_ENCRYPT 0x0B000038
#define TW_ERR_OLD_PIN_LEN 0x0C000039
#define TW_ERR_NEW_PIN_LEN 0x0C00003A

// Padding types of BLOCKCIPHERPARAM.
#define SKF_NO_PADDING 0
#define SKF_PKCS5_PADDING 1

ULONG SKF_WaitForDevEvent(LPSTR szDevName, ULONG *pulDevNameLen, ULONG *pulEvent);
ULONG SKF_CancelWaitForDevEvent(void);
ULONG SKF_EnumDev(BOOL bPresent, LPSTR szNameList, ULONG *pulSize);
ULONG SKF_ConnectDev(LPSTR szName, DEVHANDLE *phDev);
ULONG SKF_DisConnectDev(DEVHANDLE hDev);
ULONG SKF_GetDevState(LPSTR szDevName, ULONG *pulDevState);
ULONG SKF_SetLabel(DEVHANDLE hDev, LPSTR szLabel);
ULONG SKF_GetDevInfo(DEVHANDLE hDev, DEVINFO *pDevInfo);
ULONG SKF_LockDev(DEVHANDLE hDev, ULONG ulTimeOut);
ULONG SKF_UnlockDev(DEVHANDLE hDev);
ULONG SKF_Transmit(DEVHANDLE hDev, BYTE *pbCommand, ULONG ulCommandLen, BYTE *pbData, ULONG *pulDataLen);
ULONG SKF_ChangeDevAuthKey(DEVHANDLE hDev, BYTE *pbKeyValue, ULONG ulKeyLen);
ULONG SKF_DevAuth(DEVHANDLE hDev, BYTE *pbAuthData, ULONG ulLen);
ULONG SKF_ChangePIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szOldPin, LPSTR szNewPin, ULONG *pulRetryCount);
ULONG SKF_GetPINInfo(HAPPLICATION hApplication, ULONG ulPINType, ULONG *pulMaxRetryCount, ULONG *pulRemainRetryCount, BOOL *pbDefaultPin);
ULONG SKF_VerifyPIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szPIN, ULONG *pulRetryCount);
ULONG SKF_UnblockPIN(HAPPLICATION hApplication, LPSTR szAdminPIN, LPSTR szNewUserPIN, ULONG *pulRetryCount);
ULONG SKF_GenRemoteUnblockRequest(HAPPLICATION hApplication, BYTE *pbRandom, ULONG ulRandomLen);
ULONG SKF_RemoteUnblockPIN(HAPPLICATION hApplication, BYTE *pbCipher, ULONG ulCipherLen);
ULONG SKF_ClearSecureState(HAPPLICATION hApplication);
ULONG SKF_CreateFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulFileSize, ULONG ulReadRights, ULONG ulWriteRights);
ULONG SKF_DeleteFile(HAPPLICATION hApplication, LPSTR szFileName);
ULONG SKF_EnumFiles(HAPPLICATION hApplication, LPSTR szFileList, ULONG *pulSize);
ULONG SKF_GetFileInfo(HAPPLICATION hApplication, LPSTR szFileName, FILEATTRIBUTE *pFileInfo);
ULONG SKF_ReadFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulOffset, ULONG ulSize, BYTE *pbOutData, ULONG *pulOutLen);
ULONG SKF_WriteFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulOffset, BYTE *pbData, ULONG ulSize);
ULONG SKF_CreateApplication(DEVHANDLE hDev, LPSTR szAppName, LPSTR szAdminPin, DWORD dwAdminPinRetryCount, LPSTR szUserPin, DWORD dwUserPinRetryCount, DWORD dwCreateFileRights, HAPPLICATION *phApplication);
ULONG SKF_EnumApplication(DEVHANDLE hDev, LPSTR szAppName, ULONG *pulSize);
ULONG SKF_DeleteApplication(DEVHANDLE hDev, LPSTR szAppName);
ULONG SKF_OpenApplication(DEVHANDLE hDev, LPSTR szAppName, HAPPLICATION *phApplication);
ULONG SKF_CloseApplication(HAPPLICATION hApplication);
ULONG SKF_CreateContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER *phContainer);
ULONG SKF_DeleteContainer(HAPPLICATION hApplication, LPSTR szContainerName);
ULONG SKF_EnumContainer(HAPPLICATION hApplication, LPSTR szContainerName, ULONG *pulSize);
ULONG SKF_OpenContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER *phContainer);
ULONG SKF_CloseContainer(HCONTAINER hContainer);
ULONG SKF_GetContainerType(HCONTAINER hContainer, ULONG *pulContainerType);
ULONG SKF_ImportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert, ULONG ulCertLen);
ULONG SKF_ExportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert, ULONG *pulCertLen);
ULONG SKF_GenRandom(DEVHANDLE hDev, BYTE *pbRandom, ULONG ulRandomLen);
ULONG SKF_GenRSAKeyPair(HCONTAINER hContainer, ULONG ulBitsLen, RSAPUBLICKEYBLOB *pBlob);
ULONG SKF_ImportRSAKeyPair(HCONTAINER hContainer, ULONG ulSymAlgId, BYTE *pbWrappedKey, ULONG ulWrappedKeyLen, BYTE *pbEncryptedData, ULONG ulEncryptedDataLen);
ULONG SKF_RSASignData(HCONTAINER hContainer, BYTE *pbData, ULONG ulDataLen, BYTE *pbSignature, ULONG *pulSignLen);
ULONG SKF_RSAVerify(DEVHANDLE hDev, RSAPUBLICKEYBLOB *pRSAPubKeyBlob, BYTE *pbData, ULONG ulDataLen, BYTE *pbSignature, ULONG ulSignLen);
ULONG SKF_RSAExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, RSAPUBLICKEYBLOB *pPubKey, BYTE *pbData, ULONG *pulDataLen, HANDLE *phSessionKey);
ULONG SKF_GenECCKeyPair(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB *pBlob);
ULONG SKF_ImportECCKeyPair(HCONTAINER hContainer, PENVELOPEDKEYBLOB pEnvelopedKeyBlob);
ULONG SKF_ECCSignData(HCONTAINER hContainer, BYTE *pbData, ULONG ulDataLen, PECCSIGNATUREBLOB pSignature);
ULONG SKF_ECCVerify(DEVHANDLE hDev, ECCPUBLICKEYBLOB *pECCPubKeyBlob, BYTE *pbData, ULONG ulDataLen, PECCSIGNATUREBLOB pSignature);
ULONG SKF_GenerateAgreementDataWithECC(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB *pTempECCPubKeyBlob, BYTE *pbID, ULONG ulIDLen, HANDLE *phAgreementHandle);
ULONG SKF_GenerateAgreementDataAndKeyWithECC(HANDLE hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB *pSponsorECCPubKeyBlob, ECCPUBLICKEYBLOB *pSponsorTempECCPubKeyBlob, ECCPUBLICKEYBLOB *pTempECCPubKeyBlob, BYTE *pbID, ULONG ulIDLen, BYTE *pbSponsorID, ULONG ulSponsorIDLen, HANDLE *phKeyHandle);
ULONG SKF_GenerateKeyWithECC(HANDLE hAgreementHandle, ECCPUBLICKEYBLOB *pECCPubKeyBlob, ECCPUBLICKEYBLOB *pTempECCPubKeyBlob, BYTE *pbID, ULONG ulIDLen, HANDLE *phKeyHandle);
ULONG SKF_ECCExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB *pPubKey, PECCCIPHERBLOB pData, HANDLE *phSessionKey);
ULONG SKF_ExportPublicKey(HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbBlob, ULONG *pulBlobLen);
ULONG SKF_ImportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, BYTE *pbWrapedData, ULONG ulWrapedLen, HANDLE *phKey);
ULONG SKF_EncryptInit(HANDLE hKey, BLOCKCIPHERPARAM EncryptParam);
ULONG SKF_Encrypt(HANDLE hKey, BYTE *pbData, ULONG ulDataLen, BYTE *pbEncryptedData, ULONG *pulEncryptedLen);
ULONG SKF_EncryptUpdate(HANDLE hKey, BYTE *pbData, ULONG ulDataLen, BYTE *pbEncryptedData, ULONG *pulEncryptedLen);
ULONG SKF_EncryptFinal(HANDLE hKey, BYTE *pbEncryptedData, ULONG *pulEncryptedDataLen);
ULONG SKF_DecryptInit(HANDLE hKey, BLOCKCIPHERPARAM DecryptParam);
ULONG SKF_Decrypt(HANDLE hKey, BYTE *pbEncryptedData, ULONG ulEncryptedLen, BYTE *pbData, ULONG *pulDataLen);
ULONG SKF_DecryptUpdate(HANDLE hKey, BYTE *pbEncryptedData, ULONG ulEncryptedLen, BYTE *pbData, ULONG *pulDataLen);
ULONG SKF_DecryptFinal(HANDLE hKey, BYTE *pbDecryptedData, ULONG *pulDecryptedDataLen);
ULONG SKF_DigestInit(DEVHANDLE hDev, ULONG ulAlgID, ECCPUBLICKEYBLOB *pPubKey, unsigned char *pucID, ULONG ulIDLen, HANDLE *phHash);
ULONG SKF_Digest(HANDLE hHash, BYTE *pbData, ULONG ulDataLen, BYTE *pbHashData, ULONG *pulHashLen);
ULONG SKF_DigestUpdate(HANDLE hHash, BYTE *pbData, ULONG ulDataLen);
ULONG SKF_DigestFinal(HANDLE hHash, BYTE *pHashData, ULONG *pulHashLen);
ULONG SKF_MacInit(HANDLE hKey, BLOCKCIPHERPARAM *pMacParam, HANDLE *phMac);
ULONG SKF_Mac(HANDLE hMac, BYTE *pbData, ULONG ulDataLen, BYTE *pbMacData, ULONG *pulMacLen);
ULONG SKF_MacUpdate(HANDLE hMac, BYTE *pbData, ULONG ulDataLen);
ULONG SKF_MacFinal(HANDLE hMac, BYTE *pbMacData, ULONG *pulMacDataLen);
ULONG SKF_CloseHandle(HANDLE hHandle);
ULONG SKF_SetSymmKey(DEVHANDLE hDev, BYTE *pbKey, ULONG ulAlgID, HANDLE *phKey);
ULONG SKF_ECCPrvKeyDecryptEx(HCONTAINER hContainer, BOOL bSignFlag, PECCCIPHERBLOB pCipherText, BYTE *pbPlainText, ULONG *pulPlainTextLen);
ULONG SKF_ExtECCEncrypt(DEVHANDLE hDev, ECCPUBLICKEYBLOB *pECCPubKeyBlob, BYTE *pbPlainText, ULONG ulPlainTextLen, PECCCIPHERBLOB pCipherText);

ULONG EPS_Decrypt(HCONTAINER hContainer, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbIV, ULONG ulIVLen, BYTE *pbInData, ULONG ulInDataLen, BYTE *pbOutData, ULONG *pulOutDataLen, ULONG ulFlags);
ULONG EPS_Encrypt(HCONTAINER hContainer, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbIV, ULONG ulIVLen, BYTE *pbInData, ULONG ulInDataLen, BYTE *pbOutData, ULONG *pulOutDataLen, ULONG ulFlags);
ULONG EPS_ImportSymmKey(HCONTAINER hContainer, ULONG ulKeyIndex, BYTE *pbEncData, ULONG ulEncDataLen, ULONG ulFlags);
ULONG EPS_Mac(HCONTAINER hContainer, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbIV, ULONG ulIVLen, BYTE *pbInData, ULONG ulInDataLen, BYTE *pbMac, ULONG *pulMacLen, ULONG ulFlags);
ULONG EPS_ReadESealData(HAPPLICATION hApplication, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbData, ULONG *pulDataLen, ULONG ulFlags);
ULONG EPS_WriteESealData(HAPPLICATION hApplication, BYTE *pbData, ULONG ulDataSize, ULONG ulFlags);

#ifdef __cplusplus
}
#endif

// The eighty names a token library is bound by, in binding order:
// X(name, required). Optional names may be missing from a library.
#define SKF_FUNCTION_ROWS(X)                       \
    X(EPS_Decrypt, 0)                              \
    X(EPS_Encrypt, 0)                              \
    X(EPS_ImportSymmKey, 0)                        \
    X(EPS_Mac, 0)                                  \
    X(EPS_ReadESealData, 0)                        \
    X(EPS_WriteESealData, 0)                       \
    X(SKF_WaitForDevEvent, 1)                      \
    X(SKF_EnumDev, 1)                              \
    X(SKF_ConnectDev, 1)                           \
    X(SKF_DisConnectDev, 1)                        \
    X(SKF_GetDevState, 1)                          \
    X(SKF_SetLabel, 1)                             \
    X(SKF_GetDevInfo, 1)                           \
    X(SKF_LockDev, 1)                              \
    X(SKF_UnlockDev, 1)                            \
    X(SKF_Transmit, 1)                             \
    X(SKF_ChangeDevAuthKey, 1)                     \
    X(SKF_DevAuth, 1)                              \
    X(SKF_ChangePIN, 1)                            \
    X(SKF_GetPINInfo, 1)                           \
    X(SKF_VerifyPIN, 1)                            \
    X(SKF_UnblockPIN, 1)                           \
    X(SKF_GenRemoteUnblockRequest, 0)              \
    X(SKF_RemoteUnblockPIN, 0)                     \
    X(SKF_ClearSecureState, 0)                     \
    X(SKF_CreateFile, 1)                           \
    X(SKF_DeleteFile, 1)                           \
    X(SKF_EnumFiles, 1)                            \
    X(SKF_GetFileInfo, 1)                          \
    X(SKF_ReadFile, 1)                             \
    X(SKF_WriteFile, 1)                            \
    X(SKF_CreateApplication, 1)                    \
    X(SKF_EnumApplication, 1)                      \
    X(SKF_DeleteApplication, 1)                    \
    X(SKF_OpenApplication, 1)                      \
    X(SKF_CloseApplication, 1)                     \
    X(SKF_CreateContainer, 1)                      \
    X(SKF_DeleteContainer, 1)                      \
    X(SKF_EnumContainer, 1)                        \
    X(SKF_OpenContainer, 1)                        \
    X(SKF_CloseContainer, 1)                       \
    X(SKF_GetContainerType, 1)                     \
    X(SKF_ImportCertificate, 1)                    \
    X(SKF_ExportCertificate, 1)                    \
    X(SKF_GenRandom, 1)                            \
    X(SKF_GenRSAKeyPair, 1)                        \
    X(SKF_ImportRSAKeyPair, 1)                     \
    X(SKF_RSASignData, 1)                          \
    X(SKF_RSAVerify, 1)                            \
    X(SKF_RSAExportSessionKey, 1)                  \
    X(SKF_GenECCKeyPair, 1)                        \
    X(SKF_ImportECCKeyPair, 1)                     \
    X(SKF_ECCSignData, 1)                          \
    X(SKF_ECCVerify, 1)                            \
    X(SKF_GenerateAgreementDataWithECC, 1)         \
    X(SKF_GenerateAgreementDataAndKeyWithECC, 1)   \
    X(SKF_GenerateKeyWithECC, 1)                   \
    X(SKF_ECCExportSessionKey, 1)                  \
    X(SKF_ExportPublicKey, 1)                      \
    X(SKF_ImportSessionKey, 1)                     \
    X(SKF_EncryptInit, 1)                          \
    X(SKF_Encrypt, 1)                              \
    X(SKF_EncryptUpdate, 1)                        \
    X(SKF_EncryptFinal, 1)                         \
    X(SKF_DecryptInit, 1)                          \
    X(SKF_Decrypt, 1)                              \
    X(SKF_DecryptUpdate, 1)                        \
    X(SKF_DecryptFinal, 1)                         \
    X(SKF_DigestInit, 1)                           \
    X(SKF_Digest, 1)                               \
    X(SKF_DigestUpdate, 1)                         \
    X(SKF_DigestFinal, 1)                          \
    X(SKF_MacInit, 0)                              \
    X(SKF_Mac, 0)                                  \
    X(SKF_MacUpdate, 0)                            \
    X(SKF_MacFinal, 0)                             \
    X(SKF_CloseHandle, 1)                          \
    X(SKF_SetSymmKey, 1)                           \
    X(SKF_ECCPrvKeyDecryptEx, 0)                   \
    X(SKF_ExtECCEncrypt, 0)

#endif // TWKEY_SKFAPI_H
