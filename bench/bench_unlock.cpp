// Unlocking a modern key bag (DPIC 10,000,000 SHA-256 iterations, then ITER 10,000 SHA-1) against
// OpenSSL's PKCS5_PBKDF2_HMAC doing the same two derivations, and against the floor set by the
// SHA-256 compression function itself: two compressions per iteration, 20,000,000 in all.
//   build/default/bench/bench_unlock

#include "engines/backup/BackupKeyBag.h"

#include "support/KeyBagWriter.h"

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <benchmark/benchmark.h>

namespace {

constexpr quint32 phoneFirstIterations = 10'000'000;
constexpr quint32 phoneIterations = 10'000;

void Sha256CompressionBound(benchmark::State& state)
{
    SHA256_CTX context;
    SHA256_Init(&context);
    unsigned char block[64] = {1, 2, 3};
    for (auto _ : state) {
        for (quint32 i = 0; i < 2 * phoneFirstIterations; ++i)
            SHA256_Transform(&context, block);
        benchmark::DoNotOptimize(context.h[0]);
    }
}

void UnlockKeyBag(benchmark::State& state)
{
    nuvrel::test::KeyBagOptions options;
    options.firstIterations = phoneFirstIterations;
    options.iterations = phoneIterations;
    const QByteArray bytes = nuvrel::test::writeKeyBag(QStringLiteral("correct horse"),
                                                       {{3, nuvrel::test::pseudoRandomBytes(32, 3)}}, options);
    for (auto _ : state) {
        std::optional<nuvrel::BackupKeyBag> bag = nuvrel::BackupKeyBag::parse(bytes);
        if (!bag || !bag->unlock(QStringLiteral("correct horse")))
            state.SkipWithError("unlock failed");
    }
}

void OpenSslPbkdf2(benchmark::State& state)
{
    const QByteArray firstSalt = nuvrel::test::pseudoRandomBytes(20, 2);
    const QByteArray salt = nuvrel::test::pseudoRandomBytes(20, 1);
    unsigned char first[32];
    unsigned char key[32];
    for (auto _ : state) {
        PKCS5_PBKDF2_HMAC("correct horse", 13, reinterpret_cast<const unsigned char*>(firstSalt.constData()), 20,
                          phoneFirstIterations, EVP_sha256(), 32, first);
        PKCS5_PBKDF2_HMAC(reinterpret_cast<const char*>(first), 32,
                          reinterpret_cast<const unsigned char*>(salt.constData()), 20, phoneIterations, EVP_sha1(), 32,
                          key);
        benchmark::DoNotOptimize(key[0]);
    }
}

} // namespace

BENCHMARK(Sha256CompressionBound)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(UnlockKeyBag)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(OpenSslPbkdf2)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK_MAIN();
