#include "formats/crypto/AesGcm.h"

#include <QRandomGenerator>

#include <openssl/evp.h>

#include <memory>

namespace nuvrel::AesGcm {

namespace {

struct CipherDeleter
{
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using Cipher = std::unique_ptr<EVP_CIPHER_CTX, CipherDeleter>;

// QRandomGenerator::system() reads the operating system's generator (getrandom, arc4random).
QByteArray systemRandom(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; i += 4) {
        const quint32 word = QRandomGenerator::system()->generate();
        for (qsizetype b = 0; b < 4 && i + b < size; ++b)
            bytes[i + b] = char(word >> (8 * b));
    }
    return bytes;
}

auto bytes(QByteArrayView view)
{
    return reinterpret_cast<const unsigned char*>(view.data());
}

} // namespace

QByteArray seal(QByteArrayView key, QByteArrayView plaintext, QByteArrayView aad)
{
    if (key.size() != keySize)
        return {};
    const Cipher context(EVP_CIPHER_CTX_new());
    QByteArray box(nonceSize + plaintext.size() + tagSize, Qt::Uninitialized);
    const QByteArray nonce = systemRandom(nonceSize);
    std::copy(nonce.cbegin(), nonce.cend(), box.begin());
    auto* out = reinterpret_cast<unsigned char*>(box.data());
    int written = 0;
    if (!context || EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_IVLEN, int(nonceSize), nullptr) != 1 ||
        EVP_EncryptInit_ex(context.get(), nullptr, nullptr, bytes(key), out) != 1)
        return {};
    if (!aad.isEmpty() && EVP_EncryptUpdate(context.get(), nullptr, &written, bytes(aad), int(aad.size())) != 1)
        return {};
    if (EVP_EncryptUpdate(context.get(), out + nonceSize, &written, bytes(plaintext), int(plaintext.size())) != 1)
        return {};
    int last = 0;
    if (EVP_EncryptFinal_ex(context.get(), out + nonceSize + written, &last) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, int(tagSize), out + nonceSize + plaintext.size()) != 1)
        return {};
    return box;
}

std::optional<QByteArray> open(QByteArrayView key, QByteArrayView box, QByteArrayView aad)
{
    if (key.size() != keySize || box.size() < overhead)
        return std::nullopt;
    const qsizetype length = box.size() - overhead;
    const Cipher context(EVP_CIPHER_CTX_new());
    QByteArray plaintext(length, Qt::Uninitialized);
    auto* out = reinterpret_cast<unsigned char*>(plaintext.data());
    int written = 0;
    if (!context || EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_IVLEN, int(nonceSize), nullptr) != 1 ||
        EVP_DecryptInit_ex(context.get(), nullptr, nullptr, bytes(key), bytes(box)) != 1)
        return std::nullopt;
    if (!aad.isEmpty() && EVP_DecryptUpdate(context.get(), nullptr, &written, bytes(aad), int(aad.size())) != 1)
        return std::nullopt;
    if (EVP_DecryptUpdate(context.get(), out, &written, bytes(box) + nonceSize, int(length)) != 1)
        return std::nullopt;
    // The tag is set before the final step, which checks it.
    QByteArray tag = box.sliced(box.size() - tagSize).toByteArray();
    int last = 0;
    if (EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, int(tagSize), tag.data()) != 1 ||
        EVP_DecryptFinal_ex(context.get(), out + written, &last) != 1)
        return std::nullopt;
    return plaintext;
}

QByteArray randomKey()
{
    return systemRandom(keySize);
}

} // namespace nuvrel::AesGcm
