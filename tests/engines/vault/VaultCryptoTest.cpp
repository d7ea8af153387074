#include "engines/vault/VaultCrypto.h"
#include "formats/crypto/AesGcm.h"
#include "support/BackupFixture.h"
#include "support/MediaFixtures.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

constexpr qint64 chunk = VaultCrypto::chunkSize;

// The failure a decryption throws, or nothing when it succeeds.
std::optional<VaultFailure::Kind> failureOf(const QString& sealed, const QString& out, const QByteArray& key)
{
    try {
        VaultCrypto::decryptFile(sealed, out, key);
        return std::nullopt;
    } catch (const VaultFailure& failure) {
        return failure.kind;
    }
}

// An independent reader of the format, in Python's cryptography package: what our writer makes, a
// second implementation opens.
QByteArray decryptedByPython(const QString& sealed, const QByteArray& key)
{
    static const char* script = R"(
import sys
from cryptography.hazmat.primitives.ciphers.aead import AESGCM
key = bytes.fromhex(sys.argv[2])
data = open(sys.argv[1], 'rb').read()
assert data[:4] == b'NVV1'
count = int.from_bytes(data[4:12], 'big')
at, out = 12, b''
for i in range(count):
    length = int.from_bytes(data[at:at + 4], 'big'); at += 4
    box = data[at:at + length]; at += length
    out += AESGCM(key).decrypt(box[:12], box[12:], i.to_bytes(8, 'big'))
assert at == len(data)
sys.stdout.buffer.write(out)
)";
    QProcess python;
    python.start(QStringLiteral("python3"),
                 {QStringLiteral("-c"), QString::fromUtf8(script), sealed, QString::fromLatin1(key.toHex())});
    if (!python.waitForFinished(60'000) || python.exitCode() != 0)
        return QByteArray("python failed: ") + python.readAllStandardError();
    return python.readAllStandardOutput();
}

bool pythonCanDecrypt()
{
    return hasTool(QStringLiteral("python3")) &&
           QProcess::execute(
               QStringLiteral("python3"),
               {QStringLiteral("-c"), QStringLiteral("import cryptography.hazmat.primitives.ciphers.aead")}) == 0;
}

} // namespace

