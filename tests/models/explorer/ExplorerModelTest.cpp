#include "models/explorer/ExplorerModel.h"
#include "sessions/conversations/ConversationFiles.h"

#include "engines/backup/BackupLocator.h"
#include "engines/backup/BackupPasswordStore.h"
#include "engines/backup/BackupReadError.h"
#include "engines/conversations/ConversationPdf.h"
#include "l10n/L.h"
#include "l10n/LanguageStore.h"
#include "l10n/Localizer.h"
#include "support/BackupFixture.h"
#include "support/ChatFixtures.h"
#include "support/FakeServices.h"
#include "support/FolderSnapshot.h"
#include "support/MemorySecretStore.h"
#include "support/PdfTools.h"
#include "support/RecordingWorkspace.h"
#include "support/SampleBackup.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

constexpr int timeoutMs = 60'000;

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

BackupEntry entry(const QString& domain, const QString& path, std::optional<QDateTime> mtime = std::nullopt,
                  qint64 size = 1)
{
    BackupEntry e;
    e.fileID = SampleBackup::fileID(domain, path);
    e.domain = domain;
    e.path = path;
    MBFileInfoBox box;
    box.value.size = size;
    box.value.mtime = mtime;
    e.preMeta = box;
    return e;
}

QStringList names(const QList<FolderItem>& items)
{
    QStringList list;
    for (const FolderItem& item : items)
        list << item.name;
    return list;
}

QByteArray fileData(const QString& text)
{
    return text.toUtf8();
}

class ExplorerModelTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }

    /// Writes the backup and returns it as discovery reads it.
    PhoneBackup write(const SampleBackup& sample)
    {
        const QString folder = sample.write(m_root.path());
        const std::optional<PhoneBackup> backup = BackupLocator::read(folder);
        EXPECT_TRUE(backup.has_value());
        return backup.value_or(PhoneBackup{});
    }

    std::unique_ptr<ExplorerModel> openReady(const PhoneBackup& backup, const QString& password = {})
    {
        auto model = std::make_unique<ExplorerModel>(backup, m_fakes.services());
        model->start();
        if (!password.isEmpty()) {
            model->setPassword(password);
            model->openBackup();
        }
        EXPECT_TRUE(QTest::qWaitFor([&] { return model->phase() == ExplorerModel::Phase::Ready; }, timeoutMs))
            << model->failureMessage().toStdString();
        return model;
    }

    static bool waitIdle(ExplorerModel& model)
    {
        return QTest::qWaitFor([&] { return model.busy().isEmpty() && !model.chatsLoading(); }, timeoutMs);
    }

    QTemporaryDir m_root;
    QTemporaryDir m_out;
    FakeServices m_fakes;
    MemorySecretStore& m_secrets = m_fakes.secrets;
    RecordingWorkspace& m_workspace = m_fakes.workspace;
    AppLanguage m_saved = AppLanguage::Auto;
};

