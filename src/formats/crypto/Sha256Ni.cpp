#include "formats/crypto/Sha256Ni.h"

#if defined(__x86_64__) || defined(__i386__)

#include <cpuid.h>
#include <immintrin.h>

namespace nuvrel::detail {

namespace {

alignas(16) constexpr quint32 roundConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
};

// Everything inlines into the loop, so that the message words and the state stay in registers.
#define NUVREL_SHA_TARGET __attribute__((target("sha,sse4.1,ssse3"), always_inline)) inline
#define NUVREL_SHA_ENTRY __attribute__((target("sha,sse4.1,ssse3")))

// The state as the round instruction wants it: (A, B, E, F) and (C, D, G, H).
struct State
{
    __m128i abef;
    __m128i cdgh;
};

NUVREL_SHA_TARGET State toRoundForm(__m128i abcd, __m128i efgh)
{
    const __m128i badc = _mm_shuffle_epi32(abcd, 0xB1);
    const __m128i hgfe = _mm_shuffle_epi32(efgh, 0x1B);
    return {_mm_alignr_epi8(badc, hgfe, 8), _mm_blend_epi16(hgfe, badc, 0xF0)};
}

// Back to word order, which is also the message of the next compression: (A, B, C, D) and (E, F, G, H).
NUVREL_SHA_TARGET void toWordForm(const State& s, __m128i& abcd, __m128i& efgh)
{
    const __m128i feba = _mm_shuffle_epi32(s.abef, 0x1B);
    const __m128i dchg = _mm_shuffle_epi32(s.cdgh, 0xB1);
    abcd = _mm_blend_epi16(feba, dchg, 0xF0);
    efgh = _mm_alignr_epi8(dchg, feba, 8);
}

// One compression of the message words w0..w3 (W0–W15, four per vector, W0 in lane 0).
NUVREL_SHA_TARGET State compress(State s, __m128i w0, __m128i w1, __m128i w2, __m128i w3)
{
    const State saved = s;
    __m128i w[4] = {w0, w1, w2, w3};
#pragma GCC unroll 16
    for (int g = 0; g < 16; ++g) {
        const __m128i k = _mm_load_si128(reinterpret_cast<const __m128i*>(roundConstants + std::ptrdiff_t(4) * g));
        __m128i msg = _mm_add_epi32(w[g & 3], k);
        s.cdgh = _mm_sha256rnds2_epu32(s.cdgh, s.abef, msg);
        if (g >= 3 && g <= 14) {
            // W for group g+1: finish its schedule with the words just used.
            const __m128i carry = _mm_alignr_epi8(w[g & 3], w[(g + 3) & 3], 4);
            w[(g + 1) & 3] = _mm_sha256msg2_epu32(_mm_add_epi32(w[(g + 1) & 3], carry), w[g & 3]);
        }
        msg = _mm_shuffle_epi32(msg, 0x0E);
        s.abef = _mm_sha256rnds2_epu32(s.abef, s.cdgh, msg);
        if (g >= 1 && g <= 12)
            w[(g + 3) & 3] = _mm_sha256msg1_epu32(w[(g + 3) & 3], w[g & 3]);
    }
    return {_mm_add_epi32(s.abef, saved.abef), _mm_add_epi32(s.cdgh, saved.cdgh)};
}

NUVREL_SHA_ENTRY bool rounds(const quint32 inner[8], const quint32 outer[8], const quint32 u[8], quint32 t[8],
                             quint64 iterations, const std::atomic<bool>* cancel, quint64 interval)
{
    const auto load = [](const quint32* words) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(words)); };
    const State innerState = toRoundForm(load(inner), load(inner + 4));
    const State outerState = toRoundForm(load(outer), load(outer + 4));
    // A 32-byte message after the 64-byte key block: one padded block, 768 bits long.
    const __m128i padding = _mm_set_epi32(0, 0, 0, static_cast<int>(0x80000000u));
    const __m128i length = _mm_set_epi32(768, 0, 0, 0);

    __m128i abcd = load(u);
    __m128i efgh = load(u + 4);
    __m128i sumAbcd = load(t);
    __m128i sumEfgh = load(t + 4);
    for (quint64 j = 1; j < iterations; ++j) {
        if (cancel && j % interval == 0 && cancel->load(std::memory_order_relaxed))
            return false;
        toWordForm(compress(innerState, abcd, efgh, padding, length), abcd, efgh);
        toWordForm(compress(outerState, abcd, efgh, padding, length), abcd, efgh);
        sumAbcd = _mm_xor_si128(sumAbcd, abcd);
        sumEfgh = _mm_xor_si128(sumEfgh, efgh);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(t), sumAbcd);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(t + 4), sumEfgh);
    return true;
}

} // namespace

bool sha256NiAvailable()
{
    static const bool available = [] {
        unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
        if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx))
            return false;
        const bool ssse3 = ecx & (1u << 9);
        const bool sse41 = ecx & (1u << 19);
        if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx))
            return false;
        const bool sha = ebx & (1u << 29);
        return ssse3 && sse41 && sha;
    }();
    return available;
}

bool pbkdf2Sha256NiRounds(const quint32 inner[8], const quint32 outer[8], const quint32 u[8], quint32 t[8],
                          quint64 iterations, const std::atomic<bool>* cancel, quint64 cancelCheckInterval)
{
    return rounds(inner, outer, u, t, iterations, cancel, cancelCheckInterval);
}

} // namespace nuvrel::detail

#else

namespace nuvrel::detail {

bool sha256NiAvailable()
{
    return false;
}

bool pbkdf2Sha256NiRounds(const quint32*, const quint32*, const quint32*, quint32*, quint64, const std::atomic<bool>*,
                          quint64)
{
    return false;
}

} // namespace nuvrel::detail

#endif
