#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <atomic>
#include <optional>

namespace nuvrel {

/// PBKDF2 (RFC 8018) with HMAC-SHA1 or HMAC-SHA256, built for the tens of millions of iterations of
/// a backup key bag: the HMAC inner and outer states are computed once, so that each iteration costs
/// exactly two compression-function calls.
class Pbkdf2 final
{
public:
    enum class Hash { Sha1, Sha256 };
    /// Fastest uses the processor's SHA extensions for SHA-256 when it has them; Portable never does.
    enum class Engine { Fastest, Portable };

    Pbkdf2() = delete;

    /// The derived key of `length` bytes; nothing when `cancel` was raised during the work.
    /// `iterations` is used as given (at least 1), with no cap: the key bag decides the cost.
    static std::optional<QByteArray> derive(Hash hash, QByteArrayView password, QByteArrayView salt, quint64 iterations,
                                            int length, const std::atomic<bool>* cancel = nullptr,
                                            Engine engine = Engine::Fastest);
};

} // namespace nuvrel
