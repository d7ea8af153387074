#include "engines/backup/BackupLocator.h"

#include "support/BackupFixture.h"

#include <QDir>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

QDateTime at(int year, int month, int day, int hour = 12)
{
    return QDateTime(QDate(year, month, day), QTime(hour, 0), QTimeZone::utc());
}

// Lists the given names, in that order, so that tests control what the system would return.
DirectoryLister listing(QStringList names, int error = 0)
{
    return [names = std::move(names), error](const QString&) { return DirectoryListing{names, error}; };
}

QStringList ids(const BackupScan& scan)
{
    QStringList out;
    for (const PhoneBackup& backup : scan.backups())
        out.append(backup.id);
    return out;
}

class BackupLocatorTest : public testing::Test
{
protected:
    QString add(const QString& id, const std::optional<QDateTime>& date, PlistFormat format = PlistFormat::Binary)
    {
        return writeBackup(
            root(),
            {id, infoPlist(QStringLiteral("iPhone ") + id, QStringLiteral("iPhone15,2"), QStringLiteral("17.5"), date),
             manifestPlist(false), format});
    }
    QString root() const { return m_dir.path(); }

    QTemporaryDir m_dir;
};

} // namespace

TEST_F(BackupLocatorTest, ReadsEveryFieldFromBinaryAndXmlLists)
{
    const QString binary = writeBackup(root(), {QStringLiteral("00008110-000A"),
                                                infoPlist(QStringLiteral("iPhone de Ana"), QStringLiteral("iPhone15,2"),
                                                          QStringLiteral("17.5.1"), at(2026, 11, 20)),
                                                manifestPlist(true), PlistFormat::Binary});
    const std::optional<PhoneBackup> backup = BackupLocator::read(binary);
    ASSERT_TRUE(backup);
    EXPECT_EQ(backup->id, QStringLiteral("00008110-000A"));
    EXPECT_EQ(backup->deviceName, QStringLiteral("iPhone de Ana"));
    EXPECT_EQ(backup->productType, QStringLiteral("iPhone15,2"));
    EXPECT_EQ(backup->iosVersion, QStringLiteral("17.5.1"));
    EXPECT_EQ(backup->lastBackup, at(2026, 11, 20));
    EXPECT_TRUE(backup->isEncrypted);
    EXPECT_EQ(backup->url, QDir(binary).absolutePath());

    const QString xml =
        writeBackup(root(), {QStringLiteral("xml"), infoPlist(QStringLiteral("Телефон"), {}, {}, at(2020, 1, 2)),
                             manifestPlist(true), PlistFormat::Xml});
    const std::optional<PhoneBackup> fromXml = BackupLocator::read(xml);
    ASSERT_TRUE(fromXml);
    EXPECT_EQ(fromXml->deviceName, QStringLiteral("Телефон"));
    EXPECT_EQ(fromXml->lastBackup, at(2020, 1, 2));
    EXPECT_TRUE(fromXml->isEncrypted);
}

