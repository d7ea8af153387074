#include "engines/backup/BackupKeyBag.h"

#include "support/KeyBagWriter.h"

#include <QtEndian>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

QByteArray item(const char* tag, const QByteArray& value)
{
    char length[4];
    qToBigEndian<quint32>(static_cast<quint32>(value.size()), length);
    return QByteArray(tag, 4) + QByteArray(length, 4) + value;
}

// Takes a QByteArray so that concatenations (QStringBuilder) convert on the way in.
std::optional<BackupKeyBag> parse(const QByteArray& bytes)
{
    return BackupKeyBag::parse(bytes);
}

const QByteArray classKey3 = pseudoRandomBytes(32, 33);
const QByteArray classKey4 = pseudoRandomBytes(32, 44);

QList<KeyBagClass> usualClasses()
{
    return {{1, pseudoRandomBytes(32, 11)},
            {2, pseudoRandomBytes(32, 22)},
            {3, classKey3},
            {4, classKey4},
            {5, pseudoRandomBytes(32, 55), 1}};
}

} // namespace

TEST(BackupKeyBag, ParsesHeaderAndClassRecords)
{
    const QByteArray bytes = writeKeyBag(QStringLiteral("secret"), usualClasses(), {});
    const std::optional<BackupKeyBag> bag = parse(bytes);
    ASSERT_TRUE(bag);
    EXPECT_TRUE(bag->attrs().contains("SALT"));
    EXPECT_EQ(BackupKeyBag::intValue(bag->attrs().value("ITER")), 10u);
    EXPECT_EQ(bag->attrs().value("UUID"), pseudoRandomBytes(16, 3)); // the header keeps its own identifier
    ASSERT_EQ(bag->classes().size(), 5);
    EXPECT_EQ(BackupKeyBag::intValue(bag->classes()[2].value("CLAS")), 3u);
    EXPECT_TRUE(bag->classes()[2].contains("UUID"));
    EXPECT_TRUE(bag->classKeys().isEmpty());

    EXPECT_EQ(BackupKeyBag::intValue({}), 0u);
    EXPECT_EQ(BackupKeyBag::intValue(QByteArray("\x01\x00", 2)), 256u);
    EXPECT_EQ(BackupKeyBag::intValue(QByteArray(9, '\xFF')), ~quint64(0));
}