TEST_F(ExplorerModelTest, OrganizesPhotosDomainsAndConversationDatabases)
{
    const auto at = [](int day) { return QDateTime(QDate(2026, 3, day), QTime(12, 0), QTimeZone::utc()); };
    QList<BackupEntry> entries{
        entry(QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_0001.JPG"), at(1)),
        entry(QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_0001.AAE"), at(1)),
        entry(QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_0002.heic"), at(5)),
        entry(QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_0003.MOV"), at(3)),
        entry(QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/undated.png")),
        entry(QStringLiteral("CameraRollDomain"), QStringLiteral("Media/PhotoData/Thumbnails/1.jpg"), at(9)),
        entry(QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE.jpg/README"), at(9)),
        entry(QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db")),
        entry(QStringLiteral("AppDomainGroup-group.net.whatsapp.WhatsApp.shared"),
              QStringLiteral("ChatStorage.sqlite")),
    };
    for (int i = 0; i < 9; ++i)
        entries.append(entry(QStringLiteral("HomeDomain"), QStringLiteral("Library/Notes/%1.txt").arg(i)));
    for (int i = 0; i < 2; ++i)
        entries.append(entry(QStringLiteral("AppDomainGroup-group.net.whatsapp.WhatsApp.shared"),
                             QStringLiteral("Media/%1.jpg").arg(i)));
    entries.append(entry(QStringLiteral("AppDomain-com.example.small"), QStringLiteral("a")));
    for (int i = 0; i < 4; ++i)
        entries.append(entry(QStringLiteral("AppDomain-com.example.big"), QStringLiteral("b%1").arg(i)));

    const BackupCatalogue result = BackupCatalogue::organize(entries);

    // Upper-case extensions count, side files and paths outside DCIM do not; newest first, undated last.
    QStringList photos;
    for (const BackupPhoto& photo : result.photos)
        photos << photo.entry.fileName() + (photo.isVideo ? QStringLiteral("*") : QString());
    EXPECT_EQ(photos, (QStringList{QStringLiteral("IMG_0002.heic"), QStringLiteral("IMG_0003.MOV*"),
                                   QStringLiteral("IMG_0001.JPG"), QStringLiteral("undated.png")}));

    // Ranked domains first whatever their size; unranked ones by file count.
    QStringList domains;
    for (const DomainRow& row : result.domains)
        domains << row.domain + u'=' + QString::number(row.count);
    EXPECT_EQ(domains, (QStringList{QStringLiteral("CameraRollDomain=7"),
                                    QStringLiteral("AppDomainGroup-group.net.whatsapp.WhatsApp.shared=3"),
                                    QStringLiteral("HomeDomain=10"), QStringLiteral("AppDomain-com.example.big=4"),
                                    QStringLiteral("AppDomain-com.example.small=1")}));
    ASSERT_TRUE(result.messagesDatabase && result.whatsAppDatabase);
    EXPECT_EQ(result.messagesDatabase->path, QStringLiteral("Library/SMS/sms.db"));
    EXPECT_EQ(result.whatsAppDatabase->domain, QStringLiteral("AppDomainGroup-group.net.whatsapp.WhatsApp.shared"));
    EXPECT_EQ(result.byDomain.value(QStringLiteral("HomeDomain")).first().path, QStringLiteral("Library/SMS/sms.db"));
}

TEST_F(ExplorerModelTest, DomainTitles)
{
    EXPECT_EQ(BackupCatalogue::friendly(QStringLiteral("AppDomainGroup-group.com.example")),
              QStringLiteral("App partagée : group.com.example"));
    EXPECT_EQ(BackupCatalogue::friendly(QStringLiteral("AppDomainGroup-group.net.whatsapp.WhatsApp.shared")),
              QStringLiteral("WhatsApp (conversations et médias)"));
    EXPECT_EQ(BackupCatalogue::friendly(QStringLiteral("AppDomainPlugin-com.apple.widget")),
              QStringLiteral("Extension : com.apple.widget"));
    EXPECT_EQ(BackupCatalogue::friendly(QStringLiteral("SysContainerDomain-com.apple.x")),
              QStringLiteral("Système : com.apple.x"));
    EXPECT_EQ(BackupCatalogue::friendly(QStringLiteral("AppDomain-")), QStringLiteral("App : "));
    EXPECT_EQ(BackupCatalogue::friendly(QStringLiteral("WirelessDomain")), QStringLiteral("WirelessDomain"));
    LanguageStore::shared().setLanguageForThisRun(AppLanguage::En);
    EXPECT_EQ(BackupCatalogue::friendly(QStringLiteral("CameraRollDomain")), QStringLiteral("Photos & Videos"));
}

TEST_F(ExplorerModelTest, ListingInTheFindersOrder)
{
    const QString d = QStringLiteral("CameraRollDomain");
    const QList<BackupEntry> entries{
        entry(d, QStringLiteral("Media/IMG_10.JPG"), std::nullopt, 100),
        entry(d, QStringLiteral("Media/img_9.JPG"), std::nullopt, 10),
        entry(d, QStringLiteral("Media/DCIM/100APPLE/IMG_1.JPG"), std::nullopt, 5),
        entry(d, QStringLiteral("Media/DCIM/101APPLE/IMG_2.JPG"), std::nullopt, 7),
        entry(d, QStringLiteral("Media/apple/x"), std::nullopt, 1),
        entry(d, QStringLiteral("Media//hidden"), std::nullopt, 1),
        entry(d, QStringLiteral("Mediator/not-below"), std::nullopt, 1),
        entry(d, QStringLiteral("Media"), std::nullopt, 1),
    };
    const QList<FolderItem> media = BackupCatalogue::listing(entries, {QStringLiteral("Media")});
    // Folders first, case-insensitive, digit runs by value.
    EXPECT_EQ(names(media), (QStringList{QStringLiteral("apple"), QStringLiteral("DCIM"), QStringLiteral("img_9.JPG"),
                                         QStringLiteral("IMG_10.JPG")}));
    EXPECT_TRUE(media[1].isFolder);
    EXPECT_EQ(media[1].count, 2);
    EXPECT_EQ(media[1].size, 12);
    ASSERT_TRUE(media[3].entry.has_value());
    EXPECT_EQ(media[3].size, 100);

    const QList<FolderItem> top = BackupCatalogue::listing(entries, {});
    EXPECT_EQ(names(top), (QStringList{QStringLiteral("Media"), QStringLiteral("Mediator"), QStringLiteral("Media")}));
    EXPECT_TRUE(BackupCatalogue::listing(entries, {QStringLiteral("nowhere")}).isEmpty());
}

TEST_F(ExplorerModelTest, PhotoPagesAndSelection)
{
    SampleBackup sample;
    for (int i = 1; i <= 1500; ++i) {
        sample.files.append({QStringLiteral("CameraRollDomain"),
                             QStringLiteral("Media/DCIM/100APPLE/IMG_%1.JPG").arg(i, 4, 10, QLatin1Char('0')),
                             fileData(QString::number(i)), 1'700'000'000 + i});
    }
    sample.writeStoredCopies = false;
    auto model = openReady(write(sample));
    ASSERT_EQ(model->photoRoll().photos().size(), 1500);
    EXPECT_EQ(model->photoRoll().photos().first().entry.fileName(), QStringLiteral("IMG_1500.JPG"));
    EXPECT_EQ(model->photoRoll().shownPhotos(), 600);
    model->photoRoll().showMore();
    EXPECT_EQ(model->photoRoll().shownPhotos(), 1200);
    model->photoRoll().showMore();
    EXPECT_EQ(model->photoRoll().shownPhotos(), 1500);
    model->photoRoll().showMore();
    EXPECT_EQ(model->photoRoll().shownPhotos(), 1500);
    EXPECT_EQ(
        model->photoRoll().header(),
        Localizer::locale().toString(1500) +
            QStringLiteral(" photos · 0 vidéo · 4,9 Ko. Clique sur les photos à extraire.")); // French says "0 vidéo"

    QSignalSpy selection(&model->photoRoll(), &PhotoRoll::selectedChanged);
    const QString id = model->photoRoll().photos().at(3).entry.fileID;
    model->photoRoll().toggleSelected(id);
    model->photoRoll().toggleSelected(QStringLiteral("not-a-photo"));
    EXPECT_EQ(model->photoRoll().selected(), QSet<QString>{id});
    model->photoRoll().toggleSelected(id);
    EXPECT_TRUE(model->photoRoll().selected().isEmpty());
    EXPECT_EQ(selection.count(), 2);
}

TEST_F(ExplorerModelTest, EncryptedBackupWrongThenRightPasswordAndTheKeychain)
{
    SampleBackup sample;
    sample.password = QStringLiteral("correct horse");
    sample.files = cameraRollPhotos(2);
    const PhoneBackup backup = write(sample);

    ExplorerModel model(backup, m_fakes.services());
    EXPECT_EQ(model.phase(), ExplorerModel::Phase::AskPassword);
    model.start();
    model.openBackup(); // nothing typed: asks again, with a reason
    EXPECT_EQ(model.phase(), ExplorerModel::Phase::AskPassword);
    EXPECT_FALSE(model.failureMessage().isEmpty());

    model.setPassword(QStringLiteral("wrong"));
    model.openBackup();
    EXPECT_EQ(model.phase(), ExplorerModel::Phase::Loading);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.phase() != ExplorerModel::Phase::Loading; }, timeoutMs));
    EXPECT_EQ(model.phase(), ExplorerModel::Phase::AskPassword);
    EXPECT_EQ(model.failureMessage(), BackupReadError::wrongPassword().message());

    model.setPassword(QStringLiteral("correct horse"));
    model.setRememberPassword(true);
    model.openBackup();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.savedPassword(); }, timeoutMs));
    EXPECT_EQ(model.phase(), ExplorerModel::Phase::Ready);
    EXPECT_EQ(model.photoRoll().photos().size(), 2);
    EXPECT_EQ(BackupPasswordStore(m_secrets).load(backup.id), QStringLiteral("correct horse"));
    EXPECT_EQ(model.notice(),
              Localizer::platformText(QStringLiteral("Mot de passe gardé dans le Trousseau de ce Mac.")));

    // A second explorer of the same backup finds the kept password.
    ExplorerModel again(backup, m_fakes.services());
    again.start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return again.savedPassword(); }, timeoutMs));
    EXPECT_EQ(again.password(), QStringLiteral("correct horse"));
    again.forgetPassword();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !again.savedPassword(); }, timeoutMs));
    EXPECT_FALSE(BackupPasswordStore(m_secrets).load(backup.id).has_value());

    // A keychain that refuses says so and keeps nothing.
    m_secrets.refuse = true;
    model.keepPassword();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.errorNotice().isEmpty(); }, timeoutMs));
}

