#include "formats/crypto/Pbkdf2.h"

#include "support/KeyBagWriter.h"

#include <QRandomGenerator>

#include <openssl/evp.h>

#include <gtest/gtest.h>

using namespace nuvrel;
using Hash = Pbkdf2::Hash;

namespace {

// Both engines must give every answer; on a processor without SHA extensions they are the same code.
class Pbkdf2Engines : public testing::TestWithParam<Pbkdf2::Engine>
{
protected:
    QByteArray derive(Hash hash, const QByteArray& password, const QByteArray& salt, quint64 iterations,
                      int length) const
    {
        return Pbkdf2::derive(hash, password, salt, iterations, length, nullptr, GetParam())
            .value_or(QByteArray("cancelled"));
    }
};

QByteArray openssl(Hash hash, const QByteArray& password, const QByteArray& salt, int iterations, int length)
{
    QByteArray out(length, Qt::Uninitialized);
    PKCS5_PBKDF2_HMAC(password.constData(), static_cast<int>(password.size()),
                      reinterpret_cast<const unsigned char*>(salt.constData()), static_cast<int>(salt.size()),
                      iterations, hash == Hash::Sha1 ? EVP_sha1() : EVP_sha256(), length,
                      reinterpret_cast<unsigned char*>(out.data()));
    return out;
}

} // namespace

TEST_P(Pbkdf2Engines, PublishedVectors)
{
    // RFC 6070 (HMAC-SHA1).
    const QByteArray password("password");
    const QByteArray salt("salt");
    EXPECT_EQ(derive(Hash::Sha1, password, salt, 1, 20).toHex(), "0c60c80f961f0e71f3a9b524af6012062fe037a6");
    EXPECT_EQ(derive(Hash::Sha1, password, salt, 2, 20).toHex(), "ea6c014dc72d6f8ccd1ed92ace1d41f0d8de8957");
    EXPECT_EQ(derive(Hash::Sha1, password, salt, 4096, 20).toHex(), "4b007901b765489abead49d926f721d065a429c1");
    EXPECT_EQ(derive(Hash::Sha1, "passwordPASSWORDpassword", "saltSALTsaltSALTsaltSALTsaltSALTsalt", 4096, 25).toHex(),
              "3d2eec4fe41c849b80c8d83662c0e44a8b291a964cf2f07038");
    EXPECT_EQ(derive(Hash::Sha1, QByteArray("pass\0word", 9), QByteArray("sa\0lt", 5), 4096, 16).toHex(),
              "56fa6aa75548099dcc37d7f03425e0c3");
    // RFC 7914, section 11 (HMAC-SHA256).
    EXPECT_EQ(derive(Hash::Sha256, "passwd", "salt", 1, 64).toHex(),
              "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
              "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783");
    EXPECT_EQ(derive(Hash::Sha256, "Password", "NaCl", 80000, 64).toHex(),
              "4ddcd8f60b98be21830cee5ef22701f9641a4418d04c0414aeff08876b34ab56"
              "a1d425a1225833549adb841b51c9b3176a272bdebba1d078478f62b397f33c8d");
}

TEST_P(Pbkdf2Engines, AgreesWithOpenSslOnRandomParameters)
{
    QRandomGenerator random(6070);
    for (int round = 0; round < 300; ++round) {
        // Passwords longer than a block are hashed first; lengths over a digest need several blocks.
        const QByteArray password = test::pseudoRandomBytes(random.bounded(150), random.generate());
        const QByteArray salt = test::pseudoRandomBytes(random.bounded(70), random.generate());
        const int iterations = 1 + static_cast<int>(random.bounded(300));
        const int length = 1 + static_cast<int>(random.bounded(100));
        const Hash hash = round % 2 ? Hash::Sha1 : Hash::Sha256;
        ASSERT_EQ(derive(hash, password, salt, iterations, length), openssl(hash, password, salt, iterations, length))
            << "round " << round;
    }
}

TEST_P(Pbkdf2Engines, CancellationStopsALongDerivation)
{
    std::atomic<bool> cancel{true};
    EXPECT_FALSE(Pbkdf2::derive(Hash::Sha256, "pw", "salt", 10'000'000, 32, &cancel, GetParam()));
    // A short derivation may finish before the flag is looked at; a lowered flag never stops it.
    cancel = false;
    EXPECT_EQ(Pbkdf2::derive(Hash::Sha256, "pw", "salt", 70'000, 32, &cancel, GetParam()),
              openssl(Hash::Sha256, "pw", "salt", 70'000, 32));
}

INSTANTIATE_TEST_SUITE_P(FastestAndPortable, Pbkdf2Engines,
                         testing::Values(Pbkdf2::Engine::Fastest, Pbkdf2::Engine::Portable),
                         [](const testing::TestParamInfo<Pbkdf2::Engine>& engine) {
                             return engine.param == Pbkdf2::Engine::Fastest ? "Fastest" : "Portable";
                         });
