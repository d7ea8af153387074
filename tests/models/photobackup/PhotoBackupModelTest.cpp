// The backup page's models: the phone's states as the page shows them, copies from a scripted phone
// and from a card, what stopping and a pulled cable leave, and a library package backed up twice.

#include "models/photobackup/PhotoBackupModel.h"
#include "l10n/LanguageStore.h"
#include "models/photobackup/PhotosLibraryBackup.h"
#include "support/FakeServices.h"
#include "support/PhotosLibraryFixture.h"
#include "support/ScriptedCamera.h"

#include <QDirIterator>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

using State = PhotoBackupModel::State;

QStringList filesBelow(const QString& folder)
{
    QStringList found;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        found.append(QDir(folder).relativeFilePath(it.next()));
    found.sort();
    return found;
}

CameraFile cameraFile(const QString& name, qint64 size, const QDateTime& created)
{
    return {QStringLiteral("/DCIM/100APPLE/") + name, name, size, created, {}};
}

class PhotoBackupModelTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
        QSettings().setValue(QLatin1StringView(photoBackupFolderKey), destination());
    }
    void TearDown() override
    {
        QSettings().remove(QLatin1StringView(photoBackupFolderKey));
        LanguageStore::shared().setLanguageForThisRun(m_saved);
    }

    QString destination() const { return m_root.filePath(QStringLiteral("Photos")); }
    QString history() const { return m_root.filePath(QStringLiteral("data/copied-history.json")); }

    static bool settled(const PhotoBackupModel& model)
    {
        return QTest::qWaitFor([&] { return model.state() != State::Copying && model.state() != State::Connecting; },
                               20'000);
    }

    std::shared_ptr<ScriptedCamera> phone(int files, qint64 size = 1000)
    {
        auto camera = std::make_shared<ScriptedCamera>(QStringLiteral("iPhone de Léa"));
        for (int i = 1; i <= files; ++i)
            camera->add(
                cameraFile(QStringLiteral("IMG_%1.HEIC").arg(i), size, QDateTime(QDate(2025, i, 3), QTime(10, 0))),
                QByteArray(size, char('a' + i)));
        return camera;
    }

    AppLanguage m_saved = AppLanguage::Auto;
    QTemporaryDir m_root;
    FakeServices m_fakes;
};

} // namespace

TEST_F(PhotoBackupModelTest, ThePhonesStatesReadAsThePageShowsThem)
{
    PhotoBackupModel model(m_fakes.services(), history());
    EXPECT_EQ(model.destination(), destination());
    model.start();
    EXPECT_EQ(m_fakes.phones.started, 1);
    EXPECT_EQ(model.state(), State::NoDevice);
    EXPECT_EQ(model.title(), QStringLiteral("Aucun iPhone trouvé"));
    EXPECT_FALSE(model.canCopy());

    m_fakes.phones.set(PhoneWatcher::State::Connecting, QStringLiteral("iPhone de Léa"));
    EXPECT_EQ(model.title(), QStringLiteral("Connexion à « iPhone de Léa »…"));
    m_fakes.phones.set(PhoneWatcher::State::Locked, QStringLiteral("iPhone de Léa"));
    EXPECT_EQ(model.title(), QStringLiteral("« iPhone de Léa » est verrouillé"));
    EXPECT_TRUE(model.hint().contains(QStringLiteral("Se fier à cet ordinateur")));
    m_fakes.phones.set(PhoneWatcher::State::Refused, QStringLiteral("iPhone de Léa"));
    EXPECT_EQ(model.state(), State::Error);
    EXPECT_TRUE(model.hint().startsWith(QStringLiteral("« iPhone de Léa » a refusé de se fier")))
        << model.hint().toStdString();
    model.restart();
    EXPECT_EQ(m_fakes.phones.refreshed, 1);

    // Ready, but nothing on it: what the page says about iCloud.
    m_fakes.phones.phoneCamera = phone(0);
    m_fakes.phones.set(PhoneWatcher::State::Ready, QStringLiteral("iPhone de Léa"));
    ASSERT_TRUE(settled(model));
    EXPECT_EQ(model.state(), State::NothingReadable);

    m_fakes.phones.phoneCamera = phone(3);
    m_fakes.phones.set(PhoneWatcher::State::Connecting, QStringLiteral("iPhone de Léa"));
    m_fakes.phones.set(PhoneWatcher::State::Ready, QStringLiteral("iPhone de Léa"));
    ASSERT_TRUE(settled(model));
    EXPECT_EQ(model.state(), State::Ready);
    EXPECT_EQ(model.title(), QStringLiteral("« iPhone de Léa » est prêt"));
    EXPECT_TRUE(model.selectionSummary().startsWith(QStringLiteral("3 éléments · ")))
        << model.selectionSummary().toStdString();
    model.setPeriod(Period::Custom);
    model.setFromDate(QDate(2025, 2, 1));
    model.setToDate(QDate(2025, 2, 28));
    EXPECT_TRUE(model.selectionSummary().startsWith(QStringLiteral("1 éléments · ")));

    m_fakes.phones.set(PhoneWatcher::State::NoDevice);
    EXPECT_EQ(model.state(), State::NoDevice);
    EXPECT_TRUE(model.selectionSummary().isEmpty());

    // Unplugged while it was being listed: the late listing does not bring back a phone that is gone.
    auto slow = phone(2);
    slow->listPauseMs = 300;
    m_fakes.phones.phoneCamera = slow;
    m_fakes.phones.set(PhoneWatcher::State::Ready, QStringLiteral("iPhone de Léa"));
    EXPECT_EQ(model.state(), State::Connecting);
    m_fakes.phones.set(PhoneWatcher::State::NoDevice);
    QTest::qWait(600);
    EXPECT_EQ(model.state(), State::NoDevice);
    EXPECT_FALSE(model.canCopy());
}

