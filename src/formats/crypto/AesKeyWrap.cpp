#include "formats/crypto/AesKeyWrap.h"

#include <QtEndian>

#include <openssl/evp.h>

#include <array>
#include <cstring>
#include <memory>

namespace nuvrel::AesKeyWrap {

namespace {

const EVP_CIPHER* ecbCipher(qsizetype keySize)
{
    switch (keySize) {
    case 16: return EVP_aes_128_ecb();
    case 24: return EVP_aes_192_ecb();
    case 32: return EVP_aes_256_ecb();
    default: return nullptr;
    }
}

struct CipherContextDeleter
{
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, CipherContextDeleter>;

// An ECB decryptor for whole blocks, set up once for the many blocks of one unwrap.
CipherContext ecbDecryptor(QByteArrayView key)
{
    const EVP_CIPHER* cipher = ecbCipher(key.size());
    if (!cipher)
        return nullptr;
    CipherContext context(EVP_CIPHER_CTX_new());
    if (!context ||
        EVP_DecryptInit_ex(context.get(), cipher, nullptr, reinterpret_cast<const unsigned char*>(key.data()),
                           nullptr) != 1 ||
        EVP_CIPHER_CTX_set_padding(context.get(), 0) != 1)
        return nullptr;
    return context;
}

bool decryptBlock(EVP_CIPHER_CTX* context, const unsigned char* in, unsigned char* out)
{
    int written = 0;
    return EVP_DecryptUpdate(context, out, &written, in, 16) == 1 && written == 16;
}

} // namespace

std::optional<QByteArray> unwrap(QByteArrayView kek, QByteArrayView wrapped)
{
    if (wrapped.size() < 24 || wrapped.size() % 8 != 0)
        return std::nullopt;
    const CipherContext context = ecbDecryptor(kek);
    if (!context)
        return std::nullopt;

    const qsizetype n = wrapped.size() / 8 - 1;
    quint64 a = qFromBigEndian<quint64>(wrapped.data());
    QByteArray r = wrapped.sliced(8).toByteArray();
    auto* blocks = reinterpret_cast<unsigned char*>(r.data());
    std::array<unsigned char, 16> in;
    std::array<unsigned char, 16> out;
    for (int j = 5; j >= 0; --j) {
        for (qsizetype i = n; i >= 1; --i) {
            const auto t = static_cast<quint64>(n * j + i);
            qToBigEndian(a ^ t, in.data());
            std::memcpy(in.data() + 8, blocks + (i - 1) * 8, 8);
            if (!decryptBlock(context.get(), in.data(), out.data()))
                return std::nullopt;
            a = qFromBigEndian<quint64>(out.data());
            std::memcpy(blocks + (i - 1) * 8, out.data() + 8, 8);
        }
    }
    if (a != 0xA6A6A6A6A6A6A6A6ull)
        return std::nullopt;
    return r;
}

QByteArray ecbDecryptBlock(QByteArrayView key, QByteArrayView block)
{
    if (block.size() != 16)
        return {};
    const CipherContext context = ecbDecryptor(key);
    if (!context)
        return {};
    QByteArray out(16, Qt::Uninitialized);
    if (!decryptBlock(context.get(), reinterpret_cast<const unsigned char*>(block.data()),
                      reinterpret_cast<unsigned char*>(out.data())))
        return {};
    return out;
}

} // namespace nuvrel::AesKeyWrap
