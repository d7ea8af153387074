// Folders made into one archive each for the phone, checked with unzip, an independent reader.

#include "engines/transfer/TransferPrep.h"
#include "support/BackupFixture.h"
#include "support/MediaFixtures.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

QByteArray output(const QStringList& arguments)
{
    QProcess unzip;
    unzip.start(QStringLiteral("unzip"), arguments);
    unzip.waitForFinished(60'000);
    return unzip.readAllStandardOutput();
}

} // namespace

TEST(TransferPrep, FoldersBecomeOneArchiveEachAndLinksAreNeverFollowed)
{
    if (!hasTool(QStringLiteral("unzip")))
        GTEST_SKIP() << "unzip is not installed";
    QTemporaryDir root;
    const QString photos = root.filePath(QStringLiteral("Photos"));
    const QByteArray picture = noise(300'000, 5);
    writeFile(photos + QStringLiteral("/IMG_0001.JPG"), picture);
    writeFile(photos + QStringLiteral("/notes été.txt"), QByteArray(100'000, 'a'));
    writeFile(photos + QStringLiteral("/sous-dossier/c.txt"), QByteArrayLiteral("c"));
    QDir().mkpath(photos + QStringLiteral("/vide"));
    ASSERT_TRUE(QFile::link(QStringLiteral("/etc/passwd"), photos + QStringLiteral("/lien")));
    const QString otherPhotos = root.filePath(QStringLiteral("Autre/Photos"));
    writeFile(otherPhotos + QStringLiteral("/x.txt"), QByteArrayLiteral("x"));
    const QString plain = root.filePath(QStringLiteral("film.mov"));
    writeFile(plain, QByteArrayLiteral("film"));
    const QString link = root.filePath(QStringLiteral("raccourci"));
    ASSERT_TRUE(QFile::link(photos, link));

    QString folder;
    {
        TransferPrep prep;
        folder = prep.folder();
        qint64 lastDone = -1;
        const TransferPrep::Result result =
            prep.prepare({plain, photos, link, otherPhotos, root.filePath(QStringLiteral("absent"))},
                         [&lastDone](qint64 done, qint64 total) {
                             EXPECT_LE(done, total);
                             lastDone = done;
                         });
        ASSERT_EQ(result.files.size(), 3);
        EXPECT_EQ(result.files[0].path, plain);
        EXPECT_EQ(result.files[1].name, QStringLiteral("Photos.zip"));
        EXPECT_EQ(result.files[2].name, QStringLiteral("Photos (2).zip"));
        EXPECT_EQ(result.failed, (QStringList{link, root.filePath(QStringLiteral("absent"))}));
        EXPECT_GE(lastDone, 0);
        EXPECT_TRUE(result.files[1].path.startsWith(folder));
        EXPECT_EQ(result.files[1].size, QFileInfo(result.files[1].path).size());

        const QString archive = result.files[1].path;
        const QStringList names =
            QString::fromUtf8(output({QStringLiteral("-Z1"), archive})).split(u'\n', Qt::SkipEmptyParts);
        EXPECT_TRUE(names.contains(QStringLiteral("Photos/IMG_0001.JPG")));
        EXPECT_TRUE(names.contains(QStringLiteral("Photos/notes été.txt")));
        EXPECT_TRUE(names.contains(QStringLiteral("Photos/sous-dossier/c.txt")));
        EXPECT_TRUE(names.contains(QStringLiteral("Photos/vide/")));
        EXPECT_FALSE(names.contains(QStringLiteral("Photos/lien")));
        // The photo stored as it is, the text deflated; every byte back.
        const QString details = QString::fromUtf8(output({QStringLiteral("-Zv"), archive}));
        EXPECT_TRUE(details.contains(QStringLiteral("compression method:                             none (stored)")));
        EXPECT_TRUE(details.contains(QStringLiteral("deflated")));
        EXPECT_TRUE(output({QStringLiteral("-p"), archive, QStringLiteral("Photos/IMG_0001.JPG")}) == picture);

        // Stopped before anything: nothing prepared.
        std::atomic<bool> cancel{true};
        EXPECT_TRUE(prep.prepare({photos}, {}, &cancel).cancelled);
    }
    // The archives go with the run.
    EXPECT_FALSE(QFileInfo::exists(folder));
}