TEST_F(PhotoBackupModelTest, APhoneIsCopiedOnceThenAgainOnlyWhenTheHistoryIsForgotten)
{
    PhotoBackupModel model(m_fakes.services(), history());
    model.start();
    m_fakes.phones.phoneCamera = phone(3);
    m_fakes.phones.set(PhoneWatcher::State::Ready, QStringLiteral("iPhone de Léa"));
    ASSERT_TRUE(settled(model));

    model.begin(true);
    EXPECT_EQ(model.state(), State::Copying);
    ASSERT_TRUE(settled(model));
    EXPECT_EQ(model.state(), State::Ready);
    EXPECT_EQ(model.result(), QStringLiteral("3 copiés, 0 déjà présents, 0 échecs."));
    EXPECT_EQ(filesBelow(destination()),
              (QStringList{QStringLiteral("2025-01/IMG_1.HEIC"), QStringLiteral("2025-02/IMG_2.HEIC"),
                           QStringLiteral("2025-03/IMG_3.HEIC")}));

    model.begin(false);
    ASSERT_TRUE(settled(model));
    EXPECT_EQ(model.result(), QStringLiteral("0 copiés, 3 déjà présents, 0 échecs."));

    model.setIncludePhotos(false); // only videos: there are none
    model.begin(false);
    EXPECT_EQ(model.notice(), QStringLiteral("Rien ne correspond à ta sélection."));
    EXPECT_EQ(model.state(), State::Ready);
    model.setIncludePhotos(true);

    model.forgetHistory();
    model.begin(true);
    ASSERT_TRUE(settled(model));
    EXPECT_EQ(model.result(), QStringLiteral("3 copiés, 0 déjà présents, 0 échecs."));
    EXPECT_EQ(filesBelow(destination()).size(), 6); // numbered beside the first copies
    EXPECT_TRUE(QFile::exists(destination() + QStringLiteral("/2025-01/IMG_1-1.HEIC")));

    model.openDestination();
    ASSERT_EQ(m_fakes.workspace.opened.size(), 1);
    EXPECT_EQ(m_fakes.workspace.opened.constFirst(), destination());
}

TEST_F(PhotoBackupModelTest, RefusedFilesAPulledCableAndAStopAreTold)
{
    PhotoBackupModel model(m_fakes.services(), history());
    model.start();
    auto camera = phone(2);
    camera->add(cameraFile(QStringLiteral("REFUSED.HEIC"), 10, QDateTime(QDate(2025, 5, 1), QTime(9, 0))), "x",
                CameraScript::refused(QStringLiteral("non")));
    m_fakes.phones.phoneCamera = camera;
    m_fakes.phones.set(PhoneWatcher::State::Ready, QStringLiteral("iPhone de Léa"));
    ASSERT_TRUE(settled(model));
    model.begin(true);
    ASSERT_TRUE(settled(model));
    EXPECT_EQ(model.failedCount(), 1);
    EXPECT_TRUE(model.showRefusedHint());
    EXPECT_EQ(model.lastError(), QStringLiteral("Dernier problème : non"));
    EXPECT_TRUE(QFile::exists(destination() + QStringLiteral("/Nuvrel-echecs.txt")));

    // The cable pulled during the copy: the page says so, and goes back to following the phone.
    auto pulled = phone(3);
    pulled->onOpen = [&](const CameraFile& file) {
        if (file.name == u"IMG_2.HEIC")
            pulled->setPresent(false);
    };
    QFile::remove(history());
    m_fakes.phones.phoneCamera = pulled;
    m_fakes.phones.set(PhoneWatcher::State::Connecting, QStringLiteral("iPhone de Léa"));
    m_fakes.phones.set(PhoneWatcher::State::Ready, QStringLiteral("iPhone de Léa"));
    ASSERT_TRUE(settled(model));
    model.forgetHistory();
    model.begin(true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.state() == State::Error; }, 20'000));
    EXPECT_TRUE(model.hint().contains(QStringLiteral("n'est plus accessible"))) << model.hint().toStdString();
    EXPECT_TRUE(model.result().startsWith(QStringLiteral("1 copiés, 0 déjà présents, 1 échecs.")));

    // Stopped while the first of three large files is copied: it is finished, nothing after it.
    auto large = phone(3, 40'000'000);
    std::atomic<bool> opened{false};
    large->onOpen = [&](const CameraFile&) { opened = true; };
    QFile::remove(history());
    m_fakes.phones.phoneCamera = large;
    m_fakes.phones.set(PhoneWatcher::State::Connecting, QStringLiteral("iPhone de Léa"));
    m_fakes.phones.set(PhoneWatcher::State::Ready, QStringLiteral("iPhone de Léa"));
    ASSERT_TRUE(settled(model));
    model.forgetHistory();
    model.begin(true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return opened.load(); }, 20'000));
    model.cancel();
    EXPECT_TRUE(model.stoppedByUser());
    EXPECT_EQ(model.hint(), QStringLiteral("Arrêt en cours… (fin du fichier en cours)"));
    ASSERT_TRUE(settled(model));
    EXPECT_EQ(model.state(), State::Ready);
    EXPECT_EQ(large->opened(), 1);
    EXPECT_TRUE(model.result().startsWith(QStringLiteral("1 copiés"))) << model.result().toStdString();
}

