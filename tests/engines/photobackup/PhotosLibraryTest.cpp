#include "engines/photobackup/PhotosLibrary.h"
#include "engines/photobackup/LibraryBackup.h"
#include "support/FolderSnapshot.h"
#include "support/PhotosLibraryFixture.h"
#include "support/PlistWriter.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

const QDateTime now(QDate(2026, 11, 24), QTime(12, 0));

QStringList strings(std::initializer_list<const char*> texts)
{
    QStringList out;
    for (const char* text : texts)
        out.append(QString::fromUtf8(text));
    return out;
}

bool writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

const QString photoUuid = QStringLiteral("A1B2C3D4-0000-4000-8000-000000000001");
const QString videoUuid = QStringLiteral("B1B2C3D4-0000-4000-8000-000000000002");
const QString liveUuid = QStringLiteral("C1B2C3D4-0000-4000-8000-000000000003");
const QString cloudUuid = QStringLiteral("D1B2C3D4-0000-4000-8000-000000000004");
const QString trashUuid = QStringLiteral("E1B2C3D4-0000-4000-8000-000000000005");
const QString hostileUuid = QStringLiteral("F1B2C3D4-0000-4000-8000-000000000006");

// One library of each kind of asset: an edited photo, an edited video, a Live Photo, an original kept
// only in iCloud, one in the trash, and rows that try to point outside the package.
void fill(LibraryBuilder& library)
{
    library.add({photoUuid, QStringLiteral("A"), photoUuid + QStringLiteral(".heic"),
                 appleSeconds(QDateTime(QDate(2024, 3, 5), QTime(9, 0))), 0, 0, true, false,
                 QStringLiteral("IMG_0001.HEIC")});
    library.file(QStringLiteral("originals/A/") + photoUuid + QStringLiteral(".heic"), "original photo");
    library.file(QStringLiteral("resources/renders/A/") + photoUuid + QStringLiteral("_1_201_a.jpeg"), "edited photo");

    library.add({videoUuid, QStringLiteral("B"), videoUuid + QStringLiteral(".mov"),
                 appleSeconds(QDateTime(QDate(2023, 8, 1), QTime(9, 0))), 1, 0, true, false,
                 QStringLiteral("IMG_0002.MOV")});
    library.file(QStringLiteral("originals/B/") + videoUuid + QStringLiteral(".mov"), "original video");
    library.file(QStringLiteral("resources/renders/B/") + videoUuid + QStringLiteral("_2_0_a.mov"), "edited video");

    library.add({liveUuid, QStringLiteral("C"), liveUuid + QStringLiteral(".jpeg"),
                 appleSeconds(QDateTime(QDate(2024, 3, 6), QTime(9, 0))), 0, 2, false, false,
                 QStringLiteral("IMG_0003.JPG")});
    library.file(QStringLiteral("originals/C/") + liveUuid + QStringLiteral(".jpeg"), "live still");
    library.file(QStringLiteral("originals/C/") + liveUuid + QStringLiteral("_3.mov"), "live motion");

    library.add({cloudUuid, QStringLiteral("D"), cloudUuid + QStringLiteral(".heic"), QVariant(), 0, 0, false, false,
                 QStringLiteral("IMG_0004.HEIC")});

    library.add({trashUuid, QStringLiteral("E"), trashUuid + QStringLiteral(".heic"),
                 appleSeconds(QDateTime(QDate(2024, 1, 1), QTime(9, 0))), 0, 0, false, true,
                 QStringLiteral("GONE.HEIC")});
    library.file(QStringLiteral("originals/E/") + trashUuid + QStringLiteral(".heic"), "trashed");

    library.add({hostileUuid, QStringLiteral(".."), QStringLiteral("../../secret"),
                 appleSeconds(QDateTime(QDate(2022, 2, 2), QTime(9, 0))), 0, 0, false, false,
                 QStringLiteral("../../../evil.jpg")});
    library.add({QStringLiteral("../../etc"),
                 QStringLiteral("A"),
                 QStringLiteral("x.jpg"),
                 QVariant(1.0),
                 0,
                 0,
                 false,
                 false,
                 {}});
}

} // namespace

