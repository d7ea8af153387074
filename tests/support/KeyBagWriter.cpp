#include "support/KeyBagWriter.h"

#include <QRandomGenerator>
#include <QtEndian>

#include <openssl/evp.h>

namespace nuvrel::test {

namespace {

QByteArray item(const char* tag, const QByteArray& value)
{
    QByteArray out(tag, 4);
    char length[4];
    qToBigEndian<quint32>(static_cast<quint32>(value.size()), length);
    return out + QByteArray(length, 4) + value;
}

QByteArray number(quint32 value)
{
    char bytes[4];
    qToBigEndian(value, bytes);
    return QByteArray(bytes, 4);
}

} // namespace

QByteArray pseudoRandomBytes(qsizetype size, quint32 seed)
{
    QRandomGenerator random(seed);
    QByteArray out((size + 3) / 4 * 4, Qt::Uninitialized);
    random.fillRange(reinterpret_cast<quint32*>(out.data()), out.size() / 4);
    out.truncate(size);
    return out;
}

QByteArray aesWrap(const QByteArray& kek, const QByteArray& key)
{
    const EVP_CIPHER* cipher = kek.size() == 16   ? EVP_aes_128_wrap()
                               : kek.size() == 24 ? EVP_aes_192_wrap()
                                                  : EVP_aes_256_wrap();
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    EVP_CIPHER_CTX_set_flags(context, EVP_CIPHER_CTX_FLAG_WRAP_ALLOW);
    QByteArray out(key.size() + 8, Qt::Uninitialized);
    int written = 0;
    int tail = 0;
    const bool ok =
        EVP_EncryptInit_ex(context, cipher, nullptr, reinterpret_cast<const unsigned char*>(kek.constData()),
                           nullptr) == 1 &&
        EVP_EncryptUpdate(context, reinterpret_cast<unsigned char*>(out.data()), &written,
                          reinterpret_cast<const unsigned char*>(key.constData()), static_cast<int>(key.size())) == 1 &&
        EVP_EncryptFinal_ex(context, reinterpret_cast<unsigned char*>(out.data()) + written, &tail) == 1;
    EVP_CIPHER_CTX_free(context);
    if (!ok || written + tail != out.size())
        qFatal("aesWrap: OpenSSL refused to wrap a %lld-byte key", static_cast<long long>(key.size()));
    return out;
}

QByteArray referencePasswordKey(const QString& password, const KeyBagOptions& options, const QByteArray& salt,
                                const QByteArray& firstSalt)
{
    QByteArray secret = password.toUtf8();
    QByteArray key(32, Qt::Uninitialized);
    if (options.modern) {
        PKCS5_PBKDF2_HMAC(secret.constData(), static_cast<int>(secret.size()),
                          reinterpret_cast<const unsigned char*>(firstSalt.constData()),
                          static_cast<int>(firstSalt.size()), static_cast<int>(options.firstIterations), EVP_sha256(),
                          32, reinterpret_cast<unsigned char*>(key.data()));
        secret = key;
    }
    PKCS5_PBKDF2_HMAC(secret.constData(), static_cast<int>(secret.size()),
                      reinterpret_cast<const unsigned char*>(salt.constData()), static_cast<int>(salt.size()),
                      static_cast<int>(options.iterations), EVP_sha1(), 32,
                      reinterpret_cast<unsigned char*>(key.data()));
    return key;
}

QByteArray writeKeyBag(const QString& password, const QList<KeyBagClass>& classes, const KeyBagOptions& options)
{
    const QByteArray salt = pseudoRandomBytes(20, 1);
    const QByteArray firstSalt = pseudoRandomBytes(20, 2);
    const QByteArray passwordKey = referencePasswordKey(password, options, salt, firstSalt);

    QByteArray bag = item("VERS", number(4)) + item("TYPE", number(1)) + item("UUID", pseudoRandomBytes(16, 3)) +
                     item("HMCK", pseudoRandomBytes(40, 4)) + item("WRAP", number(1)) + item("SALT", salt) +
                     item("ITER", number(options.iterations));
    if (options.modern)
        bag += item("DPWT", number(1)) + item("DPIC", number(options.firstIterations)) + item("DPSL", firstSalt);
    quint32 seed = 10;
    for (const KeyBagClass& keyClass : classes) {
        bag += item("UUID", pseudoRandomBytes(16, ++seed)) + item("CLAS", number(keyClass.protectionClass)) +
               item("WRAP", number(keyClass.wrap));
        if (keyClass.withPublicKey)
            bag += item("KTYP", number(1));
        bag += item("WPKY", keyClass.wrap & 2 ? aesWrap(passwordKey, keyClass.key) : keyClass.key);
        if (keyClass.withPublicKey)
            bag += item("PBKY", pseudoRandomBytes(32, ++seed));
    }
    return bag;
}

QByteArray wrappedKeyValue(quint32 protectionClass, const QByteArray& classKey, const QByteArray& key)
{
    char head[4];
    qToLittleEndian(protectionClass, head);
    return QByteArray(head, 4) + aesWrap(classKey, key);
}

} // namespace nuvrel::test
