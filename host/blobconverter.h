// Conversions between the token's published structures and the forms
// other tools read: public key blobs to SubjectPublicKeyInfo PEM, SM2
// signatures between the compact r||s form, the token's signature blob
// and DER, and the PKCS#1 DigestInfo that RSA signing expects.
// The library passes these structures through unchanged; the CLI is
// where they meet the outside.
#ifndef TWHOST_BLOBCONVERTER_H
#define TWHOST_BLOBCONVERTER_H

#include <QByteArray>
#include <QString>

class BlobConverter
{
public:
    static constexpr int kEccPublicBlobSize = 132;
    static constexpr int kRsaPublicBlobSize = 268;
    static constexpr int kEccSignatureBlobSize = 128;
    static constexpr int kCompactSignatureSize = 64;

    // ECCPUBLICKEYBLOB (a point on the SM2 curve) or RSAPUBLICKEYBLOB, told
    // apart by size, to a "PUBLIC KEY" PEM. Empty with *error set on failure.
    static QByteArray publicBlobToPem(const QByteArray &blob, QString *error);
    static QByteArray eccPublicBlobToPem(const QByteArray &blob, QString *error);
    static QByteArray rsaPublicBlobToPem(const QByteArray &blob, QString *error);

    // The compact form is r then s, 32 bytes each; the blob holds them
    // right-aligned in two 64-byte fields.
    static QByteArray signatureBlobToCompact(const QByteArray &blob);
    static QByteArray compactToSignatureBlob(const QByteArray &compact);
    // DER ECDSA-Sig-Value, as openssl reads and writes SM2 signatures.
    static QByteArray compactToDer(const QByteArray &compact);
    static QByteArray derToCompact(const QByteArray &der);

    // DigestInfo of SHA-256 over data, ready for a raw PKCS#1 v1.5 signature.
    static QByteArray sha256DigestInfo(const QByteArray &data);

    // Certificates: DER to PEM; an X.509 certificate in PEM or DER to DER,
    // empty for anything that is not one.
    static QByteArray certificateToPem(const QByteArray &der);
    static QByteArray certificateToDer(const QByteArray &derOrPem);

    static QByteArray randomBytes(int count);

    // Hex or base64 text decoded (blanks and line ends ignored); any other
    // bytes as they are.
    static QByteArray fromText(const QByteArray &bytes);
};

#endif