TEST_F(BackupLocatorTest, MissingOrWrongTypedValuesFallBackToDefaults)
{
    // No Device Name, no Manifest.plist: titled "iPhone", not encrypted, empty detail fields.
    const QString bare = writeBackup(root(), {QStringLiteral("bare"), infoPlist({}), std::nullopt});
    const std::optional<PhoneBackup> defaults = BackupLocator::read(bare);
    ASSERT_TRUE(defaults);
    EXPECT_EQ(defaults->deviceName, QStringLiteral("iPhone"));
    EXPECT_TRUE(defaults->productType.isEmpty());
    EXPECT_TRUE(defaults->iosVersion.isEmpty());
    EXPECT_FALSE(defaults->lastBackup.has_value());
    EXPECT_FALSE(defaults->isEncrypted);

    const QVariantMap wrongTypes{
        {QStringLiteral("Device Name"), qint64(7)},
        {QStringLiteral("Product Type"), QVariantList{QStringLiteral("iPhone15,2")}},
        {QStringLiteral("Product Version"), 17.5},
        {QStringLiteral("Last Backup Date"), QStringLiteral("2026-11-20")},
    };
    const QVariantMap encryptedAsText{{QStringLiteral("IsEncrypted"), QStringLiteral("YES")}};
    const std::optional<PhoneBackup> wrong =
        BackupLocator::read(writeBackup(root(), {QStringLiteral("wrong"), wrongTypes, encryptedAsText}));
    ASSERT_TRUE(wrong);
    EXPECT_EQ(wrong->deviceName, QStringLiteral("iPhone"));
    EXPECT_TRUE(wrong->productType.isEmpty());
    EXPECT_TRUE(wrong->iosVersion.isEmpty());
    EXPECT_FALSE(wrong->lastBackup.has_value());
    EXPECT_FALSE(wrong->isEncrypted);

    // A garbage or list-shaped Manifest.plist still leaves a listed, unencrypted backup.
    const QString garbageManifest =
        writeBackup(root(), {QStringLiteral("garbage-manifest"), infoPlist({}), QVariantList{}});
    writeFile(garbageManifest + QStringLiteral("/Manifest.plist"), "\x00\xFFnot a plist");
    EXPECT_FALSE(BackupLocator::read(garbageManifest)->isEncrypted);
    EXPECT_FALSE(
        BackupLocator::read(writeBackup(root(), {QStringLiteral("list-manifest"), infoPlist({}), QVariantList{true}}))
            ->isEncrypted);
}

TEST_F(BackupLocatorTest, FoldersWithoutAReadableInfoDictionaryDoNotQualify)
{
    EXPECT_FALSE(
        BackupLocator::read(writeBackup(root(), {QStringLiteral("list"), QVariantList{}, manifestPlist(true)})));
    const QString garbage = writeBackup(root(), {QStringLiteral("garbage"), std::nullopt, manifestPlist(false)});
    writeFile(garbage + QStringLiteral("/Info.plist"), "bplist00 but nothing sound after it at all, sorry");
    EXPECT_FALSE(BackupLocator::read(garbage));
    EXPECT_FALSE(
        BackupLocator::read(writeBackup(root(), {QStringLiteral("no-info"), std::nullopt, manifestPlist(false)})));
    EXPECT_FALSE(BackupLocator::read(root() + QStringLiteral("/does-not-exist")));
}

TEST_F(BackupLocatorTest, ScanSkipsHiddenEntriesPlainFilesAndBrokenFolders)
{
    add(QStringLiteral("good"), at(2026, 1, 1));
    add(QStringLiteral(".hidden"), at(2026, 6, 1));
    writeFile(root() + QStringLiteral("/notes.txt"), "a plain file among the folders");
    writeFile(root() + QStringLiteral("/.DS_Store"), "x");
    writeBackup(root(), {QStringLiteral("broken"), QVariantList{}, std::nullopt});
    // Property lists that are FIFOs would hold an ordinary read forever: the scan goes past them.
    const QString noInfo = writeBackup(root(), {QStringLiteral("fifo-info"), std::nullopt, manifestPlist(false)});
    ASSERT_EQ(::mkfifo(QFile::encodeName(noInfo + QStringLiteral("/Info.plist")).constData(), 0600), 0);
    const QString noManifest =
        writeBackup(root(), {QStringLiteral("fifo-manifest"), infoPlist(QStringLiteral("iPhone")), std::nullopt});
    ASSERT_EQ(::mkfifo(QFile::encodeName(noManifest + QStringLiteral("/Manifest.plist")).constData(), 0600), 0);

    const BackupScan scan = BackupLocator::scan(root());
    EXPECT_EQ(scan.status(), BackupScan::Status::Found);
    EXPECT_EQ(ids(scan), (QStringList{QStringLiteral("good"), QStringLiteral("fifo-manifest")}));
    EXPECT_FALSE(scan.backups().last().isEncrypted);
}

