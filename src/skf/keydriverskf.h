#ifndef TWKEY_KEYDRIVERSKF_H
#define TWKEY_KEYDRIVERSKF_H

#include <QLibrary>
#include <QStringList>

#include "package/keydriver.h"
#include "skfapi.h"

class CheckThreadSKF;
class KeyDriverPackage;

// The driver of a package whose protocol is SKF: one token maker's library
// bound by name into the eighty-row function table.
class KeyDriverSKF : public KeyDriver
{
    Q_OBJECT
public:
    KeyDriverSKF(KeyDriverPackage *package, QString fileName, QObject *parent = nullptr);
    ~KeyDriverSKF() override;

    bool load() override;
    void unload() override;

    bool init();
    QStringList enumDev() override;
    KeyObject *open(QString devName, bool noload) override;

    bool waitForDevEvent(QString &devName, unsigned int &event);
    void cancelWaitForDevEvent();

signals:
    void keyEvent(QString devName, bool insert);

public slots:
    void on_keyEvent(QString devName, bool insert);

private:
    QString m_fileName;
    QLibrary m_library;
    CheckThreadSKF *m_checkThread;
    KeyDriverPackage *m_package;

public:
    // The function table, in binding order. The cancel call of the
    // standard has a slot here but no row: nothing resolves it.
    decltype(&::EPS_Decrypt) pEPS_Decrypt;
    decltype(&::EPS_Encrypt) pEPS_Encrypt;
    decltype(&::EPS_ImportSymmKey) pEPS_ImportSymmKey;
    decltype(&::EPS_Mac) pEPS_Mac;
    decltype(&::EPS_ReadESealData) pEPS_ReadESealData;
    decltype(&::EPS_WriteESealData) pEPS_WriteESealData;
    decltype(&::SKF_WaitForDevEvent) pSKF_WaitForDevEvent;
    decltype(&::SKF_CancelWaitForDevEvent) pSKF_CancelWaitForDevEvent;
    // Rows 8 to 80 (rows 1 to 7 stand above, around the cancel slot).
    decltype(&::SKF_EnumDev) pSKF_EnumDev;
    decltype(&::SKF_ConnectDev) pSKF_ConnectDev;
    decltype(&::SKF_DisConnectDev) pSKF_DisConnectDev;
    decltype(&::SKF_GetDevState) pSKF_GetDevState;
    decltype(&::SKF_SetLabel) pSKF_SetLabel;
    decltype(&::SKF_GetDevInfo) pSKF_GetDevInfo;
    decltype(&::SKF_LockDev) pSKF_LockDev;
    decltype(&::SKF_UnlockDev) pSKF_UnlockDev;
    decltype(&::SKF_Transmit) pSKF_Transmit;
    decltype(&::SKF_ChangeDevAuthKey) pSKF_ChangeDevAuthKey;
    decltype(&::SKF_DevAuth) pSKF_DevAuth;
    decltype(&::SKF_ChangePIN) pSKF_ChangePIN;
    decltype(&::SKF_GetPINInfo) pSKF_GetPINInfo;
    decltype(&::SKF_VerifyPIN) pSKF_VerifyPIN;
    decltype(&::SKF_UnblockPIN) pSKF_UnblockPIN;
    decltype(&::SKF_GenRemoteUnblockRequest) pSKF_GenRemoteUnblockRequest;
    decltype(&::SKF_RemoteUnblockPIN) pSKF_RemoteUnblockPIN;
    decltype(&::SKF_ClearSecureState) pSKF_ClearSecureState;
    decltype(&::SKF_CreateFile) pSKF_CreateFile;
    decltype(&::SKF_DeleteFile) pSKF_DeleteFile;
    decltype(&::SKF_EnumFiles) pSKF_EnumFiles;
    decltype(&::SKF_GetFileInfo) pSKF_GetFileInfo;
    decltype(&::SKF_ReadFile) pSKF_ReadFile;
    decltype(&::SKF_WriteFile) pSKF_WriteFile;
    decltype(&::SKF_CreateApplication) pSKF_CreateApplication;
    decltype(&::SKF_EnumApplication) pSKF_EnumApplication;
    decltype(&::SKF_DeleteApplication) pSKF_DeleteApplication;
    decltype(&::SKF_OpenApplication) pSKF_OpenApplication;
    decltype(&::SKF_CloseApplication) pSKF_CloseApplication;
    decltype(&::SKF_CreateContainer) pSKF_CreateContainer;
    decltype(&::SKF_DeleteContainer) pSKF_DeleteContainer;
    decltype(&::SKF_EnumContainer) pSKF_EnumContainer;
    decltype(&::SKF_OpenContainer) pSKF_OpenContainer;
    decltype(&::SKF_CloseContainer) pSKF_CloseContainer;
    decltype(&::SKF_GetContainerType) pSKF_GetContainerType;
    decltype(&::SKF_ImportCertificate) pSKF_ImportCertificate;
    decltype(&::SKF_ExportCertificate) pSKF_ExportCertificate;
    decltype(&::SKF_GenRandom) pSKF_GenRandom;
    decltype(&::SKF_GenRSAKeyPair) pSKF_GenRSAKeyPair;
    decltype(&::SKF_ImportRSAKeyPair) pSKF_ImportRSAKeyPair;
    decltype(&::SKF_RSASignData) pSKF_RSASignData;
    decltype(&::SKF_RSAVerify) pSKF_RSAVerify;
    decltype(&::SKF_RSAExportSessionKey) pSKF_RSAExportSessionKey;
    decltype(&::SKF_GenECCKeyPair) pSKF_GenECCKeyPair;
    decltype(&::SKF_ImportECCKeyPair) pSKF_ImportECCKeyPair;
    decltype(&::SKF_ECCSignData) pSKF_ECCSignData;
    decltype(&::SKF_ECCVerify) pSKF_ECCVerify;
    decltype(&::SKF_GenerateAgreementDataWithECC) pSKF_GenerateAgreementDataWithECC;
    decltype(&::SKF_GenerateAgreementDataAndKeyWithECC) pSKF_GenerateAgreementDataAndKeyWithECC;
    decltype(&::SKF_GenerateKeyWithECC) pSKF_GenerateKeyWithECC;
    decltype(&::SKF_ECCExportSessionKey) pSKF_ECCExportSessionKey;
    decltype(&::SKF_ExportPublicKey) pSKF_ExportPublicKey;
    decltype(&::SKF_ImportSessionKey) pSKF_ImportSessionKey;
    decltype(&::SKF_EncryptInit) pSKF_EncryptInit;
    decltype(&::SKF_Encrypt) pSKF_Encrypt;
    decltype(&::SKF_EncryptUpdate) pSKF_EncryptUpdate;
    decltype(&::SKF_EncryptFinal) pSKF_EncryptFinal;
    decltype(&::SKF_DecryptInit) pSKF_DecryptInit;
    decltype(&::SKF_Decrypt) pSKF_Decrypt;
    decltype(&::SKF_DecryptUpdate) pSKF_DecryptUpdate;
    decltype(&::SKF_DecryptFinal) pSKF_DecryptFinal;
    decltype(&::SKF_DigestInit) pSKF_DigestInit;
    decltype(&::SKF_Digest) pSKF_Digest;
    decltype(&::SKF_DigestUpdate) pSKF_DigestUpdate;
    decltype(&::SKF_DigestFinal) pSKF_DigestFinal;
    decltype(&::SKF_MacInit) pSKF_MacInit;
    decltype(&::SKF_Mac) pSKF_Mac;
    decltype(&::SKF_MacUpdate) pSKF_MacUpdate;
    decltype(&::SKF_MacFinal) pSKF_MacFinal;
    decltype(&::SKF_CloseHandle) pSKF_CloseHandle;
    decltype(&::SKF_SetSymmKey) pSKF_SetSymmKey;
    decltype(&::SKF_ECCPrvKeyDecryptEx) pSKF_ECCPrvKeyDecryptEx;
    decltype(&::SKF_ExtECCEncrypt) pSKF_ExtECCEncrypt;
};

#endif
