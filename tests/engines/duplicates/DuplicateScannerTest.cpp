#include "engines/duplicates/DuplicateScanner.h"
#include "support/BackupFixture.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace nuvrel;
using nuvrel::test::noise;
using nuvrel::test::writeFile;

namespace {

QStringList names(const QList<DupFile>& files, const QString& root)
{
    QStringList result;
    for (const DupFile& file : files)
        result.append(QDir(root).relativeFilePath(file.path));
    return result;
}

// A sparse file of `size` bytes, zeros but for `marks` (offset, byte).
void sparse(const QString& path, qint64 size, const QList<QPair<qint64, char>>& marks)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_TRUE(file.resize(size));
    for (const auto& [offset, byte] : marks) {
        ASSERT_TRUE(file.seek(offset));
        file.write(&byte, 1);
    }
}

} // namespace

TEST(DuplicateScanner, ListingSkipsWhatIsNoCopyAndNeverLoops)
{
    QTemporaryDir root;
    writeFile(root.filePath(QStringLiteral("a.jpg")), "photo");
    writeFile(root.filePath(QStringLiteral("sub/b.txt")), "texte");
    writeFile(root.filePath(QStringLiteral(".cache/c.txt")), "caché");
    writeFile(root.filePath(QStringLiteral(".hidden.txt")), "caché");
    writeFile(root.filePath(QStringLiteral("vide.txt")), "");
    writeFile(root.filePath(QStringLiteral("Outil.app/Contents/Info.plist")), "<plist/>");
    ASSERT_EQ(::link(QFile::encodeName(root.filePath(QStringLiteral("a.jpg"))).constData(),
                     QFile::encodeName(root.filePath(QStringLiteral("sub/a-link.jpg"))).constData()),
              0);
    ASSERT_TRUE(QFile::link(root.filePath(QStringLiteral("a.jpg")), root.filePath(QStringLiteral("symbolic.jpg"))));
    ASSERT_TRUE(QFile::link(root.path(), root.filePath(QStringLiteral("sub/loop"))));
    ASSERT_EQ(::mkfifo(QFile::encodeName(root.filePath(QStringLiteral("pipe"))).constData(), 0600), 0);

    const DupListing listing = DuplicateScanner::listFiles(root.path());
    // The hard link is the same file: listed once, under its first name.
    EXPECT_EQ(names(listing.files, root.path()), (QStringList{QStringLiteral("a.jpg"), QStringLiteral("sub/b.txt")}));
    EXPECT_EQ(listing.skippedBundles, 1);
    EXPECT_EQ(listing.files[0].size, 5);
    EXPECT_TRUE(listing.files[0].created.isValid());
    EXPECT_TRUE(DuplicateScanner::exactGroups(listing.files).isEmpty());

    // A folder with one file, and a missing one, give nothing.
    EXPECT_TRUE(DuplicateScanner::listFiles(root.filePath(QStringLiteral("nothing"))).files.isEmpty());
    EXPECT_EQ(DuplicateScanner::listFiles(root.filePath(QStringLiteral("nothing"))).unreadable, 1);
}

