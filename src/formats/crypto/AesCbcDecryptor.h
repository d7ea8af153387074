#pragma once

#include <QByteArrayView>

#include <memory>

struct evp_cipher_ctx_st;

namespace nuvrel {

/// AES in CBC mode with an all-zero initialisation vector and no padding, the way a backup stores its
/// index and its files. Fed in pieces; a trailing partial block is never output.
class AesCbcDecryptor final
{
public:
    /// Check isValid(): a key that is not 16, 24 or 32 bytes gives an unusable decryptor.
    explicit AesCbcDecryptor(QByteArrayView key);
    ~AesCbcDecryptor();
    Q_DISABLE_COPY_MOVE(AesCbcDecryptor)

    bool isValid() const { return m_context != nullptr; }

    /// Decrypts `input` into `output`, which must have room for input.size() + 16 bytes;
    /// returns the number of bytes written, or -1 on failure.
    qsizetype update(QByteArrayView input, char* output);

private:
    struct Free
    {
        void operator()(evp_cipher_ctx_st* context) const;
    };
    std::unique_ptr<evp_cipher_ctx_st, Free> m_context;
};

} // namespace nuvrel