TEST(PhotosLibrary, BothGenerationsListTheSameResourcesAndNoPathLeavesThePackage)
{
    for (const char* table : {"ZGENERICASSET", "ZASSET"}) {
        QTemporaryDir folder;
        const QString package = folder.filePath(QStringLiteral("Photos Library.photoslibrary"));
        {
            LibraryBuilder library(package, table, qstrcmp(table, "ZASSET") == 0 ? 17120 : 13703);
            fill(library);
        }
        const QMap<QString, QByteArray> before = snapshot(package);
        ASSERT_TRUE(PhotosLibrary::isLibrary(package));
        const QList<LibraryAsset> assets = PhotosLibrary::readAssets(package);
        EXPECT_EQ(snapshot(package), before) << "the package was written";
        ASSERT_EQ(assets.size(), 5) << table; // the trashed one and the one without a real UUID are left out

        // Undated first, then by date.
        EXPECT_EQ(assets[0].uuid, cloudUuid);
        EXPECT_EQ(assets[1].uuid, hostileUuid);
        EXPECT_EQ(assets[2].uuid, videoUuid);
        EXPECT_EQ(assets[3].uuid, photoUuid);
        EXPECT_EQ(assets[4].uuid, liveUuid);

        const LibraryAsset& photo = assets[3];
        ASSERT_EQ(photo.resources.size(), 2);
        EXPECT_EQ(photo.resources[0].type, ResourceType::Photo);
        EXPECT_EQ(photo.resources[0].displayName, QStringLiteral("IMG_0001.HEIC"));
        EXPECT_EQ(photo.resources[1].type, ResourceType::FullSizePhoto);
        EXPECT_EQ(photo.resources[1].displayName, QStringLiteral("IMG_0001-modifiee.jpeg"));
        EXPECT_EQ(photo.key(photo.resources[1]), photoUuid + QStringLiteral("/L0/001|5"));
        EXPECT_EQ(photo.created, QDateTime(QDate(2024, 3, 5), QTime(9, 0)));

        const LibraryAsset& video = assets[2];
        ASSERT_EQ(video.resources.size(), 2);
        EXPECT_EQ(video.resources[1].type, ResourceType::FullSizeVideo);
        EXPECT_EQ(video.resources[1].displayName, QStringLiteral("IMG_0002-modifiee.mov"));

        const LibraryAsset& live = assets[4];
        ASSERT_EQ(live.resources.size(), 2);
        EXPECT_EQ(live.resources[1].type, ResourceType::PairedVideo);
        EXPECT_EQ(live.resources[1].displayName, QStringLiteral("IMG_0003.MOV"));

        for (const LibraryAsset& asset : assets) {
            for (const LibraryResource& resource : asset.resources) {
                EXPECT_TRUE(resource.path.startsWith(package + u'/')) << resource.path.toStdString();
                EXPECT_FALSE(resource.path.contains(QStringLiteral("/../"))) << resource.path.toStdString();
                EXPECT_FALSE(resource.displayName.contains(u'/')) << resource.displayName.toStdString();
            }
        }
    }
}