TEST(VaultCrypto, SizesAtTheChunkBoundariesRoundTripAndASecondReaderAgrees)
{
    QTemporaryDir folder;
    const QByteArray key = AesGcm::randomKey();
    ASSERT_EQ(key.size(), 32);
    struct Case
    {
        qint64 size;
        qint64 sealedSize; ///< header, then per chunk its length and 28 bytes of nonce and tag
    };
    for (const Case& each : {Case{0, 12}, Case{1, 12 + 4 + 29}, Case{chunk, 12 + 4 + chunk + 28},
                             Case{chunk + 1, 12 + (4 + chunk + 28) + (4 + 29)},
                             Case{2 * chunk + 12345, 12 + 2 * (4 + chunk + 28) + (4 + 12345 + 28)}}) {
        const QByteArray plain = noise(each.size, quint32(each.size));
        const QString source = folder.filePath(QStringLiteral("plain-%1").arg(each.size));
        const QString sealed = folder.filePath(QStringLiteral("sealed-%1.nvv").arg(each.size));
        const QString back = folder.filePath(QStringLiteral("back-%1").arg(each.size));
        writeFile(source, plain);
        const QByteArray digest = VaultCrypto::encryptFile(source, sealed, key);
        EXPECT_EQ(digest, QCryptographicHash::hash(plain, QCryptographicHash::Sha256)) << each.size;
        EXPECT_EQ(QFileInfo(sealed).size(), each.sealedSize) << each.size;
        struct stat status
        {};
        ASSERT_EQ(::stat(QFile::encodeName(sealed).constData(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600u);
        EXPECT_EQ(VaultCrypto::decryptFile(sealed, back, key), digest);
        EXPECT_EQ(readFile(back), plain) << each.size;
        if (pythonCanDecrypt()) {
            EXPECT_EQ(decryptedByPython(sealed, key), plain) << each.size;
        }
    }
    // Never over an existing file, and a failed run leaves nothing.
    const QString existing = folder.filePath(QStringLiteral("sealed-1.nvv"));
    EXPECT_THROW(VaultCrypto::encryptFile(folder.filePath(QStringLiteral("plain-1")), existing, key), VaultFailure);
    EXPECT_EQ(QFileInfo(existing).size(), 12 + 4 + 29);
    EXPECT_THROW(VaultCrypto::encryptFile(folder.filePath(QStringLiteral("absent")),
                                          folder.filePath(QStringLiteral("x.nvv")), key),
                 VaultFailure);
    EXPECT_FALSE(QFile::exists(folder.filePath(QStringLiteral("x.nvv"))));
}

TEST(VaultCrypto, EveryTamperingIsCaughtAndLeavesNoOutput)
{
    QTemporaryDir folder;
    const QByteArray key = AesGcm::randomKey();
    const QByteArray plain = noise(2 * chunk + 100, 7);
    writeFile(folder.filePath(QStringLiteral("plain")), plain);
    const QString sealed = folder.filePath(QStringLiteral("a.nvv"));
    VaultCrypto::encryptFile(folder.filePath(QStringLiteral("plain")), sealed, key);
    const QByteArray good = readFile(sealed);
    const qint64 record = 4 + chunk + 28;

    const auto attempt = [&](const QByteArray& bytes) {
        const QString path = folder.filePath(QStringLiteral("tampered.nvv"));
        QFile::remove(path);
        writeFile(path, bytes);
        const QString out = folder.filePath(QStringLiteral("out"));
        QFile::remove(out);
        const std::optional<VaultFailure::Kind> kind = failureOf(path, out, key);
        if (kind) {
            EXPECT_FALSE(QFile::exists(out)); // what a refused file began to write is gone
        }
        return kind;
    };
    using Kind = VaultFailure::Kind;
    QByteArray flipped = good;
    flipped[12 + 4 + 500] = char(flipped[12 + 4 + 500] ^ 0x01);
    EXPECT_EQ(attempt(flipped), Kind::Authentication);
    EXPECT_EQ(attempt(good.left(good.size() - 1)), Kind::ShortRead);
    EXPECT_EQ(attempt(good.left(12 + record)), Kind::ShortRead);
    EXPECT_EQ(attempt(good + 'x'), Kind::TrailingData);
    // The first two chunks swapped: each opens only at its own index.
    QByteArray swapped =
        good.left(12) + good.mid(12 + record, record) + good.mid(12, record) + good.mid(12 + 2 * record);
    EXPECT_EQ(attempt(swapped), Kind::Authentication);
    // A count that promises less than there is, or more.
    QByteArray fewer = good;
    fewer.replace(4, 8, VaultCrypto::bigEndian(2, 8));
    EXPECT_EQ(attempt(fewer), Kind::TrailingData);
    QByteArray more = good;
    more.replace(4, 8, VaultCrypto::bigEndian(4, 8));
    EXPECT_EQ(attempt(more), Kind::ShortRead);
    // Box lengths out of bounds are refused before the box is read: 28 holds no byte, one past a
    // chunk cannot be one. The file ends right after the length, so a read would be a short read.
    for (const quint64 length : {quint64(28), quint64(chunk + 29), quint64(0), quint64(0xFFFFFFFF)})
        EXPECT_EQ(attempt(good.left(12) + VaultCrypto::bigEndian(length, 4)), Kind::ChunkLength) << length;
    EXPECT_EQ(attempt(good.left(12) + VaultCrypto::bigEndian(29, 4)), Kind::ShortRead);
    EXPECT_EQ(attempt("NVV2" + good.mid(4)), Kind::BadMagic);
    EXPECT_EQ(attempt("NV"), Kind::BadMagic);
    EXPECT_EQ(attempt("NVV1\0\0\0"), Kind::ShortHeader);
    // Another key.
    EXPECT_EQ(failureOf(sealed, folder.filePath(QStringLiteral("out")), AesGcm::randomKey()), Kind::Authentication);
    // A chunk moved to the same place in another file opens: the plaintext digest is what tells.
    const QString other = folder.filePath(QStringLiteral("b.nvv"));
    writeFile(folder.filePath(QStringLiteral("plain-b")), noise(2 * chunk + 100, 8));
    const QByteArray otherDigest = VaultCrypto::encryptFile(folder.filePath(QStringLiteral("plain-b")), other, key);
    QByteArray mixed = good;
    mixed.replace(12 + record, record, readFile(other).mid(12 + record, record));
    EXPECT_EQ(attempt(mixed), std::nullopt);
    writeFile(folder.filePath(QStringLiteral("mixed.nvv")), mixed);
    EXPECT_NE(VaultCrypto::decryptFile(folder.filePath(QStringLiteral("mixed.nvv")),
                                       folder.filePath(QStringLiteral("m")), key),
              QCryptographicHash::hash(plain, QCryptographicHash::Sha256));
    EXPECT_NE(otherDigest, QCryptographicHash::hash(plain, QCryptographicHash::Sha256));
}

TEST(VaultCrypto, TheIndexIsSealedWholeAndRefusesWhatIsNotAPlainEntry)
{
    const QByteArray key = AesGcm::randomKey();
    VaultEntry passport{QUuid::createUuid(),
                        QStringLiteral("Passeport de Zoé.pdf"),
                        812'345,
                        QDateTime(QDate(2026, 3, 1), QTime(9, 30, 15, 250), Qt::UTC),
                        QStringLiteral("/home/zoe/Documents"),
                        QCryptographicHash::hash("passeport", QCryptographicHash::Sha256)};
    VaultEntry older{QUuid::createUuid(),
                     QStringLiteral("ancien.txt"),
                     0,
                     QDateTime(QDate(2020, 1, 1), QTime(0, 0), Qt::UTC),
                     {},
                     {}};
    const QByteArray sealed = VaultCrypto::sealIndex({passport, older}, key);
    const std::optional<QList<VaultEntry>> opened = VaultCrypto::openIndex(sealed, key);
    ASSERT_TRUE(opened);
    EXPECT_EQ(*opened, (QList<VaultEntry>{passport, older}));
    EXPECT_FALSE(VaultCrypto::openIndex(sealed, AesGcm::randomKey()));
    QByteArray flipped = sealed;
    flipped[20] = char(flipped[20] ^ 0x10);
    EXPECT_FALSE(VaultCrypto::openIndex(flipped, key));
    EXPECT_TRUE(passport.fileName().endsWith(QStringLiteral(".nvv")));
    EXPECT_EQ(passport.fileName().size(), 36 + 4);

    // An index as an older version wrote it opens; one whose names are paths does not.
    const auto sealJson = [&key](const char* json) { return AesGcm::seal(key, QByteArray(json)); };
    const std::optional<QList<VaultEntry>> legacy = VaultCrypto::openIndex(
        sealJson(R"([{"id":"0C1D2E3F-4A5B-6C7D-8E9F-0A1B2C3D4E5F","name":"a.jpg","size":3,"added":700000000.5}])"),
        key);
    ASSERT_TRUE(legacy);
    EXPECT_EQ(legacy->first().added, QDateTime(QDate(2023, 3, 8), QTime(20, 26, 40, 500), Qt::UTC));
    EXPECT_TRUE(legacy->first().sha256.isEmpty());
    for (const char* hostile :
         {R"([{"id":"0C1D2E3F-4A5B-6C7D-8E9F-0A1B2C3D4E5F","name":"../../.bashrc","size":3,"added":1}])",
          R"([{"id":"0C1D2E3F-4A5B-6C7D-8E9F-0A1B2C3D4E5F","name":"..","size":3,"added":1}])",
          R"([{"id":"pas un uuid","name":"a","size":3,"added":1}])",
          R"([{"id":"0C1D2E3F-4A5B-6C7D-8E9F-0A1B2C3D4E5F","name":"a","size":-3,"added":1}])",
          R"([{"id":"0C1D2E3F-4A5B-6C7D-8E9F-0A1B2C3D4E5F","name":"a","size":3,"added":1,"sha256":"abc"}])",
          R"({"id":"0C1D2E3F-4A5B-6C7D-8E9F-0A1B2C3D4E5F"})", "not json"})
        EXPECT_FALSE(VaultCrypto::openIndex(sealJson(hostile), key)) << hostile;
}

TEST(VaultCrypto, FreeNamesAndDurableWrites)
{
    QTemporaryDir folder;
    EXPECT_EQ(VaultCrypto::uniqueName(folder.path(), QStringLiteral("lettre.pdf")), QStringLiteral("lettre.pdf"));
    writeFile(folder.filePath(QStringLiteral("lettre.pdf")), "1");
    writeFile(folder.filePath(QStringLiteral("lettre-2.pdf")), "2");
    EXPECT_EQ(VaultCrypto::uniqueName(folder.path(), QStringLiteral("lettre.pdf")), QStringLiteral("lettre-3.pdf"));
    writeFile(folder.filePath(QStringLiteral("notes")), "n");
    EXPECT_EQ(VaultCrypto::uniqueName(folder.path(), QStringLiteral("notes")), QStringLiteral("notes-2"));
    writeFile(folder.filePath(QStringLiteral(".profile")), "p");
    EXPECT_EQ(VaultCrypto::uniqueName(folder.path(), QStringLiteral(".profile")), QStringLiteral(".profile-2"));

    EXPECT_EQ(VaultCrypto::number(VaultCrypto::bigEndian(0x0102030405060708ULL, 8)), 0x0102030405060708ULL);
    EXPECT_EQ(VaultCrypto::bigEndian(29, 4), QByteArray("\0\0\0\x1d", 4));

    const QString index = folder.filePath(QStringLiteral("index.nvv"));
    EXPECT_TRUE(VaultCrypto::writeDurably(index, "sealed"));
    EXPECT_EQ(readFile(index), QByteArray("sealed"));
    EXPECT_FALSE(VaultCrypto::writeDurably(index, "again")); // never over a file
    EXPECT_EQ(readFile(index), QByteArray("sealed"));
    EXPECT_FALSE(VaultCrypto::writeDurably(folder.filePath(QStringLiteral("absent/index.nvv")), "x"));
}
