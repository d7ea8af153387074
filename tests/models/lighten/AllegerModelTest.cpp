#include "models/lighten/AllegerModel.h"
#include "ground/BundleFolders.h"
#include "l10n/LanguageStore.h"
#include "models/lighten/FileGathering.h"
#include "platform/system/SystemTrash.h"
#include "support/BackupFixture.h"
#include "support/FakeServices.h"
#include "support/MediaFixtures.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QMimeData>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

QList<LightenItem::State> states(const AllegerModel& model)
{
    QList<LightenItem::State> result;
    for (const LightenItem& item : model.items().items())
        result.append(item.state);
    return result;
}

bool waitUntilIdle(const AllegerModel& model, int ms = 120'000)
{
    return QTest::qWaitFor([&model] { return !model.running(); }, ms);
}

class AllegerModelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
        model.setOutputFolder(m_folder.filePath(QStringLiteral("Nuvrel-Alleges")));
        model.setAutoLighten(false);
        QDir().mkpath(path(QStringLiteral("in")));
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }
    QString path(const QString& name) const { return m_folder.filePath(name); }

    AppLanguage m_saved = AppLanguage::Auto;
    QTemporaryDir m_folder;
    FakeServices fakes;
    AllegerModel model{fakes.services()};
};

} // namespace

TEST_F(AllegerModelTest, FoldersAreExpandedBundlesSkippedAndNothingListedTwice)
{
    writeFile(path(QStringLiteral("drop/a.txt")), "a");
    writeFile(path(QStringLiteral("drop/sub/b.txt")), "bb");
    writeFile(path(QStringLiteral("drop/.hidden.txt")), "h");
    writeFile(path(QStringLiteral("drop/.cache/c.txt")), "c");
    writeFile(path(QStringLiteral("drop/empty.txt")), "");
    writeFile(path(QStringLiteral("drop/Outil.app/Contents/Info.plist")), "<plist/>");
    writeFile(path(QStringLiteral("drop/Rapport.pages/index.xml")), "<x/>");
    writeFile(path(QStringLiteral("single.txt")), "s");

    model.add({path(QStringLiteral("drop")), path(QStringLiteral("single.txt"))});
    QStringList names;
    for (const LightenItem& item : model.items().items())
        names.append(QFileInfo(item.path).fileName());
    EXPECT_EQ(names, (QStringList{QStringLiteral("a.txt"), QStringLiteral("b.txt"), QStringLiteral("single.txt")}));
    EXPECT_TRUE(model.notice().contains(QStringLiteral("2"))) << qPrintable(model.notice());
    EXPECT_EQ(model.usedBytes(), 4);
    EXPECT_EQ(model.waitingCount(), 3);

    // Again, and an empty file alone: nothing added, and said.
    model.add({path(QStringLiteral("single.txt")), path(QStringLiteral("drop/empty.txt"))});
    EXPECT_EQ(model.items().rowCount(), 3);
    EXPECT_EQ(model.notice(), QStringLiteral("Rien d'ajouté (fichier vide ou déjà dans la liste)."));

    // A Photos library dropped itself is not read.
    writeFile(path(QStringLiteral("Photos Library.photoslibrary/database/Photos.sqlite")), "db");
    model.add({path(QStringLiteral("Photos Library.photoslibrary"))});
    EXPECT_EQ(model.items().rowCount(), 3);
    EXPECT_TRUE(model.notice().startsWith(QStringLiteral("Bibliothèque Photos ignorée"))) << qPrintable(model.notice());

    // Removing and clearing touch no file.
    model.remove(0);
    EXPECT_EQ(model.items().rowCount(), 2);
    model.clear();
    EXPECT_EQ(model.items().rowCount(), 0);
    EXPECT_TRUE(QFile::exists(path(QStringLiteral("drop/a.txt"))));
}

TEST(FileGathering, StopsAtTheLimitAndNeverFollowsALinkedFolder)
{
    QTemporaryDir folder;
    for (int i = 0; i < 30; ++i)
        writeFile(folder.filePath(QStringLiteral("many/f%1.txt").arg(i, 2, 10, QLatin1Char('0'))), "x");
    ASSERT_TRUE(QFile::link(folder.filePath(QStringLiteral("many")), folder.filePath(QStringLiteral("many/loop"))));
    const GatheredFiles all = gatherFiles({folder.filePath(QStringLiteral("many"))}, 4999);
    EXPECT_EQ(all.files.size(), 30);
    EXPECT_FALSE(all.truncated);
    const GatheredFiles some = gatherFiles({folder.filePath(QStringLiteral("many"))}, 10);
    EXPECT_EQ(some.files.size(), 10);
    EXPECT_TRUE(some.truncated);
    EXPECT_TRUE(some.files.first().endsWith(QStringLiteral("f00.txt")));
    EXPECT_TRUE(isBundleFolder(QStringLiteral("Keynote.KEY")));
    EXPECT_FALSE(isBundleFolder(QStringLiteral("app")));
}

