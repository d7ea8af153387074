#include "models/duplicates/DuplicatesModel.h"
#include "l10n/LanguageStore.h"
#include "l10n/Localizer.h"
#include "support/BackupFixture.h"
#include "support/FakeServices.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

bool waitUntilIdle(const DuplicatesModel& model, int ms = 60'000)
{
    return QTest::qWaitFor([&model] { return !model.scanning() && !model.trashing(); }, ms);
}

class DuplicatesModelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
        QSettings().remove(QLatin1StringView(DuplicateScanner::folderSettingsKey));
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }
    QString path(const QString& name) const { return m_folder.filePath(name); }

    // Two copies of a document, three of a video, and two photos of one scene.
    void fillFolder()
    {
        writeFile(path(QStringLiteral("doc.pdf")), QByteArray(1000, 'd'));
        writeFile(path(QStringLiteral("archives/doc.pdf")), QByteArray(1000, 'd'));
        for (const char* name : {"film.mov", "copie/film.mov", "copie/film 2.mov"})
            writeFile(path(QString::fromUtf8(name)), QByteArray(50'000, 'v'));
        QImage scene(800, 600, QImage::Format_RGB32);
        for (int y = 0; y < scene.height(); ++y) {
            for (int x = 0; x < scene.width(); ++x)
                scene.setPixel(x, y, qRgb((x * 7) % 256, (y * 3) % 256, ((x ^ y) * 5) % 256));
        }
        ASSERT_TRUE(scene.save(path(QStringLiteral("photo.jpg")), "JPEG", 95));
        ASSERT_TRUE(scene.save(path(QStringLiteral("photo-retouchee.jpg")), "JPEG", 60));
    }

    AppLanguage m_saved = AppLanguage::Auto;
    QTemporaryDir m_folder;
    FakeServices fakes;
};

} // namespace

