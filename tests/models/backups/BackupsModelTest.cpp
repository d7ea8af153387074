#include "models/backups/BackupsModel.h"

#include "engines/backup/BackupLocator.h"
#include "l10n/LanguageStore.h"
#include "l10n/Localizer.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QTimeZone>

#include <atomic>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

PhoneBackup backup(const QString& version, std::optional<QDateTime> date)
{
    PhoneBackup b;
    b.id = QStringLiteral("id");
    b.deviceName = QStringLiteral("iPhone");
    b.iosVersion = version;
    b.lastBackup = date;
    return b;
}

class BackupsModelTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }
    AppLanguage m_saved = AppLanguage::Auto;
};

TEST_F(BackupsModelTest, DetailLineHasUpToTwoPieces)
{
    const QDateTime date(QDate(2026, 3, 3), QTime(10, 4), QTimeZone::utc());
    EXPECT_EQ(BackupsModel::detailLine(backup(QStringLiteral("17.5"), std::nullopt)), QStringLiteral("iOS 17.5"));
    EXPECT_EQ(BackupsModel::detailLine(backup({}, date)),
              QStringLiteral("dernière sauvegarde le ") + Localizer::formatDateTime(date));
    EXPECT_EQ(BackupsModel::detailLine(backup(QStringLiteral("17.5"), date)),
              QStringLiteral("iOS 17.5 · dernière sauvegarde le ") + Localizer::formatDateTime(date));
    EXPECT_EQ(BackupsModel::detailLine(backup({}, std::nullopt)), QString());
    LanguageStore::shared().setLanguageForThisRun(AppLanguage::En);
    EXPECT_TRUE(BackupsModel::detailLine(backup({}, date)).startsWith(QStringLiteral("last backup ")));
}

TEST_F(BackupsModelTest, ScansOffTheGuiThreadAndPublishesEachOutcome)
{
    BackupScan next = BackupScan::needsFullDiskAccess();
    Qt::HANDLE scanThread = nullptr;
    BackupsModel model([&] {
        scanThread = QThread::currentThreadId();
        return next;
    });
    EXPECT_EQ(model.state(), BackupsModel::State::Scanning);
    QSignalSpy changed(&model, &BackupsModel::stateChanged);

    model.refresh();
    model.refresh(); // one scan at a time: the second waits for the first
    EXPECT_TRUE(model.isScanning());
    ASSERT_TRUE(QTest::qWaitFor([&] { return changed.count() == 2 && !model.isScanning(); }, 10'000));
    EXPECT_EQ(model.state(), BackupsModel::State::NeedsFullDiskAccess);
    EXPECT_NE(scanThread, QThread::currentThreadId());

    next = BackupScan::found({backup(QStringLiteral("18.1"), std::nullopt)});
    model.refresh();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.isScanning(); }, 10'000));
    EXPECT_EQ(model.state(), BackupsModel::State::Found);
    ASSERT_EQ(model.backups().size(), 1);

    next = BackupScan::empty();
    model.refresh();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.isScanning(); }, 10'000));
    EXPECT_EQ(model.state(), BackupsModel::State::Empty);
    EXPECT_TRUE(model.backups().isEmpty());
}

TEST_F(BackupsModelTest, ChoosingTheFolderKeepsItAndScansIt)
{
    qunsetenv("NUVREL_BACKUP_ROOT");
    int scans = 0;
    BackupsModel model([&] {
        ++scans;
        return BackupScan::empty();
    });
    model.chooseRoot(QStringLiteral("/media/disk/Backup/"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.isScanning(); }, 10'000));
    EXPECT_EQ(scans, 1);
    EXPECT_EQ(QSettings().value(BackupLocator::settingsKey).toString(), QStringLiteral("/media/disk/Backup"));
    EXPECT_EQ(BackupLocator::root(), QStringLiteral("/media/disk/Backup"));
    model.chooseRoot(QString());
    EXPECT_EQ(scans, 1);
    QSettings().remove(BackupLocator::settingsKey);
}

TEST_F(BackupsModelTest, AFolderChosenDuringAScanIsScannedAfterIt)
{
    std::atomic<bool> release{false};
    std::atomic<int> scans{0};
    BackupsModel model([&] {
        const int scan = ++scans;
        while (scan == 1 && !release)
            QThread::msleep(5);
        return scan == 1 ? BackupScan::empty() : BackupScan::found({backup(QStringLiteral("18.1"), std::nullopt)});
    });
    model.refresh();
    model.chooseRoot(QStringLiteral("/media/other"));
    release = true;
    ASSERT_TRUE(QTest::qWaitFor([&] { return scans == 2 && !model.isScanning(); }, 10'000));
    EXPECT_EQ(model.state(), BackupsModel::State::Found);
    QSettings().remove(BackupLocator::settingsKey);
}

} // namespace