TEST(PhotosLibrary, OtherGenerationsAndBrokenDatabasesAreRefusedPlainly)
{
    QTemporaryDir folder;
    const auto refusal = [](const QString& package) {
        try {
            PhotosLibrary::readAssets(package);
        } catch (const PhotosLibraryError& error) {
            EXPECT_FALSE(error.message().isEmpty());
            return std::optional(error.kind());
        }
        return std::optional<PhotosLibraryError::Kind>();
    };
    // Photos 4 and before.
    const QString old = folder.filePath(QStringLiteral("old.photoslibrary"));
    ASSERT_TRUE(writeFile(old + QStringLiteral("/database/photos.db"), "SQLite format 3"));
    EXPECT_EQ(refusal(old), PhotosLibraryError::Kind::Unsupported);
    // A model version out of the range read, or none at all.
    for (const qint64 version : {qint64(6000), qint64(25000), qint64(-1)}) {
        const QString package = folder.filePath(QStringLiteral("v%1.photoslibrary").arg(version));
        LibraryBuilder library(package, "ZASSET", version);
        if (version < 0)
            library.exec("DELETE FROM Z_METADATA");
        EXPECT_EQ(refusal(package), PhotosLibraryError::Kind::Unsupported) << version;
    }
    // The right version but a table without what we read.
    {
        const QString package = folder.filePath(QStringLiteral("columns.photoslibrary"));
        LibraryBuilder library(package, "ZASSET", 16000);
        library.exec("ALTER TABLE ZASSET RENAME COLUMN ZDIRECTORY TO ZSOMETHINGELSE");
        EXPECT_EQ(refusal(package), PhotosLibraryError::Kind::Unsupported);
    }
    // Not a database, or not a library.
    const QString garbage = folder.filePath(QStringLiteral("garbage.photoslibrary"));
    ASSERT_TRUE(writeFile(garbage + QStringLiteral("/database/Photos.sqlite"), QByteArray(4096, 'g')));
    EXPECT_EQ(refusal(garbage), PhotosLibraryError::Kind::Unreadable);
    EXPECT_EQ(refusal(folder.filePath(QStringLiteral("nothing"))), PhotosLibraryError::Kind::NotALibrary);
    EXPECT_FALSE(PhotosLibrary::isLibrary(folder.filePath(QStringLiteral("nothing"))));
}

TEST(LibraryBackup, EveryResourceOnceInMonthFoldersAndICloudOnlyOriginalsFailPlainly)
{
    QTemporaryDir folder;
    const QString package = folder.filePath(QStringLiteral("Photos Library.photoslibrary"));
    {
        LibraryBuilder library(package, "ZASSET", 17120);
        fill(library);
    }
    const QList<LibraryAsset> assets = PhotosLibrary::readAssets(package);
    const QString destination = folder.filePath(QStringLiteral("Sauvegarde"));
    LibraryBackupOptions options;
    options.now = now;
    options.availableBytes = LibraryBackup::minimumFreeBytes;
    QList<LibraryProgress> seen;
    const LibraryOutcome first = LibraryBackup::run(
        package, assets, destination, [&](const LibraryProgress& progress) { seen.append(progress); }, nullptr,
        options);
    EXPECT_EQ(first.end, LibraryOutcome::End::Finished);
    EXPECT_EQ(first.copied, 6);
    EXPECT_EQ(first.failed, 2); // the iCloud original and the hostile row's missing file
    ASSERT_EQ(seen.size(), 8);
    EXPECT_EQ(seen.last().done, 7);
    EXPECT_EQ(seen.last().total, 8);

    QStringList entries = allEntries(destination);
    entries.sort();
    EXPECT_EQ(entries,
              strings({".Nuvrel-ignores.json", "2023-08", "2023-08/IMG_0002-modifiee.mov", "2023-08/IMG_0002.MOV",
                       "2024-03", "2024-03/IMG_0001-modifiee.jpeg", "2024-03/IMG_0001.HEIC", "2024-03/IMG_0003.JPG",
                       "2024-03/IMG_0003.MOV", "Nuvrel-echecs-photos.txt"}));
    EXPECT_EQ(readAll(destination + QStringLiteral("/2024-03/IMG_0001-modifiee.jpeg")), QByteArray("edited photo"));
    EXPECT_EQ(readAll(destination + QStringLiteral("/2024-03/IMG_0003.MOV")), QByteArray("live motion"));
    EXPECT_EQ(QFileInfo(destination + QStringLiteral("/2024-03/IMG_0001.HEIC")).lastModified(),
              QDateTime(QDate(2024, 3, 5), QTime(9, 0)));
    const QString failures = QString::fromUtf8(readAll(destination + u'/' + LibraryBackup::failListName()));
    EXPECT_TRUE(failures.startsWith(QStringLiteral("IMG_0004.HEIC : "))) << failures.toStdString();
    EXPECT_TRUE(failures.contains(QStringLiteral("iCloud")));

    // Again: everything saved is skipped; the failures are tried again.
    const LibraryOutcome second = LibraryBackup::run(package, assets, destination, {}, nullptr, options);
    EXPECT_EQ(second.copied, 0);
    EXPECT_EQ(second.skipped, 6);
    EXPECT_EQ(second.failed, 2);

    // A record that cannot be read: files come again under "-2" names, none is replaced.
    ASSERT_TRUE(writeFile(destination + u'/' + LibraryBackup::recordName(), "not json"));
    const LibraryOutcome third = LibraryBackup::run(package, assets, destination, {}, nullptr, options);
    EXPECT_EQ(third.copied, 6);
    EXPECT_EQ(readAll(destination + QStringLiteral("/2024-03/IMG_0001-2.HEIC")), QByteArray("original photo"));
    EXPECT_EQ(readAll(destination + QStringLiteral("/2024-03/IMG_0001.HEIC")), QByteArray("original photo"));
}