TEST_F(BackupLocatorTest, ScanSortsNewestFirstUndatedLastAndKeepsListingOrderForTies)
{
    add(QStringLiteral("old"), at(2024, 5, 1));
    add(QStringLiteral("undated-a"), std::nullopt);
    add(QStringLiteral("new"), at(2026, 11, 20), PlistFormat::Xml);
    add(QStringLiteral("tie-b"), at(2025, 2, 2));
    add(QStringLiteral("tie-a"), at(2025, 2, 2));
    add(QStringLiteral("undated-b"), std::nullopt);

    const QStringList order{QStringLiteral("undated-b"), QStringLiteral("old"),   QStringLiteral("tie-b"),
                            QStringLiteral("undated-a"), QStringLiteral("tie-a"), QStringLiteral("new")};
    const BackupScan scan = BackupLocator::scan(root(), listing(order));
    EXPECT_EQ(ids(scan),
              (QStringList{QStringLiteral("new"), QStringLiteral("tie-b"), QStringLiteral("tie-a"),
                           QStringLiteral("old"), QStringLiteral("undated-b"), QStringLiteral("undated-a")}));
}

TEST_F(BackupLocatorTest, ListingFailuresAreClassified)
{
    EXPECT_EQ(BackupLocator::scan(root() + QStringLiteral("/missing")), BackupScan::empty());
    writeFile(root() + QStringLiteral("/a-file"), "x");
    EXPECT_EQ(BackupLocator::scan(root() + QStringLiteral("/a-file")), BackupScan::empty()); // ENOTDIR
    EXPECT_EQ(BackupLocator::scan(root()), BackupScan::empty()); // a folder with no backup in it

    // Refusals cannot be provoked as root, so the lister plays them.
    EXPECT_EQ(BackupLocator::scan(root(), listing({}, EACCES)), BackupScan::needsFullDiskAccess());
    EXPECT_EQ(BackupLocator::scan(root(), listing({}, EPERM)), BackupScan::needsFullDiskAccess());
    EXPECT_EQ(BackupLocator::scan(root(), listing({}, ENOENT)), BackupScan::empty());
    EXPECT_EQ(BackupLocator::scan(root(), listing({}, EIO)), BackupScan::empty());
    EXPECT_EQ(BackupScan::found({}), BackupScan::empty());
}

TEST_F(BackupLocatorTest, RealListingReportsMissingFolderAndReturnsEveryName)
{
    EXPECT_EQ(listDirectory(root() + QStringLiteral("/missing")).error, ENOENT);
    for (int i = 0; i < 300; ++i)
        QDir(root()).mkdir(QString::number(i));
    const DirectoryListing all = listDirectory(root());
    EXPECT_EQ(all.error, 0);
    EXPECT_EQ(all.names.size(), 300);
    EXPECT_FALSE(all.names.contains(QStringLiteral(".")));
}

TEST(BackupLocatorRoot, EnvironmentThenSettingThenDefault)
{
    QSettings().remove(BackupLocator::settingsKey);
    EXPECT_EQ(BackupLocator::root(), BackupLocator::defaultRoot());
#ifdef Q_OS_MACOS
    EXPECT_TRUE(
        BackupLocator::defaultRoot().endsWith(QStringLiteral("/Library/Application Support/MobileSync/Backup")));
#else
    EXPECT_EQ(BackupLocator::defaultRoot(), QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                                                QStringLiteral("/MobileSync/Backup"));
#endif
    QSettings().setValue(BackupLocator::settingsKey, QStringLiteral("/media/disk/Backup"));
    EXPECT_EQ(BackupLocator::root(), QStringLiteral("/media/disk/Backup"));
    qputenv("NUVREL_BACKUP_ROOT", "/srv/backups");
    EXPECT_EQ(BackupLocator::root(), QStringLiteral("/srv/backups"));
    qunsetenv("NUVREL_BACKUP_ROOT");
    QSettings().remove(BackupLocator::settingsKey);
}