TEST_F(ExplorerModelTest, UnreadableBackupFails)
{
    SampleBackup sample;
    sample.files = cameraRollPhotos(1);
    const PhoneBackup backup = write(sample);
    QFile manifest(QDir(backup.url).filePath(QStringLiteral("Manifest.db")));
    ASSERT_TRUE(manifest.open(QIODevice::WriteOnly | QIODevice::Truncate));
    manifest.write("this is no database at all, just some text that is long enough");
    manifest.close();

    ExplorerModel model(backup, m_fakes.services());
    model.start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.phase() == ExplorerModel::Phase::Failed; }, timeoutMs));
    EXPECT_FALSE(model.failureMessage().isEmpty());
    EXPECT_TRUE(model.busy().isEmpty());
}

TEST_F(ExplorerModelTest, ExtractsSelectedPhotosCountsMissingCopiesAndRevealsTheFolder)
{
    SampleBackup sample;
    sample.password = QStringLiteral("pw");
    sample.files = cameraRollPhotos(5);
    const PhoneBackup backup = write(sample);
    // One stored copy lost: counted, not fatal.
    const QString lost = SampleBackup::fileID(QStringLiteral("CameraRollDomain"), sample.files[1].path);
    ASSERT_TRUE(QFile::remove(QDir(backup.url).filePath(lost.left(2) + u'/' + lost)));

    auto model = openReady(backup, QStringLiteral("pw"));
    for (const BackupPhoto& photo : model->photoRoll().photos()) {
        if (photo.entry.fileName() != QStringLiteral("IMG_0003.JPG"))
            model->photoRoll().toggleSelected(photo.entry.fileID);
    }
    ASSERT_EQ(model->photoRoll().selected().size(), 4);
    const QString destination = m_out.filePath(QStringLiteral("Photos"));
    model->extractSelectedPhotos(destination);
    EXPECT_TRUE(model->busy().startsWith(QStringLiteral("Extraction ")));
    ASSERT_TRUE(waitIdle(*model));
    EXPECT_EQ(model->notice(), QStringLiteral("3 fichiers extraits · 1 impossible (absent de la sauvegarde)"));
    EXPECT_EQ(model->lastFolder(), destination);
    for (const SampleFile& file : sample.files) {
        const QString name = QFileInfo(file.path).fileName();
        const QString out = QDir(destination).filePath(name);
        if (name == QStringLiteral("IMG_0003.JPG") || name == QStringLiteral("IMG_0002.JPG"))
            EXPECT_FALSE(QFileInfo::exists(out)) << name.toStdString();
        else
            EXPECT_EQ(readAll(out), file.contents) << name.toStdString();
    }
    model->revealLastFolder();
    EXPECT_EQ(m_workspace.revealed, QStringList{destination});

    // Again into the same folder: nothing is overwritten.
    model->extractAllPhotos(destination);
    ASSERT_TRUE(waitIdle(*model));
    EXPECT_TRUE(QFileInfo::exists(QDir(destination).filePath(QStringLiteral("IMG_0001 (2).JPG"))));

    // A destination that cannot be made stops the batch with the reason.
    QFile blocker(m_out.filePath(QStringLiteral("blocker")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    model->extractAllPhotos(m_out.filePath(QStringLiteral("blocker/inside")));
    ASSERT_TRUE(waitIdle(*model));
    EXPECT_TRUE(model->errorNotice().startsWith(QStringLiteral("0 fichier extrait · ")))
        << model->errorNotice().toStdString();
}

TEST_F(ExplorerModelTest, BrowsesFoldersExtractsOneAndOpensAFile)
{
    SampleBackup sample;
    sample.files = {
        {QStringLiteral("HomeDomain"), QStringLiteral("Library/Notes/a.txt"), QByteArray("A")},
        {QStringLiteral("HomeDomain"), QStringLiteral("Library/Notes/deep/b.txt"), QByteArray("BB")},
        {QStringLiteral("HomeDomain"), QStringLiteral("Library/Preferences/c.plist"), QByteArray("CCC")},
        {QStringLiteral("HomeDomain"), QStringLiteral("Library/Notes/../../escape.txt"), QByteArray("X")},
    };
    auto model = openReady(write(sample));
    model->fileBrowser().openDomain(QStringLiteral("HomeDomain"));
    EXPECT_EQ(names(model->fileBrowser().items()), QStringList{QStringLiteral("Library")});
    model->fileBrowser().openFolder(QStringLiteral("Library"));
    model->fileBrowser().openFolder(QStringLiteral("Notes"));
    EXPECT_EQ(model->fileBrowser().folder(), (QStringList{QStringLiteral("Library"), QStringLiteral("Notes")}));
    EXPECT_EQ(names(model->fileBrowser().items()), (QStringList{QStringLiteral("deep"), QStringLiteral("a.txt")}));

    model->extractCurrentFolder(m_out.path());
    ASSERT_TRUE(waitIdle(*model));
    EXPECT_EQ(readAll(m_out.filePath(QStringLiteral("Notes/a.txt"))), "A");
    EXPECT_EQ(readAll(m_out.filePath(QStringLiteral("Notes/deep/b.txt"))), "BB");
    // The hostile path stays inside the extracted folder.
    EXPECT_EQ(readAll(m_out.filePath(QStringLiteral("Notes/escape.txt"))), "X");
    EXPECT_FALSE(QFileInfo::exists(QDir(m_out.path()).filePath(QStringLiteral("../escape.txt"))));
    EXPECT_EQ(model->notice(), QStringLiteral("3 fichiers extraits"));

    const FolderItem file = model->fileBrowser().items().constLast();
    ASSERT_TRUE(file.entry.has_value());
    model->openFile(*file.entry);
    EXPECT_EQ(model->busy(), QStringLiteral("Ouverture de a.txt…"));
    ASSERT_TRUE(waitIdle(*model));
    ASSERT_EQ(m_workspace.opened.size(), 1);
    EXPECT_EQ(QFileInfo(m_workspace.opened[0]).fileName(), QStringLiteral("a.txt"));
    EXPECT_EQ(readAll(m_workspace.opened[0]), "A");

    // What failed, and why: no application for the file, or a stored copy that is gone.
    m_workspace.refuse = true;
    model->openFile(*file.entry);
    ASSERT_TRUE(waitIdle(*model));
    EXPECT_EQ(model->errorNotice(), QStringLiteral("Aucune application n'a pu ouvrir « a.txt »."));
    m_workspace.refuse = false;
    const FolderItem deep = model->fileBrowser().items().constFirst();
    model->fileBrowser().openFolder(deep.name);
    const FolderItem gone = model->fileBrowser().items().constFirst();
    ASSERT_TRUE(gone.entry.has_value());
    ASSERT_TRUE(
        QFile::remove(QDir(model->backup().url).filePath(gone.entry->fileID.left(2) + u'/' + gone.entry->fileID)));
    model->openFile(*gone.entry);
    ASSERT_TRUE(waitIdle(*model));
    EXPECT_EQ(model->errorNotice(), QStringLiteral("La sauvegarde est incomplète : la copie d'un fichier manque."));
    model->fileBrowser().goUp(1);

    model->fileBrowser().goUp(1);
    EXPECT_EQ(model->fileBrowser().folder(), QStringList{QStringLiteral("Library")});
    model->fileBrowser().goUp(-1);
    EXPECT_TRUE(model->fileBrowser().domain().isEmpty());
    EXPECT_TRUE(model->fileBrowser().items().isEmpty());
}

TEST_F(ExplorerModelTest, ThumbnailsAreDecodedOnceAndTheCacheStaysBounded)
{
    SampleBackup sample;
    sample.password = QStringLiteral("pw");
    sample.files = cameraRollPhotos(12);
    sample.files.append({QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/BROKEN.JPG"),
                         QByteArray("not a picture"), 1'600'000'000});
    auto model = openReady(write(sample), QStringLiteral("pw"));

    const QString first = model->photoRoll().photos().first().entry.fileID;
    EXPECT_TRUE(model->photoRoll().thumbnail(first).isNull()); // asked for; comes later
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model->photoRoll().thumbnail(first).isNull(); }, timeoutMs));
    const QImage thumb = model->photoRoll().thumbnail(first);
    EXPECT_LE(std::max(thumb.width(), thumb.height()), PhotoRoll::thumbnailSide);
    EXPECT_EQ(model->photoRoll().thumbnailsDecoded(), 1);
    model->photoRoll().thumbnail(first);
    EXPECT_EQ(model->photoRoll().thumbnailsDecoded(), 1);

    const QString broken = model->photoRoll().photos().constLast().entry.fileID;
    model->photoRoll().thumbnail(broken);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model->photoRoll().thumbnailFailed(broken); }, timeoutMs));

    // A cache for three: scrolling through twelve never holds more, and scrolling back decodes again.
    const qint64 one = thumb.sizeInBytes();
    model->photoRoll().setThumbnailCacheLimit(one * 3);
    for (const BackupPhoto& photo : model->photoRoll().photos())
        model->photoRoll().thumbnail(photo.entry.fileID);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model->photoRoll().thumbnailsDecoded() >= 13; }, timeoutMs));
    EXPECT_LE(model->photoRoll().thumbnailCacheBytes(), model->photoRoll().thumbnailCacheLimit());
}