TEST(LibraryBackup, ALibraryWhoseDiskGoesStopsTheRunInsteadOfFailingEveryFile)
{
    QTemporaryDir folder;
    const QString package = folder.filePath(QStringLiteral("Photos Library.photoslibrary"));
    {
        LibraryBuilder library(package, "ZASSET", 17120);
        fill(library);
    }
    const QList<LibraryAsset> assets = PhotosLibrary::readAssets(package);
    LibraryBackupOptions options;
    options.now = now;
    options.availableBytes = LibraryBackup::minimumFreeBytes;
    const QString destination = folder.filePath(QStringLiteral("Sauvegarde"));
    bool pulled = false;
    const LibraryOutcome outcome = LibraryBackup::run(
        package, assets, destination,
        [&](const LibraryProgress& progress) {
            // Unplugged after two files: the library is not there any more.
            if (progress.done == 3 && !pulled)
                pulled = QDir().rename(package, folder.filePath(QStringLiteral("elsewhere")));
        },
        nullptr, options);
    ASSERT_TRUE(pulled);
    EXPECT_EQ(outcome.end, LibraryOutcome::End::SourceGone);
    EXPECT_TRUE(outcome.endMessage.contains(QStringLiteral("Photos Library.photoslibrary")));
    EXPECT_EQ(outcome.failed, 2); // the two originals missing before it, and not one more
}

TEST(LibraryBackup, FifteenDecimalGigabytesAreNeededToStart)
{
    EXPECT_EQ(LibraryBackup::spaceProblem(15'000'000'000), std::nullopt);
    EXPECT_EQ(LibraryBackup::spaceProblem(-1), std::nullopt); // unknown: not a reason to refuse
    const std::optional<QString> problem = LibraryBackup::spaceProblem(14'999'999'999);
    ASSERT_TRUE(problem);
    EXPECT_TRUE(problem->startsWith(QStringLiteral("Il ne reste que 14 Go libres"))) << problem->toStdString();

    QTemporaryDir folder;
    LibraryBackupOptions options;
    options.availableBytes = 14'900'000'000;
    const LibraryOutcome outcome =
        LibraryBackup::run(folder.path(), {}, folder.filePath(QStringLiteral("out")), {}, nullptr, options);
    EXPECT_EQ(outcome.end, LibraryOutcome::End::NotEnoughSpace);
    EXPECT_FALSE(QFileInfo::exists(folder.filePath(QStringLiteral("out"))));
}
