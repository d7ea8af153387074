#include "formats/crypto/Pbkdf2.h"

#include "formats/crypto/Sha256Ni.h"

// The bare compression functions (SHA*_Transform) are deprecated in OpenSSL 3 in favour of EVP, which
// offers no way to resume a hash from a saved state; the PBKDF2 loop is nothing but such resumptions.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/sha.h>

#include <QtEndian>

#include <array>
#include <cstring>
#include <type_traits>

namespace nuvrel {

namespace {

// Checking the cancel flag on every iteration would cost more than the iteration itself.
constexpr quint64 cancelCheckInterval = 1 << 16;

struct Sha1
{
    using Context = SHA_CTX;
    static constexpr int digestSize = SHA_DIGEST_LENGTH;
    static void init(Context* c) { SHA1_Init(c); }
    static void update(Context* c, const void* data, size_t size) { SHA1_Update(c, data, size); }
    static void final(unsigned char* out, Context* c) { SHA1_Final(out, c); }
    static void transform(Context* c, const unsigned char* block) { SHA1_Transform(c, block); }
    static void state(const Context& c, quint32* words)
    {
        words[0] = c.h0;
        words[1] = c.h1;
        words[2] = c.h2;
        words[3] = c.h3;
        words[4] = c.h4;
    }
    static void setState(Context& c, const quint32* words)
    {
        c.h0 = words[0];
        c.h1 = words[1];
        c.h2 = words[2];
        c.h3 = words[3];
        c.h4 = words[4];
    }
};

struct Sha256
{
    using Context = SHA256_CTX;
    static constexpr int digestSize = SHA256_DIGEST_LENGTH;
    static void init(Context* c) { SHA256_Init(c); }
    static void update(Context* c, const void* data, size_t size) { SHA256_Update(c, data, size); }
    static void final(unsigned char* out, Context* c) { SHA256_Final(out, c); }
    static void transform(Context* c, const unsigned char* block) { SHA256_Transform(c, block); }
    static void state(const Context& c, quint32* words) { std::memcpy(words, c.h, sizeof c.h); }
    static void setState(Context& c, const quint32* words) { std::memcpy(c.h, words, sizeof c.h); }
};

constexpr int blockSize = 64;

template <typename H>
class Derivation
{
public:
    static constexpr int words = H::digestSize / 4;

    explicit Derivation(QByteArrayView password)
    {
        std::array<unsigned char, blockSize> key{};
        if (password.size() > blockSize) {
            typename H::Context c;
            H::init(&c);
            H::update(&c, password.data(), static_cast<size_t>(password.size()));
            H::final(key.data(), &c);
        } else {
            std::memcpy(key.data(), password.data(), static_cast<size_t>(password.size()));
        }
        std::array<unsigned char, blockSize> pad;
        for (int i = 0; i < blockSize; ++i)
            pad[i] = key[i] ^ 0x36;
        H::init(&m_inner);
        H::update(&m_inner, pad.data(), blockSize);
        for (int i = 0; i < blockSize; ++i)
            pad[i] = key[i] ^ 0x5C;
        H::init(&m_outer);
        H::update(&m_outer, pad.data(), blockSize);
        H::state(m_inner, m_innerState.data());
        H::state(m_outer, m_outerState.data());
    }

    // T_i = U_1 ^ … ^ U_c with U_1 = HMAC(salt || INT(i)) and U_j = HMAC(U_{j-1}).
    bool block(QByteArrayView salt, quint32 index, quint64 iterations, unsigned char* out,
               const std::atomic<bool>* cancel, bool accelerated)
    {
        unsigned char u[H::digestSize];
        {
            typename H::Context c = m_inner;
            unsigned char counter[4];
            qToBigEndian(index, counter);
            H::update(&c, salt.data(), static_cast<size_t>(salt.size()));
            H::update(&c, counter, 4);
            H::final(u, &c);
            c = m_outer;
            H::update(&c, u, H::digestSize);
            H::final(u, &c);
        }
        std::array<quint32, words> t;
        std::array<quint32, words> digest;
        for (std::ptrdiff_t w = 0; w < words; ++w)
            t[w] = digest[w] = qFromBigEndian<quint32>(u + 4 * w);
        if constexpr (std::is_same_v<H, Sha256>) {
            if (accelerated) {
                if (!detail::pbkdf2Sha256NiRounds(m_innerState.data(), m_outerState.data(), digest.data(), t.data(),
                                                  iterations, cancel, cancelCheckInterval))
                    return false;
                for (std::ptrdiff_t w = 0; w < words; ++w)
                    qToBigEndian(t[w], out + 4 * w);
                return true;
            }
        }

        // Both later messages are one digest long, so each fits one padded block whose tail never changes.
        unsigned char message[blockSize] = {};
        message[H::digestSize] = 0x80;
        qToBigEndian<quint64>(quint64(blockSize + H::digestSize) * 8, message + blockSize - 8);
        typename H::Context c = m_inner;
        for (quint64 j = 1; j < iterations; ++j) {
            if (cancel && j % cancelCheckInterval == 0 && cancel->load(std::memory_order_relaxed))
                return false;
            for (std::ptrdiff_t w = 0; w < words; ++w)
                qToBigEndian(digest[w], message + 4 * w);
            H::setState(c, m_innerState.data());
            H::transform(&c, message);
            H::state(c, digest.data());
            for (std::ptrdiff_t w = 0; w < words; ++w)
                qToBigEndian(digest[w], message + 4 * w);
            H::setState(c, m_outerState.data());
            H::transform(&c, message);
            H::state(c, digest.data());
            for (std::ptrdiff_t w = 0; w < words; ++w)
                t[w] ^= digest[w];
        }
        for (std::ptrdiff_t w = 0; w < words; ++w)
            qToBigEndian(t[w], out + 4 * w);
        return true;
    }

private:
    typename H::Context m_inner;
    typename H::Context m_outer;
    std::array<quint32, words> m_innerState;
    std::array<quint32, words> m_outerState;
};

template <typename H>
std::optional<QByteArray> run(QByteArrayView password, QByteArrayView salt, quint64 iterations, int length,
                              const std::atomic<bool>* cancel, bool accelerated)
{
    Derivation<H> derivation(password);
    QByteArray key(length, Qt::Uninitialized);
    unsigned char block[H::digestSize];
    for (int done = 0, index = 1; done < length; ++index) {
        if (!derivation.block(salt, static_cast<quint32>(index), std::max<quint64>(iterations, 1), block, cancel,
                              accelerated))
            return std::nullopt;
        const int take = std::min(length - done, H::digestSize);
        std::memcpy(key.data() + done, block, static_cast<size_t>(take));
        done += take;
    }
    return key;
}

} // namespace

std::optional<QByteArray> Pbkdf2::derive(Hash hash, QByteArrayView password, QByteArrayView salt, quint64 iterations,
                                         int length, const std::atomic<bool>* cancel, Engine engine)
{
    if (length <= 0)
        return QByteArray();
    if (hash == Hash::Sha1)
        return run<Sha1>(password, salt, iterations, length, cancel, false);
    const bool accelerated = engine == Engine::Fastest && detail::sha256NiAvailable();
    return run<Sha256>(password, salt, iterations, length, cancel, accelerated);
}

} // namespace nuvrel