TEST_F(ExplorerModelTest, ConversationsOfBothSourcesBecomePdfs)
{
    QTemporaryDir scratch;
    const QString sms = scratch.filePath(QStringLiteral("sms.db"));
    const QString wa = scratch.filePath(QStringLiteral("ChatStorage.sqlite"));
    writeSampleMessagesDatabase(sms);
    writeSampleWhatsAppDatabase(wa);
    SampleBackup sample;
    sample.password = QStringLiteral("pw");
    sample.files = {{QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db"), readAll(sms)},
                    {QStringLiteral("AppDomainGroup-group.net.whatsapp.WhatsApp.shared"),
                     QStringLiteral("ChatStorage.sqlite"), readAll(wa)}};
    auto model = openReady(write(sample), QStringLiteral("pw"));

    model->setTab(ExplorerModel::ConversationsTab); // reading starts with the tab
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return !model->chatsLoading() && !model->chatList().chats().isEmpty(); }, timeoutMs));
    const QList<MessagesChatInfo> messages = model->chatList().chats();
    ASSERT_EQ(messages.size(), 2);

    model->createChatPDF(messages.first().id);
    EXPECT_EQ(model->busy(), QStringLiteral("Création du PDF…"));
    ASSERT_TRUE(waitIdle(*model));
    ASSERT_EQ(m_workspace.opened.size(), 1);
    const QString pdf = m_workspace.opened.first();
    // The notice names the PDF and its side file; the PDF's own fingerprint is shown with it, and copied.
    EXPECT_TRUE(model->notice().startsWith(QStringLiteral("PDF créé : ") + QFileInfo(pdf).fileName()))
        << model->notice().toStdString() << model->errorNotice().toStdString();
    EXPECT_TRUE(model->notice().contains(QFileInfo(ConversationPDF::sideFilePath(pdf)).fileName()));
    QFile written(pdf);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(model->pdfFingerprint(),
              QString::fromLatin1(QCryptographicHash::hash(written.readAll(), QCryptographicHash::Sha256).toHex()));
    model->copyPdfFingerprint();
    EXPECT_EQ(m_fakes.clipboard.text, model->pdfFingerprint());
    EXPECT_TRUE(pdf.startsWith(ConversationFiles::folder()));
    EXPECT_TRUE(pdfText(pdf).contains(QStringLiteral("Messages (sauvegarde iPhone)")));

    model->setConvSource(ExplorerModel::WhatsAppSource);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return !model->chatsLoading() && !model->chatList().chats().isEmpty(); }, timeoutMs));
    QStringList titles;
    for (const MessagesChatInfo& chat : model->chatList().chats())
        titles << chat.title;
    EXPECT_EQ(titles, (QStringList{QStringLiteral("Famille 🏡"), QStringLiteral("Ana Martin")}));

    model->createAllChatPDFs();
    ASSERT_TRUE(waitIdle(*model));
    EXPECT_EQ(model->notice(), QStringLiteral("2 conversations enregistrées en PDF. Chaque PDF a son fichier "
                                              "d'empreinte à côté de lui, dans ") +
                                   QDir::toNativeSeparators(ConversationFiles::folder()) +
                                   QStringLiteral(". Retrouve-les dans « Garder une conversation », section « Mes "
                                                  "conversations enregistrées »."));
    EXPECT_TRUE(model->pdfFingerprint().isEmpty()) << "one fingerprint stands for one PDF only";
    EXPECT_EQ(model->lastFolder(), ConversationFiles::folder());
    const QStringList pdfs = QDir(ConversationFiles::folder()).entryList({QStringLiteral("*.pdf")});
    EXPECT_EQ(pdfs.size(), 3);
    EXPECT_TRUE(pdfs.contains(QStringLiteral("Famille 🏡.pdf")));
    EXPECT_TRUE(QFileInfo::exists(
        ConversationPDF::sideFilePath(QDir(ConversationFiles::folder()).filePath(QStringLiteral("Ana Martin.pdf")))));
}