TEST_F(PhotoBackupModelTest, AFolderIsASourceAndTheDestinationIsRemembered)
{
    const QString card = m_root.filePath(QStringLiteral("EOS_DIGITAL"));
    QDir().mkpath(card + QStringLiteral("/DCIM/100CANON"));
    for (const char* name : {"IMG_1.JPG", "MVI_2.MOV"}) {
        QFile file(card + QStringLiteral("/DCIM/100CANON/") + QString::fromLatin1(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(500, 'c'));
        file.flush();
        file.setFileTime(QDateTime(QDate(2024, 8, 15), QTime(12, 0)), QFileDevice::FileModificationTime);
    }
    PhotoBackupModel model(m_fakes.services(), history());
    model.start();
    model.useFolder(card);
    ASSERT_TRUE(settled(model));
    EXPECT_EQ(model.state(), State::Ready);
    EXPECT_EQ(model.title(), QStringLiteral("« EOS_DIGITAL » est prêt"));
    const QString elsewhere = m_root.filePath(QStringLiteral("Ailleurs"));
    model.setDestination(elsewhere);
    EXPECT_EQ(QSettings().value(QLatin1StringView(photoBackupFolderKey)).toString(), elsewhere);
    model.setIncludeVideos(false);
    model.begin(false);
    ASSERT_TRUE(settled(model));
    EXPECT_EQ(filesBelow(elsewhere), QStringList{QStringLiteral("2024-08/IMG_1.JPG")});
    EXPECT_FALSE(model.showRefusedHint());

    // A folder that is gone says so; back to the phone, which is not there.
    model.useFolder(m_root.filePath(QStringLiteral("gone")));
    ASSERT_TRUE(settled(model));
    EXPECT_EQ(model.state(), State::Error);
    EXPECT_FALSE(model.hint().isEmpty());
    model.usePhone();
    EXPECT_EQ(model.state(), State::NoDevice);
    EXPECT_TRUE(model.sourceFolder().isEmpty());
}

TEST_F(PhotoBackupModelTest, ALibraryIsBackedUpOnceAndAFolderThatIsNoneIsRefused)
{
    const QString package = m_root.filePath(QStringLiteral("Photos Library.photoslibrary"));
    const QString uuid = QStringLiteral("9A1B2C3D-0000-4000-8000-00000000000B");
    {
        LibraryBuilder library(package, "ZASSET", 17000);
        library.add({uuid, QStringLiteral("9"), uuid + QStringLiteral(".heic"),
                     appleSeconds(QDateTime(QDate(2025, 7, 14), QTime(12, 0))), 0, 0, true, false,
                     QStringLiteral("IMG_7.HEIC")});
        library.file(QStringLiteral("originals/9/") + uuid + QStringLiteral(".heic"), "original");
        library.file(QStringLiteral("resources/renders/9/") + uuid + QStringLiteral("_1_201_a.jpeg"), "edited");
    }
    PhotosLibraryBackup model(m_fakes.services());
    model.setPackage(package);
    model.checkAndStart();
    EXPECT_TRUE(model.busy());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.busy(); }, 20'000));
    if (model.status().contains(QStringLiteral("Go libres")))
        GTEST_SKIP() << "less than 15 GB free here";
    EXPECT_EQ(model.state(), PhotosLibraryBackup::State::Finished);
    EXPECT_TRUE(model.status().contains(QStringLiteral(" : 2 copiés, 0 déjà présents, 0 échecs.")))
        << model.status().toStdString();
    EXPECT_EQ(filesBelow(destination()),
              (QStringList{QStringLiteral("2025-07/IMG_7-modifiee.jpeg"), QStringLiteral("2025-07/IMG_7.HEIC")}));
    model.checkAndStart(); // "Recommencer"
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.busy(); }, 20'000));
    EXPECT_TRUE(model.status().contains(QStringLiteral(" : 0 copiés, 2 déjà présents, 0 échecs.")));

    model.setPackage(m_root.filePath(QStringLiteral("Photos")));
    model.checkAndStart();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.busy(); }, 20'000));
    EXPECT_EQ(model.state(), PhotosLibraryBackup::State::Failed);
    EXPECT_TRUE(model.status().contains(QStringLiteral("n'est pas une photothèque")));
}
