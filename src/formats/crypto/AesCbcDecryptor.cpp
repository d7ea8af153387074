#include "formats/crypto/AesCbcDecryptor.h"

#include <openssl/evp.h>

#include <limits>

namespace nuvrel {

void AesCbcDecryptor::Free::operator()(evp_cipher_ctx_st* context) const
{
    EVP_CIPHER_CTX_free(context);
}

AesCbcDecryptor::AesCbcDecryptor(QByteArrayView key)
{
    const EVP_CIPHER* cipher = key.size() == 16   ? EVP_aes_128_cbc()
                               : key.size() == 24 ? EVP_aes_192_cbc()
                               : key.size() == 32 ? EVP_aes_256_cbc()
                                                  : nullptr;
    if (!cipher)
        return;
    std::unique_ptr<evp_cipher_ctx_st, Free> context(EVP_CIPHER_CTX_new());
    const unsigned char iv[16] = {};
    if (!context ||
        EVP_DecryptInit_ex(context.get(), cipher, nullptr, reinterpret_cast<const unsigned char*>(key.data()), iv) !=
            1 ||
        EVP_CIPHER_CTX_set_padding(context.get(), 0) != 1)
        return;
    m_context = std::move(context);
}

AesCbcDecryptor::~AesCbcDecryptor() = default;

qsizetype AesCbcDecryptor::update(QByteArrayView input, char* output)
{
    if (!m_context || input.size() > std::numeric_limits<int>::max() - 32)
        return -1;
    int written = 0;
    if (EVP_DecryptUpdate(m_context.get(), reinterpret_cast<unsigned char*>(output), &written,
                          reinterpret_cast<const unsigned char*>(input.data()), static_cast<int>(input.size())) != 1)
        return -1;
    return written;
}

} // namespace nuvrel