TEST_F(ExplorerModelTest, ConversationOutcomesWithoutAList)
{
    QTemporaryDir scratch;
    const QString empty = scratch.filePath(QStringLiteral("empty.db"));
    {
        FixtureDatabase db(empty);
        createModernMessagesSchema(db);
    }
    SampleBackup sample;
    sample.files = {{QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db"), readAll(empty)},
                    {QStringLiteral("AppDomainGroup-group.net.whatsapp.WhatsApp.shared"),
                     QStringLiteral("ChatStorage.sqlite"), QByteArray(4096, 'g')}};
    auto model = openReady(write(sample));
    model->loadChats();
    ASSERT_TRUE(waitIdle(*model));
    EXPECT_TRUE(model->chatList().chats().isEmpty());
    EXPECT_TRUE(model->chatsMessage().startsWith(QStringLiteral("Cette sauvegarde ne contient aucun message.")));

    model->setConvSource(ExplorerModel::WhatsAppSource);
    ASSERT_TRUE(waitIdle(*model));
    EXPECT_TRUE(model->chatsMessage().startsWith(QStringLiteral("Impossible de lire les conversations : ")))
        << model->chatsMessage().toStdString();
    EXPECT_EQ(model->errorNotice(), model->chatsMessage());

    // No store at all in this one.
    SampleBackup bare;
    bare.id = QStringLiteral("bare");
    bare.files = cameraRollPhotos(1);
    auto other = openReady(write(bare));
    other->loadChats();
    EXPECT_EQ(other->chatsMessage(), QStringLiteral("Cette sauvegarde ne contient pas ces conversations."));
}

TEST_F(ExplorerModelTest, ConversationListIsCappedAndSearchable)
{
    QTemporaryDir scratch;
    const QString sms = scratch.filePath(QStringLiteral("sms.db"));
    writeLargeMessagesDatabase(sms, 700, 350, 2);
    SampleBackup sample;
    sample.files = {{QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db"), readAll(sms)}};
    auto model = openReady(write(sample));
    model->loadChats();
    ASSERT_TRUE(waitIdle(*model));
    ASSERT_EQ(model->chatList().chats().size(), 350);
    EXPECT_EQ(model->chatList().visible().size(), ChatList::limit);
    EXPECT_TRUE(model->chatList().isTruncated());

    const QString title = model->chatList().chats().at(42).title;
    model->chatList().setQuery(title.toUpper());
    ASSERT_FALSE(model->chatList().visible().isEmpty());
    for (const MessagesChatInfo& chat : model->chatList().visible())
        EXPECT_TRUE(chat.title.contains(title, Qt::CaseInsensitive));
    EXPECT_FALSE(model->chatList().isTruncated());
    model->chatList().setQuery(QStringLiteral("no such conversation"));
    EXPECT_TRUE(model->chatList().visible().isEmpty());
}

TEST_F(ExplorerModelTest, NothingIsWrittenOutsideTheChosenFolderOrInsideABackup)
{
    SampleBackup sample;
    sample.files = {{QStringLiteral(".."), QStringLiteral("up.txt"), QByteArray("U")},
                    {QStringLiteral("."), QStringLiteral("here.txt"), QByteArray("H")},
                    {QStringLiteral("HomeDomain"), QStringLiteral("Library/a.txt"), QByteArray("A")}};
    const PhoneBackup backup = write(sample);
    auto model = openReady(backup);
    const QString chosen = m_out.filePath(QStringLiteral("chosen"));
    for (const QString& domain : {QStringLiteral(".."), QStringLiteral(".")}) {
        model->fileBrowser().openDomain(domain);
        model->extractCurrentFolder(chosen);
        ASSERT_TRUE(waitIdle(*model));
        EXPECT_EQ(model->notice(), QStringLiteral("1 fichier extrait")) << domain.toStdString();
    }
    // A folder named "." or ".." is no level at all: its files land in the chosen folder itself.
    EXPECT_EQ(allEntries(m_out.path()), (QStringList{QStringLiteral("chosen"), QStringLiteral("chosen/here.txt"),
                                                     QStringLiteral("chosen/up.txt")}));

    // The backup folder itself, or any folder below it, is refused before anything starts.
    const QMap<QString, QByteArray> before = snapshot(backup.url);
    model->fileBrowser().openDomain(QStringLiteral("HomeDomain"));
    for (const QString& target : {backup.url, QDir(backup.url).filePath(QStringLiteral("new/deeper"))}) {
        model->extractCurrentFolder(target);
        EXPECT_TRUE(model->busy().isEmpty());
        EXPECT_EQ(model->errorNotice(),
                  QStringLiteral("Choisis un autre dossier : Nuvrel n'écrit jamais dans une sauvegarde."));
    }
    EXPECT_EQ(snapshot(backup.url), before);
}

TEST_F(ExplorerModelTest, AHostileIndexExtractedDomainByDomainStaysInTheChosenFolder)
{
    SampleBackup sample;
    sample.files = hostileIndexFiles();
    const PhoneBackup backup = write(sample);
    const QMap<QString, QByteArray> before = snapshot(backup.url);
    auto model = openReady(backup);
    const QString chosen = m_out.filePath(QStringLiteral("chosen"));
    const QList<DomainRow> domains = model->fileBrowser().domains();
    bool refusalsTold = false;
    for (const DomainRow& row : domains) {
        model->fileBrowser().openDomain(row.domain);
        model->extractCurrentFolder(chosen);
        ASSERT_TRUE(waitIdle(*model)) << row.domain.toStdString();
        EXPECT_TRUE(model->notice().contains(QStringLiteral(" extrait"))) << model->notice().toStdString();
        refusalsTold = refusalsTold || model->notice().contains(QStringLiteral("refusé"));
    }
    // The clashes are refused and said so, in the window's words.
    EXPECT_TRUE(refusalsTold);
    for (const QString& entry : allEntries(m_out.path())) {
        EXPECT_TRUE(entry.startsWith(QStringLiteral("chosen"))) << entry.toStdString();
        EXPECT_FALSE(entry.contains(QStringLiteral(".nuvrel-"))) << entry.toStdString();
    }
    EXPECT_EQ(snapshot(backup.url), before);
}

TEST_F(ExplorerModelTest, StopEndsAfterTheFileInHandAndSaysWhatWasKept)
{
    SampleBackup sample;
    sample.files = cameraRollPhotos(40);
    auto model = openReady(write(sample));
    int progressUpdates = 0;
    bool stopped = false;
    QObject::connect(model.get(), &ExplorerModel::busyChanged, model.get(), [&] {
        ++progressUpdates;
        // Stop as soon as the extraction says it runs: the first files are done or in hand.
        if (model->canStop() && !stopped) {
            stopped = true;
            model->stop();
        }
    });
    model->extractAllPhotos(m_out.path());
    ASSERT_TRUE(waitIdle(*model));
    ASSERT_TRUE(stopped);
    EXPECT_FALSE(model->canStop());
    const int written = int(QDir(m_out.path()).entryList(QDir::Files).size());
    EXPECT_LT(written, 40);
    EXPECT_EQ(model->notice(), LN("Extraction arrêtée : %@ fichier(s) extraits, gardés", written, written));
    // Every file kept is whole, and no temporary one is left.
    EXPECT_EQ(allEntries(m_out.path()).size(), written);
}

TEST_F(ExplorerModelTest, ConversationFileNames)
{
    EXPECT_EQ(ConversationFiles::fileName(QStringLiteral("Famille 🏡")), QStringLiteral("Famille 🏡.pdf"));
    EXPECT_EQ(ConversationFiles::fileName(QStringLiteral("a/b\\c:d*e?f\"g<h>i|j")), QStringLiteral("abcdefghij.pdf"));
    EXPECT_EQ(ConversationFiles::fileName(QStringLiteral("...")), QStringLiteral("Conversation.pdf"));
    EXPECT_EQ(ConversationFiles::fileName(QStringLiteral("/\u0001\u200E")), QStringLiteral("Conversation.pdf"));
    EXPECT_EQ(ConversationFiles::fileName(QStringLiteral("Line\nbreak\tand  spaces ")),
              QStringLiteral("Line break and spaces.pdf"));
    // 79 letters then an emoji: the cut falls after the whole emoji, never inside it.
    const QString name = ConversationFiles::fileName(QString(79, u'x') + QStringLiteral("👍🏽👍"));
    EXPECT_EQ(name, QString(79, u'x') + QStringLiteral("👍.pdf"));
    // A family emoji keeps its joiners.
    const QString family = QStringLiteral("👩\u200D👩\u200D👧");
    EXPECT_EQ(ConversationFiles::fileName(family), family + QStringLiteral(".pdf"));
}

TEST_F(ExplorerModelTest, TextsFollowALanguageChange)
{
    SampleBackup sample;
    sample.password = QStringLiteral("pw");
    sample.files = cameraRollPhotos(1);
    ExplorerModel model(write(sample), m_fakes.services());
    model.start();
    model.setPassword(QStringLiteral("nope"));
    model.openBackup();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.failureMessage().isEmpty(); }, timeoutMs));
    const QString french = model.failureMessage();
    LanguageStore::shared().setLanguageForThisRun(AppLanguage::En);
    EXPECT_NE(model.failureMessage(), french);
    EXPECT_EQ(model.failureMessage(), BackupReadError::wrongPassword().message());
}