TEST_F(DuplicatesModelTest, AScanTicksTheExtraCopiesNeverTheSimilarPhotosNorAWholeGroup)
{
    fillFolder();
    DuplicatesModel model(fakes.services());
    EXPECT_TRUE(model.folder().isEmpty());
    model.scan();
    EXPECT_EQ(model.notice(), QStringLiteral("Choisis d'abord un dossier."));

    model.setFolder(m_folder.path());
    EXPECT_EQ(QSettings().value(QLatin1StringView(DuplicateScanner::folderSettingsKey)).toString(), m_folder.path());
    model.scan();
    EXPECT_TRUE(model.scanning());
    ASSERT_TRUE(waitUntilIdle(model));
    ASSERT_TRUE(model.scanned());

    // The video takes more room than the document: it comes first.
    const QList<DupGroup>& identical = model.groups(DupGroup::Kind::Identical);
    ASSERT_EQ(identical.size(), 2);
    EXPECT_EQ(identical[0].items.size(), 3);
    EXPECT_EQ(identical[1].items.size(), 2);
    for (const DupGroup& group : identical) {
        EXPECT_FALSE(group.items[0].marked);
        for (qsizetype i = 1; i < group.items.size(); ++i)
            EXPECT_TRUE(group.items[i].marked);
    }
    const QList<DupGroup>& similar = model.groups(DupGroup::Kind::Similar);
    ASSERT_EQ(similar.size(), 1);
    EXPECT_FALSE(similar[0].items[0].marked || similar[0].items[1].marked);
    EXPECT_EQ(model.summary(),
              QStringLiteral("2 groupes de fichiers identiques · 1 groupe de photos qui se ressemblent"));
    EXPECT_EQ(model.recoverable(), 2 * 50'000 + 1000);
    EXPECT_EQ(model.markedCount(), 3);

    // Ticking a similar photo counts; ticking the last unticked file of a group is refused.
    QSignalSpy marks(&model, &DuplicatesModel::marksChanged);
    EXPECT_TRUE(model.setMarked(DupGroup::Kind::Similar, 0, 1, true));
    EXPECT_EQ(model.recoverable(), 2 * 50'000 + 1000 + similar[0].items[1].file.size);
    EXPECT_FALSE(model.setMarked(DupGroup::Kind::Similar, 0, 0, true));
    EXPECT_FALSE(model.groups(DupGroup::Kind::Similar)[0].items[0].marked);
    EXPECT_EQ(model.notice(), QStringLiteral("Chaque groupe garde au moins un fichier."));
    // The user may keep another copy than the oldest, once something else is kept.
    EXPECT_TRUE(model.setMarked(DupGroup::Kind::Identical, 1, 1, false));
    EXPECT_TRUE(model.setMarked(DupGroup::Kind::Identical, 1, 0, true));
    EXPECT_FALSE(model.setMarked(DupGroup::Kind::Identical, 1, 1, true));
    EXPECT_FALSE(model.setMarked(DupGroup::Kind::Identical, 7, 0, true));
    EXPECT_EQ(marks.count(), 3);
    EXPECT_TRUE(model.trashButtonText().startsWith(QStringLiteral("Mettre à la Corbeille (")));

    // Another folder: the groups of this one go.
    QTemporaryDir other;
    model.setFolder(other.path());
    EXPECT_FALSE(model.scanned());
    EXPECT_TRUE(model.groups(DupGroup::Kind::Identical).isEmpty());
    EXPECT_EQ(model.markedCount(), 0);

    // The folder is remembered for the next run.
    DuplicatesModel next(fakes.services());
    EXPECT_EQ(next.folder(), other.path());
}

TEST_F(DuplicatesModelTest, TheTrashTakesTheTickedFilesLeavesChangedOnesAndSaysSo)
{
    fillFolder();
    DuplicatesModel model(fakes.services());
    model.setFolder(m_folder.path());
    model.scan();
    ASSERT_TRUE(waitUntilIdle(model));
    ASSERT_EQ(model.groups(DupGroup::Kind::Identical).size(), 2);
    const DupGroup videos = model.groups(DupGroup::Kind::Identical)[0];
    const DupGroup documents = model.groups(DupGroup::Kind::Identical)[1];
    // One copy of the video grows after the scan.
    writeFile(videos.items[2].file.path, QByteArray(60'000, 'v'));

    model.moveMarkedToTrash();
    EXPECT_TRUE(model.trashing());
    ASSERT_TRUE(waitUntilIdle(model));
    EXPECT_EQ(fakes.trash.trashed, (QStringList{videos.items[1].file.path, documents.items[1].file.path}));
    EXPECT_TRUE(QFile::exists(videos.items[2].file.path));
    EXPECT_TRUE(QFile::exists(videos.items[0].file.path));
    EXPECT_EQ(model.notice(),
              QStringLiteral("2 fichiers envoyés à la Corbeille (%1 libérés).\n1 fichier modifié depuis la recherche, "
                             "laissé en place : %2")
                  .arg(Localizer::formatByteCount(51'000), QFileInfo(videos.items[2].file.path).fileName()));

    // The document's group is gone; the video's keeps its two files, the changed one still ticked.
    const QList<DupGroup>& left = model.groups(DupGroup::Kind::Identical);
    ASSERT_EQ(left.size(), 1);
    ASSERT_EQ(left[0].items.size(), 2);
    EXPECT_EQ(left[0].items[1].file.path, videos.items[2].file.path);
    EXPECT_EQ(model.markedCount(), 1);
    EXPECT_EQ(model.groups(DupGroup::Kind::Similar).size(), 1);
}

TEST_F(DuplicatesModelTest, StoppingAScanKeepsNothingHalfDone)
{
    for (int i = 0; i < 400; ++i)
        writeFile(path(QStringLiteral("f%1/a.bin").arg(i)), QByteArray(200'000, char(i % 7)));
    DuplicatesModel model(fakes.services());
    model.setFolder(m_folder.path());
    QSignalSpy progress(&model, &DuplicatesModel::progressChanged);
    model.scan();
    model.stop();
    EXPECT_TRUE(model.stopping());
    ASSERT_TRUE(waitUntilIdle(model));
    EXPECT_FALSE(model.scanned());
    EXPECT_TRUE(model.groups(DupGroup::Kind::Identical).isEmpty());
    EXPECT_EQ(model.notice(), QStringLiteral("Recherche arrêtée."));
    EXPECT_FALSE(model.stopping());
}