TEST(BackupKeyBag, MalformedBagsAreRefused)
{
    const QByteArray header = item("SALT", "salt") + item("ITER", QByteArray("\0\0\0\x0A", 4));
    EXPECT_TRUE(parse(header));
    EXPECT_FALSE(parse(item("SALT", "salt")));                                      // no ITER
    EXPECT_FALSE(parse(item("ITER", QByteArray(4, '\1'))));                         // no SALT
    EXPECT_FALSE(parse(header + "CLAS"));                                           // a tag without its length
    EXPECT_FALSE(parse(header + "WPKY" + QByteArray("\xFF\xFF\xFF\xFF", 4) + "x")); // length past the end
    EXPECT_FALSE(parse(QByteArray()));
    EXPECT_FALSE(parse(pseudoRandomBytes(300, 9)));
    // Round counts that would hold an unlock for hours, or 0, are damage; the phone's own are fine.
    const auto rounds = [](const char* tag, quint32 count) {
        char big[4];
        qToBigEndian(count, big);
        return item(tag, QByteArray(big, 4));
    };
    const QByteArray salt = item("SALT", "salt") + item("DPSL", "dpsl");
    EXPECT_TRUE(parse(salt + rounds("ITER", 10'000) + rounds("DPIC", 10'000'000)));
    EXPECT_TRUE(parse(salt + rounds("ITER", 10'000'000) + rounds("DPIC", 100'000'000)));
    EXPECT_FALSE(parse(salt + rounds("ITER", 10'000'001) + rounds("DPIC", 10'000'000)));
    EXPECT_FALSE(parse(salt + rounds("ITER", 10'000) + rounds("DPIC", 0x80000000u)));
    EXPECT_FALSE(parse(salt + rounds("ITER", 10'000) + rounds("DPIC", 0xFFFFFFFFu)));
    EXPECT_FALSE(parse(salt + rounds("ITER", 0)));
    EXPECT_FALSE(parse(salt + rounds("ITER", 10) + rounds("DPIC", 0)));
    // A class tag before the first class record is the header's own, as the header's "WRAP" is.
    const std::optional<BackupKeyBag> early = parse(header + item("WRAP", QByteArray("\0\0\0\1", 4)));
    ASSERT_TRUE(early);
    EXPECT_TRUE(early->classes().isEmpty());
    EXPECT_EQ(BackupKeyBag::intValue(early->attrs().value("WRAP")), 1u);
}

TEST(BackupKeyBag, UnlocksModernAndOlderBagsAndTellsWrongPasswords)
{
    for (bool modern : {true, false}) {
        KeyBagOptions options;
        options.modern = modern;
        const QByteArray bytes = writeKeyBag(QStringLiteral("Mot de passe é✓"), usualClasses(), options);
        std::optional<BackupKeyBag> bag = parse(bytes);
        ASSERT_TRUE(bag);
        EXPECT_FALSE(bag->unlock(QStringLiteral("mot de passe é✓"))) << modern;
        EXPECT_TRUE(bag->classKeys().isEmpty());
        ASSERT_TRUE(bag->unlock(QStringLiteral("Mot de passe é✓"))) << modern;
        EXPECT_EQ(bag->classKeys().value(3), classKey3);
        EXPECT_EQ(bag->classKeys().value(4), classKey4);
        EXPECT_FALSE(bag->classKeys().contains(5)); // WRAP 1: not wrapped with the password, skipped

        const QByteArray fileKey = pseudoRandomBytes(32, 77);
        const QByteArray stored = wrappedKeyValue(4, classKey4, fileKey);
        EXPECT_EQ(bag->unwrap(*BackupKeyBag::WrappedKey::split(stored)), fileKey);
        EXPECT_FALSE(bag->unwrap(*BackupKeyBag::WrappedKey::split(wrappedKeyValue(9, classKey4, fileKey))));
        EXPECT_FALSE(bag->unwrap(*BackupKeyBag::WrappedKey::split(wrappedKeyValue(3, classKey4, fileKey))));
        EXPECT_FALSE(BackupKeyBag::WrappedKey::split(QByteArray(4, '\4')));
    }
}

TEST(BackupKeyBag, DerivationFollowsTheHeader)
{
    // DPSL without DPIC takes the single SHA-1 step, as older bags do.
    KeyBagOptions older;
    older.modern = false;
    QByteArray bytes = writeKeyBag(QStringLiteral("pw"), {{3, classKey3}}, older);
    bytes += item("DPSL", "ignored salt");
    std::optional<BackupKeyBag> bag = parse(bytes);
    ASSERT_TRUE(bag);
    EXPECT_TRUE(bag->unlock(QStringLiteral("pw")));
    EXPECT_EQ(bag->classKeys().value(3), classKey3);

    // A bag with no wrapped class key unlocks with any password: there is nothing to check it against.
    std::optional<BackupKeyBag> empty = parse(item("SALT", "s") + item("ITER", QByteArray("\0\0\0\1", 4)));
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->unlock(QStringLiteral("anything")));
}

TEST(BackupKeyBag, AsymmetricClassKeysAreRefusedCleanly)
{
    // A 0x48-byte wrapped key unwraps to 64 bytes, which is no AES key: files of that class get no key.
    const QByteArray bigKey = pseudoRandomBytes(64, 5);
    std::optional<BackupKeyBag> bag =
        parse(writeKeyBag(QStringLiteral("pw"), {{2, bigKey, 3, true}, {3, classKey3}}, {}));
    ASSERT_TRUE(bag);
    ASSERT_TRUE(bag->unlock(QStringLiteral("pw")));
    EXPECT_EQ(bag->classKeys().value(2).size(), 64);
    EXPECT_FALSE(bag->unwrap({2, aesWrap(classKey3, pseudoRandomBytes(32, 6))}));
    EXPECT_FALSE(bag->unwrap({3, aesWrap(classKey3, pseudoRandomBytes(40, 6))})); // a 40-byte "key"
}

TEST(BackupKeyBag, CancelledUnlockReturnsFalseQuickly)
{
    KeyBagOptions options;
    options.firstIterations = 1;
    QByteArray bytes = writeKeyBag(QStringLiteral("pw"), {{3, classKey3}}, options);
    // Rewrite DPIC to the phone's ten million; a raised flag must stop the work at once.
    std::optional<BackupKeyBag> bag = parse(bytes + item("DPIC", QByteArray("\x00\x98\x96\x80", 4)));
    ASSERT_TRUE(bag);
    std::atomic<bool> cancel{true};
    EXPECT_FALSE(bag->unlock(QStringLiteral("pw"), &cancel));
    EXPECT_TRUE(bag->classKeys().isEmpty());
}