TEST_F(ExplorerModelTest, RescueSheetOnlyForAProvenPasswordAndGoneWithTheExplorer)
{
    SampleBackup sample;
    sample.password = QStringLiteral("pw");
    sample.files = cameraRollPhotos(1);
    const PhoneBackup backup = write(sample);
    QString sheet;
    {
        ExplorerModel model(backup, m_fakes.services());
        model.start();
        model.setPassword(QStringLiteral("typo"));
        EXPECT_FALSE(model.canPrintRescueSheet());
        EXPECT_TRUE(model.printRescueSheet().isEmpty());
        model.setPassword(QStringLiteral("pw"));
        model.openBackup();
        ASSERT_TRUE(QTest::qWaitFor([&] { return model.phase() == ExplorerModel::Phase::Ready; }, timeoutMs));
        ASSERT_TRUE(model.canPrintRescueSheet());
        sheet = model.printRescueSheet();
        ASSERT_FALSE(sheet.isEmpty());
        EXPECT_EQ(m_workspace.opened, QStringList{sheet});
        EXPECT_EQ(QFileInfo(sheet).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther), 0);
        EXPECT_TRUE(pdfText(sheet).contains(QStringLiteral("pw")));
        // Nothing here shows PDFs: the sheet is made all the same, and the notice says where it is.
        m_workspace.refuse = true;
        const QString unshown = model.printRescueSheet();
        ASSERT_TRUE(QFileInfo(unshown).isFile());
        EXPECT_EQ(model.errorNotice(),
                  QStringLiteral("La fiche de secours est prête, mais aucune application n'a pu l'ouvrir : ") +
                      QDir::toNativeSeparators(unshown));
    }
    EXPECT_FALSE(QFileInfo::exists(sheet));
}