TEST(DuplicateScanner, SameContentsGroupTheRestDoNotAndTheOrderIsKept)
{
    QTemporaryDir root;
    const QByteArray big = noise(200'000, 1);
    const QByteArray small = noise(30'000, 2);
    // Created in this order: the first copy of each is the one to keep.
    writeFile(root.filePath(QStringLiteral("2019/big.mov")), big);
    writeFile(root.filePath(QStringLiteral("small.jpg")), small);
    QThread::msleep(20);
    writeFile(root.filePath(QStringLiteral("copies/big (2).mov")), big);
    writeFile(root.filePath(QStringLiteral("copies/small copie.jpg")), small);
    writeFile(root.filePath(QStringLiteral("copies/small encore.jpg")), small);
    // Same sizes, other contents: differing in the middle (past the edges read first), and at the start.
    QByteArray middle = big;
    middle[100'000] = char(middle[100'000] ^ 1);
    writeFile(root.filePath(QStringLiteral("other/big-middle.mov")), middle);
    QByteArray start = small;
    start[0] = char(start[0] ^ 1);
    writeFile(root.filePath(QStringLiteral("other/small-start.jpg")), start);

    const DupListing listing = DuplicateScanner::listFiles(root.path());
    ASSERT_EQ(listing.files.size(), 7);
    QList<qint64> reported;
    const QList<QList<DupFile>> groups =
        DuplicateScanner::exactGroups(listing.files, [&reported](qint64 done, qint64) { reported.append(done); });
    ASSERT_EQ(groups.size(), 2);
    // 2 × 200,000 bytes weigh more than 3 × 30,000.
    EXPECT_EQ(names(groups[0], root.path()),
              (QStringList{QStringLiteral("2019/big.mov"), QStringLiteral("copies/big (2).mov")}));
    EXPECT_EQ(names(groups[1], root.path()).first(), QStringLiteral("small.jpg"));
    EXPECT_EQ(groups[1].size(), 3);
    // Only the files whose edges agree were read through, a set at a time: the five copies and the one
    // changed in the middle, not the one changed at its start.
    EXPECT_EQ(reported, (QList<qint64>{3, 6}));

    // A file gone between listing and comparing is in no group, and counted; the rest still group.
    QFile::remove(root.filePath(QStringLiteral("copies/big (2).mov")));
    int unreadable = 0;
    const QList<QList<DupFile>> after = DuplicateScanner::exactGroups(listing.files, {}, nullptr, &unreadable);
    ASSERT_EQ(after.size(), 1);
    EXPECT_EQ(after[0].size(), 3);
    EXPECT_EQ(unreadable, 1);

    // Stopped: nothing.
    std::atomic<bool> cancel{true};
    EXPECT_TRUE(DuplicateScanner::exactGroups(listing.files, {}, &cancel).isEmpty());
}

TEST(DuplicateScanner, FingerprintsAreSha256AndLargeFilesAreSampled)
{
    QTemporaryDir root;
    const QString small = root.filePath(QStringLiteral("small.bin"));
    writeFile(small, noise(5'000'000, 3));
    // The whole file's SHA-256, as sha256sum computes it.
    QProcess sha256sum;
    sha256sum.start(QStringLiteral("sha256sum"), {small});
    ASSERT_TRUE(sha256sum.waitForFinished());
    EXPECT_EQ(DuplicateScanner::fingerprint(small, 5'000'000),
              QString::fromLatin1(sha256sum.readAllStandardOutput().left(64)));
    EXPECT_FALSE(DuplicateScanner::fingerprint(root.filePath(QStringLiteral("absent")), 10));
    // Shorter than it was listed: not a whole read, no fingerprint.
    EXPECT_FALSE(DuplicateScanner::fingerprint(small, 6'000'000));

    // Over 300,000,000 bytes: the start, the middle and the end only. Sparse, so this costs no disk.
    constexpr qint64 size = 320'000'001;
    constexpr qint64 sample = DuplicateScanner::sampleBytes;
    const QString a = root.filePath(QStringLiteral("a.img"));
    const QString b = root.filePath(QStringLiteral("b.img"));
    const QString c = root.filePath(QStringLiteral("c.img"));
    const QList<QPair<qint64, char>> shared{{10, 'x'}, {size / 2 + 5, 'y'}, {size - 3, 'z'}};
    sparse(a, size, shared + QList<QPair<qint64, char>>{{100'000'000, 'a'}});
    sparse(b, size, shared + QList<QPair<qint64, char>>{{100'000'000, 'b'}});           // differs between the samples
    sparse(c, size, shared + QList<QPair<qint64, char>>{{size / 2 + sample - 1, 'c'}}); // inside one
    QCryptographicHash expected(QCryptographicHash::Sha256);
    QFile file(a);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    for (qint64 offset : {qint64(0), size / 2, size - sample}) {
        file.seek(offset);
        expected.addData(file.read(sample));
    }
    EXPECT_EQ(DuplicateScanner::fingerprint(a, size), QString::fromLatin1(expected.result().toHex()));

    const QList<QList<DupFile>> groups = DuplicateScanner::exactGroups(DuplicateScanner::listFiles(root.path()).files);
    ASSERT_EQ(groups.size(), 1);
    EXPECT_EQ(names(groups[0], root.path()), (QStringList{QStringLiteral("a.img"), QStringLiteral("b.img")}));
}

TEST(DuplicateScanner, SetsWithOneSizeAndEdgesSplitByContentsAndCarryEachFingerprint)
{
    QTemporaryDir root;
    const auto variant = [](qsizetype size, quint32 seed, char middle) {
        QByteArray bytes = noise(size, seed);
        bytes[size / 2] = middle;
        return bytes;
    };
    // One size and one pair of edges, three contents, compared side by side.
    for (const auto& [name, middle] :
         {QPair<const char*, char>{"a1", 'a'}, {"b1", 'b'}, {"a2", 'a'}, {"c1", 'c'}, {"b2", 'b'}})
        writeFile(root.filePath(QStringLiteral("side/%1.bin").arg(QLatin1StringView(name))),
                  variant(50'000, 9, middle));
    // More files of one set than are ever held open at once: hashed one by one instead.
    for (int i = 0; i < 300; ++i)
        writeFile(root.filePath(QStringLiteral("many/%1.bin").arg(i, 3, 10, QLatin1Char('0'))),
                  variant(9'000, 10, i % 2 ? 'x' : 'y'));
    // Small enough that the edges are the whole file.
    for (int i = 0; i < 3; ++i)
        writeFile(root.filePath(QStringLiteral("tiny/%1.txt").arg(i)), "trois fois le même texte");

    int unreadable = 0;
    const QList<QList<DupFile>> groups =
        DuplicateScanner::exactGroups(DuplicateScanner::listFiles(root.path()).files, {}, nullptr, &unreadable);
    EXPECT_EQ(unreadable, 0);
    QMap<QString, QStringList> byName;
    for (const QList<DupFile>& group : groups) {
        QStringList members = names(group, root.path());
        members.sort();
        byName[members.first()] = members;
        for (const DupFile& file : group) {
            // The fingerprint taken while comparing is the one a later check computes.
            EXPECT_EQ(file.fingerprint, DuplicateScanner::fingerprint(file.path, file.size)) << qPrintable(file.path);
            EXPECT_EQ(file.fingerprint, group.first().fingerprint);
        }
    }
    ASSERT_EQ(groups.size(), 5);
    EXPECT_EQ(byName.value(QStringLiteral("side/a1.bin")),
              (QStringList{QStringLiteral("side/a1.bin"), QStringLiteral("side/a2.bin")}));
    EXPECT_EQ(byName.value(QStringLiteral("side/b1.bin")),
              (QStringList{QStringLiteral("side/b1.bin"), QStringLiteral("side/b2.bin")}));
    EXPECT_EQ(byName.value(QStringLiteral("many/000.bin")).size(), 150);
    EXPECT_EQ(byName.value(QStringLiteral("many/001.bin")).size(), 150);
    EXPECT_EQ(byName.value(QStringLiteral("tiny/0.txt")).size(), 3);
}
