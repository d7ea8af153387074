#pragma once

#include <QtGlobal>

#include <atomic>

namespace nuvrel::detail {

/// Whether this processor has the SHA extensions the accelerated PBKDF2 loop needs.
bool sha256NiAvailable();

/// Iterations 2 to `iterations` of one PBKDF2-HMAC-SHA256 block with the SHA extensions, the chained
/// value never leaving the vector registers. `inner` and `outer` are the HMAC states after the padded
/// key block, `u` holds U_1 and `t` the running XOR (both as eight state words). False when cancelled.
bool pbkdf2Sha256NiRounds(const quint32 inner[8], const quint32 outer[8], const quint32 u[8], quint32 t[8],
                          quint64 iterations, const std::atomic<bool>* cancel, quint64 cancelCheckInterval);

} // namespace nuvrel::detail