TEST_F(ExplorerModelTest, ClosingDuringWorkStopsSoonAndLeavesNoCopy)
{
    SampleBackup sample;
    sample.password = QStringLiteral("pw");
    sample.files = {{QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_0001.MOV"),
                     QByteArray(200 * 1024 * 1024, 'v'), 1'700'000'000}};
    sample.files += cameraRollPhotos(3);
    const PhoneBackup backup = write(sample);
    QString temp;
    {
        auto model = openReady(backup, QStringLiteral("pw"));
        temp = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Nuvrel/Temp/") +
               backup.id;
        for (const BackupPhoto& photo : model->photoRoll().photos())
            model->photoRoll().thumbnail(photo.entry.fileID); // the video's decryption starts
        model->extractAllPhotos(m_out.path());
        QTest::qWait(50);
        // What the page says when the user leaves now: how far the work got, and that it is kept.
        EXPECT_TRUE(model->interruptionNotice().contains(QStringLiteral(" sur 4 fait")))
            << model->interruptionNotice().toStdString();
    }
    // Closing returned at once; the copy in hand ends on its worker, then the copies go.
    EXPECT_TRUE(QTest::qWaitFor([&] { return !QFileInfo::exists(temp); }, 30'000));
    // What was cut short left nothing half-written behind.
    for (const QFileInfo& file : QDir(m_out.path()).entryInfoList(QDir::Files)) {
        if (file.suffix() == QStringLiteral("MOV")) {
            EXPECT_EQ(file.size(), 200 * 1024 * 1024);
        }
    }
}

} // namespace
