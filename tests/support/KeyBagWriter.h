#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace nuvrel::test {

/// A class record of a key bag: its class key, wrapped with the password key when `wrap` has bit 2.
struct KeyBagClass
{
    quint32 protectionClass = 0;
    QByteArray key; ///< the plain class key
    quint32 wrap = 3;
    bool withPublicKey = false; ///< an asymmetric class: KTYP 1 and a PBKY value
};

/// How a key bag derives its password key: newer backups add a first SHA-256 step (DPSL/DPIC).
struct KeyBagOptions
{
    bool modern = true;
    quint32 firstIterations = 1000; ///< DPIC; the phone uses 10,000,000
    quint32 iterations = 10;        ///< ITER; the phone uses 10,000
};

/// Writes the key bag of an encrypted backup with OpenSSL's own PBKDF2 and AES key wrap, so that
/// the reader's derivation and unwrap are checked against another implementation.
QByteArray writeKeyBag(const QString& password, const QList<KeyBagClass>& classes, const KeyBagOptions& options);

/// The password key the writer derives (PKCS5_PBKDF2_HMAC).
QByteArray referencePasswordKey(const QString& password, const KeyBagOptions& options, const QByteArray& salt,
                                const QByteArray& firstSalt);

/// RFC 3394 AES key wrap through OpenSSL's wrap cipher.
QByteArray aesWrap(const QByteArray& kek, const QByteArray& key);

/// A class number followed by a wrapped key, as "ManifestKey" and per-file keys are stored.
QByteArray wrappedKeyValue(quint32 protectionClass, const QByteArray& classKey, const QByteArray& key);

/// Bytes from a fixed-seed generator, so that fixtures are the same on every run.
QByteArray pseudoRandomBytes(qsizetype size, quint32 seed);

} // namespace nuvrel::test