TEST_F(AllegerModelTest, APassLightensEveryKindAndPublishesRowsInOrder)
{
    if (!hasTool(QStringLiteral("ffmpeg")))
        GTEST_SKIP() << "needs ffmpeg";
    ASSERT_TRUE(writeDetailedJpeg(path(QStringLiteral("in/IMG_0001.JPG")), {3000, 2000}));
    ASSERT_TRUE(writeDetailedJpeg(path(QStringLiteral("in/IMG_0002.JPG")), {2400, 1800}));
    ASSERT_TRUE(
        runCommand(QStringLiteral("ffmpeg"),
                   {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"), QStringLiteral("lavfi"),
                    QStringLiteral("-i"), QStringLiteral("testsrc2=size=1280x720:rate=30"), QStringLiteral("-t"),
                    QStringLiteral("2"), path(QStringLiteral("in/IMG_0003.MOV"))}));
    QByteArray text;
    for (int i = 0; i < 5000; ++i)
        text += "Compte rendu de la réunion, ligne " + QByteArray::number(i) + '\n';
    writeFile(path(QStringLiteral("in/notes.docx")), text);
    writeFile(path(QStringLiteral("in/broken.pdf")), "%PDF-1.4 nothing else");

    model.add({path(QStringLiteral("in"))});
    ASSERT_EQ(model.items().rowCount(), 5);
    // Rows as they finish, in the order they change.
    QList<int> finished;
    QObject::connect(&model.items(), &QAbstractItemModel::dataChanged, &model, [&](const QModelIndex& first) {
        const auto state = LightenItem::State(first.data(LightenList::StateRole).toInt());
        if ((state == LightenItem::State::Done || state == LightenItem::State::Failed) &&
            !finished.contains(first.row()))
            finished.append(first.row());
    });
    QSignalSpy running(&model, &AllegerModel::runningChanged);
    model.run();
    EXPECT_TRUE(model.running());
    ASSERT_TRUE(waitUntilIdle(model));
    EXPECT_EQ(finished, (QList<int>{0, 1, 2, 3, 4}));

    // broken.pdf, IMG_0001.JPG, IMG_0002.JPG, IMG_0003.MOV, notes.docx
    EXPECT_EQ(states(model),
              (QList<LightenItem::State>{LightenItem::State::Failed, LightenItem::State::Done, LightenItem::State::Done,
                                         LightenItem::State::Done, LightenItem::State::Done}));
    const QList<LightenItem>& items = model.items().items();
    EXPECT_EQ(model.items().index(0).data(LightenList::StatusRole).toString(),
              QStringLiteral("Impossible de lire ce fichier."));
    for (int row = 1; row < 5; ++row) {
        EXPECT_TRUE(QFile::exists(items[row].output)) << qPrintable(items[row].output);
        EXPECT_TRUE(items[row].output.startsWith(model.outputFolder()));
        EXPECT_LT(items[row].sizeAfter, items[row].sizeBefore);
    }
    EXPECT_TRUE(items[4].output.endsWith(QStringLiteral("notes.docx.zip")));
    // Photos and videos show a small picture of themselves; other files their kind's icon.
    for (int row : {1, 3}) {
        EXPECT_TRUE(QTest::qWaitFor(
            [&] { return !model.items().index(row).data(Qt::DecorationRole).value<QImage>().isNull(); }, 30'000))
            << row;
        EXPECT_LE(model.items().index(row).data(Qt::DecorationRole).value<QImage>().width(),
                  AllegerModel::thumbnailSide);
    }
    EXPECT_FALSE(model.items().index(4).data(Qt::DecorationRole).isValid());
    EXPECT_EQ(model.items().index(1).data(LightenList::StatusRole).toString(),
              LightenList::sizesText(items[1].sizeBefore, items[1].sizeAfter));
    EXPECT_EQ(model.doneCount(), 4);
    EXPECT_EQ(model.doneFiles().size(), 4);
    EXPECT_TRUE(model.showClearFolder());
    EXPECT_LT(model.usedBytes(), QFileInfo(path(QStringLiteral("in/IMG_0001.JPG"))).size());

    // Done rows drag out as their lightened files.
    std::unique_ptr<QMimeData> dragged(model.items().mimeData({model.items().index(1), model.items().index(0)}));
    ASSERT_TRUE(dragged);
    EXPECT_EQ(dragged->urls(), QList<QUrl>{QUrl::fromLocalFile(items[1].output)});

    // The lightened files go to the trash, not away.
    model.clearOutputFolder();
    EXPECT_EQ(fakes.trash.trashed.size(), 4);
    EXPECT_EQ(model.notice(), QStringLiteral("4 fichiers allégés mis à la Corbeille."));
    EXPECT_FALSE(model.showClearFolder());
}

TEST_F(AllegerModelTest, StoppingEndsTheVideoInHandAndLeavesTheRestWaiting)
{
    if (!hasTool(QStringLiteral("ffmpeg")))
        GTEST_SKIP() << "needs ffmpeg";
    ASSERT_TRUE(
        runCommand(QStringLiteral("ffmpeg"),
                   {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"), QStringLiteral("lavfi"),
                    QStringLiteral("-i"), QStringLiteral("testsrc2=size=1920x1080:rate=30"), QStringLiteral("-t"),
                    QStringLiteral("30"), QStringLiteral("-c:v"), QStringLiteral("libx264"), QStringLiteral("-preset"),
                    QStringLiteral("ultrafast"), path(QStringLiteral("a-long.mp4"))}));
    writeFile(path(QStringLiteral("b-notes.txt")), QByteArray(10'000, 'n'));
    model.add({path(QStringLiteral("a-long.mp4")), path(QStringLiteral("b-notes.txt"))});
    model.run();
    ASSERT_TRUE(QTest::qWaitFor(
        [this] { return model.items().index(0).data(LightenList::ProgressRole).toDouble() > 0; }, 60'000));
    model.stop();
    EXPECT_TRUE(model.stopping());
    ASSERT_TRUE(waitUntilIdle(model, 10'000));
    EXPECT_EQ(states(model), (QList<LightenItem::State>{LightenItem::State::Waiting, LightenItem::State::Waiting}));
    EXPECT_TRUE(QDir(model.outputFolder()).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot).isEmpty());

    // Rows added while a pass runs are taken when it ends, with autoLighten.
    model.setAutoLighten(true);
    model.remove(0);
    model.run();
    ASSERT_TRUE(waitUntilIdle(model));
    EXPECT_EQ(states(model), (QList<LightenItem::State>{LightenItem::State::Done}));
}

TEST_F(AllegerModelTest, EachTargetHandsOffAndSaysWhatItDid)
{
    model.send();
    EXPECT_EQ(model.notice(), QStringLiteral("Rien à envoyer pour l'instant : attends la fin de l'allègement."));
    EXPECT_TRUE(fakes.handoff.sent.isEmpty());

    writeFile(path(QStringLiteral("notes.txt")), QByteArray(20'000, 'x'));
    model.add({path(QStringLiteral("notes.txt"))});
    model.run();
    ASSERT_TRUE(waitUntilIdle(model));
    const QStringList files = model.doneFiles();
    ASSERT_EQ(files.size(), 1);

    using Kind = Handoff::Outcome::Kind;
    // Telegram's own chat chooser: nothing on the clipboard.
    model.setTarget(int(LightenTarget::Telegram));
    fakes.handoff.answer = {Kind::ShareWindow, {}};
    model.send();
    ASSERT_EQ(fakes.handoff.sent.size(), 1);
    EXPECT_EQ(fakes.handoff.sent[0].first, Handoff::Channel::Telegram);
    EXPECT_EQ(fakes.handoff.sent[0].second, files);
    EXPECT_TRUE(fakes.clipboard.files.isEmpty());
    EXPECT_TRUE(model.notice().contains(QStringLiteral("Telegram"))) << qPrintable(model.notice());

    // WhatsApp's web version: the files wait on the clipboard and in the file manager.
    model.setTarget(int(LightenTarget::WhatsApp));
    fakes.handoff.answer = {Kind::WebOpened, {}};
    model.send();
    EXPECT_EQ(fakes.clipboard.files, files);
    EXPECT_EQ(fakes.workspace.revealed.value(0), files[0]);
    EXPECT_TRUE(model.notice().startsWith(QStringLiteral("WhatsApp Web s'ouvre"))) << qPrintable(model.notice());
    // Nothing to open it with: still on the clipboard, and the notice names it.
    fakes.clipboard.files.clear();
    fakes.handoff.answer = {Kind::NotAvailable, {}};
    model.send();
    EXPECT_EQ(fakes.clipboard.files, files);
    EXPECT_TRUE(model.notice().startsWith(QStringLiteral("WhatsApp n'est pas installé"))) << qPrintable(model.notice());

    // Mail without a mail application: said, nothing else done.
    fakes.clipboard.files.clear();
    model.setTarget(int(LightenTarget::Mail));
    fakes.handoff.answer = {Kind::NotAvailable, {}};
    model.send();
    EXPECT_TRUE(fakes.clipboard.files.isEmpty());
    EXPECT_FALSE(model.notice().isEmpty());

    // Messages, absent here: revealed and on the clipboard. Free: the same, counted.
    model.setTarget(int(LightenTarget::Messages));
    model.send();
    EXPECT_EQ(fakes.clipboard.files, files);
    fakes.clipboard.files.clear();
    model.setTarget(int(LightenTarget::Free));
    const int handedBefore = int(fakes.handoff.sent.size());
    model.send();
    EXPECT_EQ(fakes.clipboard.files, files);
    EXPECT_EQ(fakes.handoff.sent.size(), handedBefore); // no application involved
    EXPECT_TRUE(model.notice().startsWith(QStringLiteral("1 fichier copié"))) << qPrintable(model.notice());
}

TEST_F(AllegerModelTest, ThePickerRemembersItsFolderWhileItExists)
{
    const QString pictures = AllegerModel::photosFolder();
    EXPECT_EQ(model.pickerFolder(), pictures);
    QDir().mkpath(path(QStringLiteral("chosen")));
    model.rememberPickedFolder(path(QStringLiteral("chosen")));
    AllegerModel again(fakes.services());
    EXPECT_EQ(again.pickerFolder(), path(QStringLiteral("chosen")));
    QDir(path(QStringLiteral("chosen"))).removeRecursively();
    EXPECT_EQ(again.pickerFolder(), pictures);
}

TEST_F(AllegerModelTest, ClearingTheFolderPutsTheFilesInTheDesktopsTrash)
{
#if defined(Q_OS_MACOS)
    GTEST_SKIP() << "the Finder's trash is the system's own business";
#endif
    // The test's home has a trash of its own; the files go there with their records.
    SystemTrash system;
    Services services{fakes.secrets,     fakes.workspace,   system,        fakes.clipboard,
                      fakes.volumes,     fakes.appearance,  fakes.handoff, fakes.ownerCheck,
                      fakes.sessionLock, fakes.nearbyShare, fakes.phones};
    AllegerModel real(services);
    const QString output = QDir::home().filePath(QStringLiteral("Pictures/Nuvrel-Alleges"));
    real.setOutputFolder(output);
    writeFile(QDir(output).filePath(QStringLiteral("IMG_0001-leger.jpg")), "jpeg");
    writeFile(QDir(output).filePath(QStringLiteral("scan-leger.pdf")), "pdf");
    writeFile(QDir(output).filePath(QStringLiteral(".nuvrel-0123456789abcdef.part")), "half"); // a pass's, not ours
    real.setOutputFolder(output);
    EXPECT_TRUE(real.showClearFolder());

    real.clearOutputFolder();
    EXPECT_EQ(real.notice(), QStringLiteral("2 fichiers allégés mis à la Corbeille."));
    EXPECT_EQ(QDir(output).entryList(QDir::Files), QStringList());
    EXPECT_FALSE(real.showClearFolder());
    const QString trash =
        QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Trash");
    for (const QString& name : {QStringLiteral("IMG_0001-leger.jpg"), QStringLiteral("scan-leger.pdf")}) {
        EXPECT_TRUE(QFile::exists(trash + QStringLiteral("/files/") + name)) << qPrintable(name);
        QFile info(trash + QStringLiteral("/info/") + name + QStringLiteral(".trashinfo"));
        ASSERT_TRUE(info.open(QIODevice::ReadOnly)) << qPrintable(name);
        const QByteArray record = info.readAll();
        EXPECT_TRUE(record.startsWith("[Trash Info]")) << record.constData();
        EXPECT_TRUE(record.contains("Path=")) << record.constData();
        EXPECT_TRUE(record.contains("DeletionDate=")) << record.constData();
    }
}
