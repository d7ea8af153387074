#include "formats/crypto/AesKeyWrap.h"

#include "support/KeyBagWriter.h"

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

TEST(AesKeyWrap, VectorsAndLengthRules)
{
    // RFC 3394, 4.1: 128-bit key data with a 128-bit KEK.
    const QByteArray kek128 = QByteArray::fromHex("000102030405060708090A0B0C0D0E0F");
    EXPECT_EQ(AesKeyWrap::unwrap(kek128, QByteArray::fromHex("1FA68B0A8112B447AEF34BD8FB5A7B829D3E862371D2CFE5")),
              QByteArray::fromHex("00112233445566778899AABBCCDDEEFF"));
    // RFC 3394, 4.6: 256-bit key data with a 256-bit KEK.
    const QByteArray kek256 = QByteArray::fromHex("000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F");
    EXPECT_EQ(AesKeyWrap::unwrap(kek256, QByteArray::fromHex("28C9F404C4B810F4CBCCB35CFB87F8263F5786E2D80ED326"
                                                             "CBC7F0E71A99F43BFB988B9B7A02DD21")),
              QByteArray::fromHex("00112233445566778899AABBCCDDEEFF000102030405060708090A0B0C0D0E0F"));

    const QByteArray wrapped = aesWrap(kek256, pseudoRandomBytes(32, 1));
    EXPECT_TRUE(AesKeyWrap::unwrap(kek256, wrapped));
    QByteArray tampered = wrapped;
    tampered[10] = static_cast<char>(tampered[10] ^ 1);
    EXPECT_FALSE(AesKeyWrap::unwrap(kek256, tampered));
    EXPECT_FALSE(AesKeyWrap::unwrap(kek256, QByteArray(16, 'x')));  // shorter than 24
    EXPECT_FALSE(AesKeyWrap::unwrap(kek256, QByteArray(30, 'x')));  // not a multiple of 8
    EXPECT_FALSE(AesKeyWrap::unwrap(QByteArray(20, 'k'), wrapped)); // 20-byte KEK

    EXPECT_EQ(AesKeyWrap::ecbDecryptBlock(kek128, QByteArray(15, 'x')), QByteArray());
    EXPECT_EQ(AesKeyWrap::ecbDecryptBlock(QByteArray(7, 'k'), QByteArray(16, 'x')), QByteArray());
    // FIPS-197 appendix C.1: AES-128 decrypts its ciphertext back to the plaintext.
    EXPECT_EQ(AesKeyWrap::ecbDecryptBlock(kek128, QByteArray::fromHex("69c4e0d86a7b0430d8cdb78070b4c55a")).toHex(),
              "00112233445566778899aabbccddeeff");
}
