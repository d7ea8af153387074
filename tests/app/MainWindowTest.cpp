#include "app/shell/MainWindow.h"

#include "WindowChecks.h"
#include "app/shell/WindowStyler.h"
#include "app/views/conversations/ConversationsView.h"
#include "app/views/duplicates/DuplicatesView.h"
#include "app/views/explore/BackupsView.h"
#include "app/views/explore/ExplorePage.h"
#include "app/views/explore/ExplorerView.h"
#include "app/views/explore/PhotoGrid.h"
#include "app/views/home/HomeView.h"
#include "app/views/lighten/LightenView.h"
#include "app/views/photobackup/PhotoBackupView.h"
#include "app/views/transfer/QrCodeView.h"
#include "app/views/transfer/TransferView.h"
#include "app/views/vault/VaultView.h"
#include "app/views/welcome/WelcomeView.h"
#include "engines/backup/BackupReadError.h"
#include "l10n/LanguageStore.h"
#include "models/backups/BackupsModel.h"
#include "models/explorer/ExplorerModel.h"
#include "support/ChatFixtures.h"
#include "support/FakeServices.h"
#include "support/FolderSnapshot.h"
#include "support/HttpFetch.h"
#include "support/MemorySecretStore.h"
#include "support/RecordingWorkspace.h"
#include "support/SampleBackup.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QSettings>
#include <QStandardPaths>
#include <QTabBar>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

QStringList sidebarTitles(const MainWindow& window)
{
    QStringList titles;
    for (int row = 0; row < window.sidebar()->count(); ++row)
        titles << window.sidebar()->item(row)->text();
    return titles;
}

constexpr int timeoutMs = windowTimeoutMs;

class MainWindowTest : public testing::Test
{
protected:
    void SetUp() override
    {
        static const bool styled = [] {
            WindowStyler::apply(*qApp);
            return true;
        }();
        Q_UNUSED(styled);
        QSettings().clear();
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguage(AppLanguage::Fr);
        qputenv("NUVREL_BACKUP_ROOT", QFile::encodeName(m_root.path()));
    }
    void TearDown() override
    {
        qunsetenv("NUVREL_BACKUP_ROOT");
        LanguageStore::shared().setLanguage(m_saved);
    }

    std::unique_ptr<MainWindow> makeWindow()
    {
        auto window = std::make_unique<MainWindow>(m_fakes.services());
        window->resize(1280, 800);
        window->show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        EXPECT_TRUE(QTest::qWaitFor([&] { return !window->backupsModel().isScanning(); }, timeoutMs));
        return window;
    }

    // The window on its backups screen, the welcome already seen.
    std::unique_ptr<MainWindow> makeBackupsWindow()
    {
        QSettings().setValue(QStringLiteral("welcomeDone"), true);
        auto window = makeWindow();
        window->setSection(Page::Explore);
        return window;
    }

    // The explorer the backups screen has opened, once its backup is ready to browse; null otherwise.
    static ExplorerView* readyExplorer(MainWindow& window)
    {
        ExplorerView* explorer = window.explorePage()->explorerView();
        const bool ready =
            explorer &&
            QTest::qWaitFor([&] { return explorer->model().phase() == ExplorerModel::Phase::Ready; }, timeoutMs);
        return ready ? explorer : nullptr;
    }

    QTemporaryDir m_root;
    QTemporaryDir m_out;
    FakeServices m_fakes;
    MemorySecretStore& m_secrets = m_fakes.secrets;
    RecordingWorkspace& m_workspace = m_fakes.workspace;
    AppLanguage m_saved = AppLanguage::Auto;
};

TEST_F(MainWindowTest, WelcomeShowsOnceThenTheSidebar)
{
    {
        auto window = makeWindow();
        EXPECT_TRUE(window->welcomeView()->isVisible());
        EXPECT_FALSE(window->sidebar()->isVisible());
        screenshot(*window, QStringLiteral("01-welcome"));
        QTest::mouseClick(window->welcomeView()->startButton(), Qt::LeftButton);
        EXPECT_TRUE(window->sidebar()->isVisible());
        EXPECT_TRUE(QSettings().value(QStringLiteral("welcomeDone")).toBool());
        EXPECT_EQ(sidebarTitles(*window),
                  (QStringList{QStringLiteral("Accueil"), QStringLiteral("Sauvegarde"), QStringLiteral("Alléger"),
                               QStringLiteral("Conversations"), QStringLiteral("Explorer les sauvegardes"),
                               QStringLiteral("Doublons"), QStringLiteral("Ordinateur vers iPhone"),
                               QStringLiteral("Coffre verrouillé")}));
        EXPECT_EQ(window->section(), Page::Home);
        screenshot(*window, QStringLiteral("02-home"));
    }
    auto again = makeWindow();
    EXPECT_FALSE(again->welcomeView()->isVisible());
    EXPECT_TRUE(again->sidebar()->isVisible());
}

TEST_F(MainWindowTest, LanguageChangeRendersEveryTextAgain)
{
    auto window = makeBackupsWindow();
    EXPECT_EQ(window->explorePage()->backupsView()->findChild<QLabel*>(QStringLiteral("pageTitle"))->text(),
              QStringLiteral("Explorer les sauvegardes"));
    EXPECT_TRUE(labelTexts(*window->explorePage()).contains(QStringLiteral("Branche ton iPhone")));
    EXPECT_EQ(QDialogButtonBox(QDialogButtonBox::Cancel).button(QDialogButtonBox::Cancel)->text().remove(u'&'),
              QStringLiteral("Annuler"));

    // The menu lists the ten choices; choosing one changes everything at once.
    const QList<QAction*> actions = window->languageMenu()->actions();
    ASSERT_EQ(actions.size(), 10);
    const auto english = std::find_if(actions.begin(), actions.end(), [](QAction* action) {
        return action->data().value<AppLanguage>() == AppLanguage::En;
    });
    ASSERT_NE(english, actions.end());
    (*english)->trigger();
    EXPECT_EQ(LanguageStore::shared().language(), AppLanguage::En);
    EXPECT_TRUE((*english)->isChecked());
    EXPECT_EQ(
        sidebarTitles(*window),
        (QStringList{QStringLiteral("Home"), QStringLiteral("Backup"), QStringLiteral("Shrink"),
                     QStringLiteral("Conversations"), QStringLiteral("Explore Backups"), QStringLiteral("Duplicates"),
                     QStringLiteral("Computer to iPhone"), QStringLiteral("Locked Vault")}));
    EXPECT_EQ(window->explorePage()->backupsView()->findChild<QLabel*>(QStringLiteral("pageTitle"))->text(),
              QStringLiteral("Explore Backups"));
    EXPECT_FALSE(labelTexts(*window->explorePage()).contains(QStringLiteral("Branche ton iPhone")));
    EXPECT_EQ(window->section(), Page::Explore);
    EXPECT_EQ(QDialogButtonBox(QDialogButtonBox::Cancel).button(QDialogButtonBox::Cancel)->text().remove(u'&'),
              QStringLiteral("Cancel"));
    screenshot(*window, QStringLiteral("03-backups-empty-en"));

    // German: Qt's own texts follow too.
    LanguageStore::shared().setLanguage(AppLanguage::De);
    EXPECT_EQ(QDialogButtonBox(QDialogButtonBox::Cancel).button(QDialogButtonBox::Cancel)->text().remove(u'&'),
              QStringLiteral("Abbrechen"));
    EXPECT_EQ(window->sidebar()->item(0)->text(), QStringLiteral("Start"));
}

TEST_F(MainWindowTest, EncryptedBackupJourney)
{
    QTemporaryDir scratch;
    const QString sms = scratch.filePath(QStringLiteral("sms.db"));
    const QString wa = scratch.filePath(QStringLiteral("ChatStorage.sqlite"));
    writeSampleMessagesDatabase(sms);
    writeSampleWhatsAppDatabase(wa);
    SampleBackup sample;
    sample.password = QStringLiteral("secret");
    sample.files = cameraRollPhotos(8);
    sample.files.append({QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db"), readAll(sms)});
    sample.files.append({QStringLiteral("AppDomainGroup-group.net.whatsapp.WhatsApp.shared"),
                         QStringLiteral("ChatStorage.sqlite"), readAll(wa)});
    sample.write(m_root.path());
    SampleBackup plain;
    plain.id = QStringLiteral("plain-backup");
    plain.deviceName = QStringLiteral("iPhone de Louis");
    plain.productVersion = QString();
    plain.lastBackup = QDateTime();
    plain.files = cameraRollPhotos(2);
    plain.write(m_root.path());

    auto window = makeBackupsWindow();
    BackupsView* backups = window->explorePage()->backupsView();
    ASSERT_EQ(backups->list()->count(), 2);
    EXPECT_EQ(backups->list()->item(0)->text(), sample.deviceName);
    EXPECT_EQ(backups->list()->item(1)->text(), QStringLiteral("iPhone de Louis"));
    screenshot(*window, QStringLiteral("04-backups"));

    // Open the encrypted one with the keyboard.
    backups->list()->setFocus();
    backups->list()->setCurrentRow(0);
    QTest::keyClick(backups->list(), Qt::Key_Return);
    ExplorerView* explorer = window->explorePage()->explorerView();
    ASSERT_NE(explorer, nullptr);
    ExplorerModel& model = explorer->model();
    EXPECT_EQ(model.phase(), ExplorerModel::Phase::AskPassword);
    EXPECT_FALSE(explorer->openButton()->isEnabled());
    screenshot(*window, QStringLiteral("05-password"));
    // Every text of the password card is read whole, in every language, at the window's smallest size.
    window->resize(window->minimumSize());
    inEveryLanguage([&](AppLanguage language) {
        EXPECT_EQ(cutTexts(*explorer), QStringList()) << qPrintable(identifier(language));
        if (language == AppLanguage::De)
            screenshot(*window, QStringLiteral("05-password-de-smallest"));
    });
    window->resize(1280, 800);
    QApplication::processEvents();

    QTest::keyClicks(explorer->passwordField(), QStringLiteral("wrong"));
    QTest::keyClick(explorer->passwordField(), Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.phase() == ExplorerModel::Phase::AskPassword; }, timeoutMs));
    EXPECT_TRUE(labelTexts(*explorer).contains(BackupReadError::wrongPassword().message()));
    screenshot(*window, QStringLiteral("06-wrong-password"));

    // The refused password is selected: typing the next one replaces it.
    EXPECT_EQ(explorer->passwordField()->selectedText(), QStringLiteral("wrong"));
    QTest::keyClicks(explorer->passwordField(), QStringLiteral("secret"));
    EXPECT_EQ(explorer->passwordField()->text(), QStringLiteral("secret"));
    QTest::mouseClick(explorer->openButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.phase() == ExplorerModel::Phase::Ready; }, timeoutMs));
    EXPECT_EQ(explorer->tabs()->tabText(0), QStringLiteral("Photos et vidéos (8)"));

    // Three photos chosen by clicking their cells, then extracted.
    PhotoGridView* grid = explorer->photoGrid();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.photoRoll().thumbnailsDecoded() >= 8; }, timeoutMs));
    for (int row : {0, 2, 5})
        QTest::mouseClick(grid->viewport(), Qt::LeftButton, {},
                          grid->visualRect(grid->model()->index(row, 0)).center());
    EXPECT_EQ(model.photoRoll().selected().size(), 3);
    screenshot(*window, QStringLiteral("07-photos"));
    // In English the tab reads "Photos & Videos": every "&" of every language is shown as written.
    inEveryLanguage([&](AppLanguage language) {
        EXPECT_EQ(lostAmpersands(*window), QStringList()) << qPrintable(identifier(language));
    });
    LanguageStore::shared().setLanguage(AppLanguage::En);
    QApplication::processEvents();
    EXPECT_EQ(explorer->findChild<QTabWidget*>()->tabText(ExplorerModel::PhotosTab).left(18),
              QStringLiteral("Photos && Videos ("));
    LanguageStore::shared().setLanguage(AppLanguage::Fr);
    QApplication::processEvents();
    // The same screen in the dark palette, then back.
    qputenv("NUVREL_THEME", "dark");
    WindowStyler::apply(*qApp);
    screenshot(*window, QStringLiteral("07-photos-dark"));
    qputenv("NUVREL_THEME", "light");
    WindowStyler::apply(*qApp);
    qunsetenv("NUVREL_THEME");
    const QString destination = m_out.filePath(QStringLiteral("Extraites"));
    explorer->setDestinationPicker([destination] { return destination; });
    const QList<QPushButton*> extractSelected = explorer->findChildren<QPushButton*>();
    const auto button = std::find_if(extractSelected.begin(), extractSelected.end(), [](QPushButton* b) {
        return b->text().startsWith(QStringLiteral("Extraire la sélection"));
    });
    ASSERT_NE(button, extractSelected.end());
    QTest::mouseClick(*button, Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.notice().isEmpty(); }, timeoutMs));
    EXPECT_EQ(model.notice(), QStringLiteral("3 fichiers extraits"));
    EXPECT_EQ(QDir(destination).entryList(QDir::Files).size(), 3);
    screenshot(*window, QStringLiteral("08-extracted"));

    // All files: the categories, then a folder.
    explorer->tabs()->setCurrentIndex(ExplorerModel::FilesTab);
    EXPECT_EQ(model.tab(), ExplorerModel::FilesTab);
    ASSERT_GE(explorer->fileList()->model()->rowCount(), 3);
    EXPECT_EQ(rowText(explorer->fileList(), 0), QStringLiteral("Photos et vidéos"));
    screenshot(*window, QStringLiteral("09-domains"));
    explorer->fileList()->setCurrentIndex(explorer->fileList()->model()->index(0, 0));
    QTest::keyClick(explorer->fileList(), Qt::Key_Return);
    EXPECT_EQ(model.fileBrowser().domain(), QStringLiteral("CameraRollDomain"));
    QTest::keyClick(explorer->fileList(), Qt::Key_Return);
    QTest::keyClick(explorer->fileList(), Qt::Key_Return);
    EXPECT_EQ(model.fileBrowser().folder(), (QStringList{QStringLiteral("Media"), QStringLiteral("DCIM")}));
    screenshot(*window, QStringLiteral("10-folder"));

    // Conversations: one saved as a PDF.
    explorer->tabs()->setCurrentIndex(ExplorerModel::ConversationsTab);
    ASSERT_TRUE(QTest::qWaitFor([&] { return explorer->chatList()->model()->rowCount() == 2; }, timeoutMs));
    screenshot(*window, QStringLiteral("11-conversations"));
    explorer->chatList()->setCurrentIndex(explorer->chatList()->model()->index(0, 0));
    QTest::keyClick(explorer->chatList(), Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.notice().startsWith(QStringLiteral("PDF créé : ")); }, timeoutMs))
        << model.errorNotice().toStdString();
    EXPECT_TRUE(labelTexts(*explorer).contains(model.pdfFingerprint())) << "the fingerprint is shown, to select";
    ASSERT_EQ(m_workspace.opened.size(), 1);
    EXPECT_TRUE(readAll(m_workspace.opened[0]).startsWith("%PDF"));
    screenshot(*window, QStringLiteral("12-pdf-saved"));

    // Back to the list: the explorer goes, with its temporary copies.
    const QString temp = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                         QStringLiteral("/Nuvrel/Temp/") + sample.id;
    EXPECT_TRUE(QFileInfo::exists(temp));
    QTest::mouseClick(explorer->backButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->explorePage()->explorerView() == nullptr; }, timeoutMs));
    EXPECT_TRUE(backups->isVisible());
    EXPECT_TRUE(window->explorePage()->backupsView()->notice()->isHidden()); // nothing was running
    // The copies go on a worker, never holding the window.
    EXPECT_TRUE(QTest::qWaitFor([&] { return !QFileInfo::exists(temp); }, timeoutMs))
        << allEntries(temp).join(u' ').toStdString();
}

// The texts say "Clique sur…": one click opens a backup or a category, and a person's double click
// (a habit from file managers) still goes down only one level.
TEST_F(MainWindowTest, OneClickOpensAndADoubleClickOpensOnce)
{
    SampleBackup plain;
    plain.id = QStringLiteral("plain-backup");
    plain.files = cameraRollPhotos(3);
    plain.files.append({QStringLiteral("HomeDomain"), QStringLiteral("Library/Notes/notes.txt"), QByteArray("note")});
    plain.write(m_root.path());

    auto window = makeBackupsWindow();
    QListWidget* list = window->explorePage()->backupsView()->list();
    ASSERT_EQ(list->count(), 1);
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(list->item(0)).center());
    ExplorerView* explorer = readyExplorer(*window);
    ASSERT_NE(explorer, nullptr);

    explorer->tabs()->setCurrentIndex(ExplorerModel::FilesTab);
    QListView* files = explorer->fileList();
    ASSERT_EQ(rowText(files, 0), QStringLiteral("Photos et vidéos"));
    const QPoint first = files->visualRect(files->model()->index(0, 0)).center();
    // What a double click delivers: a click, then a press, the double click event and a release.
    QTest::mouseClick(files->viewport(), Qt::LeftButton, {}, first);
    QTest::mousePress(files->viewport(), Qt::LeftButton, {}, first);
    QTest::mouseDClick(files->viewport(), Qt::LeftButton, {}, first);
    QTest::mouseRelease(files->viewport(), Qt::LeftButton, {}, first);
    EXPECT_EQ(explorer->model().fileBrowser().domain(), QStringLiteral("CameraRollDomain"));
    EXPECT_EQ(explorer->model().fileBrowser().folder(), QStringList{});
    EXPECT_EQ(rowText(files, 0), QStringLiteral("Media"));

    // Escape: a search being typed is cleared first, then the page goes back to the backups.
    explorer->tabs()->setCurrentIndex(ExplorerModel::ConversationsTab);
    QLineEdit* search = nullptr;
    for (QLineEdit* field : explorer->findChildren<QLineEdit*>()) {
        if (field->isVisibleTo(explorer))
            search = field;
    }
    ASSERT_NE(search, nullptr);
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    search->setFocus();
    QTest::keyClicks(search, QStringLiteral("Ana"));
    QTest::keyClick(search, Qt::Key_Escape);
    EXPECT_TRUE(search->text().isEmpty());
    ASSERT_NE(window->explorePage()->explorerView(), nullptr);
    QTest::keyClick(search, Qt::Key_Escape);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->explorePage()->explorerView() == nullptr; }, timeoutMs));
}

// A file dropped on the conversations page opens as its source; ticked conversations are saved
// together and appear in the saved list.
TEST_F(MainWindowTest, ConversationsPageTakesADroppedFileAndSavesTheTickedOnes)
{
    QSettings().setValue(QStringLiteral("welcomeDone"), true);
    auto window = makeWindow();
    window->setSection(Page::Conversations);
    ConversationsView* view = window->conversationsView();
    ConversationsModel& model = view->model();
    model.setFolder(m_out.filePath(QStringLiteral("Conversations")));

    const QString sms = m_out.filePath(QStringLiteral("sms.db"));
    writeSampleMessagesDatabase(sms);
    EXPECT_EQ(ConversationsView::sourceForFile(QStringLiteral("/x/result.JSON")), ConversationsModel::TelegramExport);
    EXPECT_EQ(ConversationsView::sourceForFile(QStringLiteral("/x/WhatsApp Chat.zip")),
              ConversationsModel::WhatsAppExport);
    EXPECT_EQ(ConversationsView::sourceForFile(QStringLiteral("/x/photo.jpg")), ConversationsModel::NoSource);

    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(sms)});
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view, &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view, &drop);
    EXPECT_EQ(model.source(), ConversationsModel::DatabaseFile);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.chatList().rowCount() == 2 && model.busy().isEmpty(); }, timeoutMs));
    EXPECT_FALSE(view->saveTickedButton()->isEnabled());

    // Ticking, as a click on the boxes does.
    QAbstractItemModel* rows = view->chatList()->model();
    for (int row = 0; row < 2; ++row)
        rows->setData(rows->index(row, 0), Qt::Checked, Qt::CheckStateRole);
    EXPECT_TRUE(view->saveTickedButton()->isEnabled());
    EXPECT_EQ(view->saveTickedButton()->text(), QStringLiteral("Enregistrer les conversations cochées (2)"));
    QTest::mouseClick(view->saveTickedButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.notice().isEmpty(); }, timeoutMs))
        << qPrintable(model.errorNotice());
    EXPECT_EQ(QDir(model.folder()).entryList({QStringLiteral("*.pdf")}).size(), 2);
    EXPECT_EQ(QDir(model.folder()).entryList({QStringLiteral("*.empreinte.txt")}).size(), 2);

    QTest::mouseClick(view->backButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return view->savedList()->model()->rowCount() == 2; }, timeoutMs));
    EXPECT_TRUE(view->savedList()->isVisible());

    // Something no source reads is refused before it is dropped.
    QMimeData photo;
    photo.setUrls({QUrl::fromLocalFile(m_out.filePath(QStringLiteral("photo.jpg")))});
    QDragEnterEvent refused(QPoint(10, 10), Qt::CopyAction, &photo, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view, &refused);
    EXPECT_FALSE(refused.isAccepted());
}

TEST_F(MainWindowTest, LightenPageTakesADroppedFolderLightensAndHandsOff)
{
    QSettings().setValue(QStringLiteral("welcomeDone"), true);
    auto window = makeWindow();
    window->setSection(Page::Lighten);
    LightenView* view = window->lightenView();
    AllegerModel& model = view->model();
    model.setOutputFolder(m_out.filePath(QStringLiteral("Nuvrel-Alleges")));

    // A folder of mixed files: a photo, a document, a PDF that cannot be read, an application bundle.
    const QString drop = m_out.filePath(QStringLiteral("Envoi"));
    QDir().mkpath(drop + QStringLiteral("/Outil.app/Contents"));
    QImage photo(2400, 1600, QImage::Format_RGB32);
    photo.fill(Qt::darkCyan);
    ASSERT_TRUE(photo.save(drop + QStringLiteral("/IMG_0001.JPG"), "JPEG", 95));
    QFile document(drop + QStringLiteral("/compte-rendu.docx"));
    ASSERT_TRUE(document.open(QIODevice::WriteOnly));
    document.write(QByteArray(200'000, 'r'));
    document.close();
    QFile broken(drop + QStringLiteral("/facture.pdf"));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("%PDF-1.4 cut short");
    broken.close();

    // Dragged over: the area lights up, and goes dark when the drag leaves.
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(drop)});
    QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view->dropZone(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    EXPECT_TRUE(view->dropZone()->isHighlighted());
    QDragLeaveEvent leave;
    QApplication::sendEvent(view->dropZone(), &leave);
    EXPECT_FALSE(view->dropZone()->isHighlighted());
    QApplication::sendEvent(view->dropZone(), &enter);
    QDropEvent dropped(QPointF(20, 20), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view->dropZone(), &dropped);
    EXPECT_FALSE(view->dropZone()->isHighlighted());
    ASSERT_EQ(model.items().rowCount(), 3);
    EXPECT_TRUE(model.notice().contains(QStringLiteral("1 paquet ignoré"))) << qPrintable(model.notice());
    // Lightened at once (autoLighten), "Arrêter" while it runs.
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.running() && model.doneCount() == 2; }, timeoutMs));
    EXPECT_FALSE(view->stopButton()->isVisible());
    EXPECT_TRUE(view->sendButton()->isEnabled());
    EXPECT_EQ(view->sendButton()->text(), QStringLiteral("Envoyer vers WhatsApp"));
    EXPECT_TRUE(view->clearFolderButton()->isVisible());

    // A target chosen by its button; the hand-off through the platform's.
    QTest::mouseClick(view->targetButton(LightenTarget::Telegram), Qt::LeftButton);
    EXPECT_EQ(model.target(), int(LightenTarget::Telegram));
    m_fakes.handoff.answer = {Handoff::Outcome::Kind::ShareWindow, {}};
    QTest::mouseClick(view->sendButton(), Qt::LeftButton);
    ASSERT_EQ(m_fakes.handoff.sent.size(), 1);
    EXPECT_EQ(m_fakes.handoff.sent[0].second, model.doneFiles());
    EXPECT_TRUE(view->noticeLabel()->isVisible());
    EXPECT_TRUE(view->noticeLabel()->text().contains(QStringLiteral("Telegram")));

    // A lightened row drags out as its file.
    QListView* list = view->list();
    const QModelIndex done = model.items().index(0, 0);
    ASSERT_EQ(LightenItem::State(done.data(LightenList::StateRole).toInt()), LightenItem::State::Done);
    std::unique_ptr<QMimeData> dragged(list->model()->mimeData({done}));
    ASSERT_TRUE(dragged);
    EXPECT_TRUE(QFileInfo(dragged->urls().value(0).toLocalFile()).isFile());

    // Delete takes the selected row out; the files stay.
    list->setFocus();
    list->selectionModel()->select(done, QItemSelectionModel::ClearAndSelect);
    QTest::keyClick(list, Qt::Key_Delete);
    EXPECT_EQ(model.items().rowCount(), 2);
    EXPECT_TRUE(QFile::exists(drop + QStringLiteral("/compte-rendu.docx")));

    // The output folder to the trash.
    QTest::mouseClick(view->clearFolderButton(), Qt::LeftButton);
    EXPECT_EQ(m_fakes.trash.trashed.size(), 2);
    EXPECT_FALSE(view->clearFolderButton()->isVisible());
}

// Return presses the focused button, as in the desktop's own applications, and never ticks a box.
TEST_F(MainWindowTest, DuplicatesPageFindsCopiesAndTrashesOnlyTheTickedOnesAfterConfirmation)
{
    QSettings().setValue(QStringLiteral("welcomeDone"), true);
    auto window = makeWindow();
    window->setSection(Page::Duplicates);
    DuplicatesView* view = window->duplicatesView();
    DuplicatesModel& model = view->model();
    EXPECT_FALSE(view->trashButton()->isVisible());

    const QString folder = m_out.filePath(QStringLiteral("Photos de famille"));
    QImage photo(1200, 900, QImage::Format_RGB32);
    for (int y = 0; y < photo.height(); ++y) {
        for (int x = 0; x < photo.width(); ++x)
            photo.setPixel(x, y, qRgb((x / 4) % 256, (y / 3) % 256, ((x + y) / 8) % 256));
    }
    QDir().mkpath(folder + QStringLiteral("/2021"));
    ASSERT_TRUE(photo.save(folder + QStringLiteral("/IMG_0001.JPG"), "JPEG", 90));
    ASSERT_TRUE(QFile::copy(folder + QStringLiteral("/IMG_0001.JPG"), folder + QStringLiteral("/2021/IMG_0001.JPG")));
    ASSERT_TRUE(photo.save(folder + QStringLiteral("/IMG_0002.JPG"), "JPEG", 50));
    ASSERT_TRUE(photo.scaled(600, 450).save(folder + QStringLiteral("/IMG_0003.JPG"), "JPEG", 80));

    // The folder chosen starts the search; the copy comes ticked, the lookalike not.
    view->setFolderPicker([&folder] { return folder; });
    QTest::mouseClick(view->chooseButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.scanned(); }, timeoutMs));
    EXPECT_FALSE(view->stopButton()->isVisible());
    EXPECT_EQ(view->summaryLabel()->text(),
              QStringLiteral("1 groupe de fichiers identiques · 1 groupe de photos qui se ressemblent"));
    QCheckBox* copy = view->checkBox(DupGroup::Kind::Identical, 0, 1);
    QCheckBox* kept = view->checkBox(DupGroup::Kind::Identical, 0, 0);
    ASSERT_TRUE(copy && kept);
    EXPECT_TRUE(copy->isChecked());
    EXPECT_FALSE(kept->isChecked());
    ASSERT_NE(view->checkBox(DupGroup::Kind::Similar, 0, 1), nullptr);
    EXPECT_FALSE(view->checkBox(DupGroup::Kind::Similar, 0, 1)->isChecked());
    EXPECT_TRUE(view->trashButton()->isEnabled());
    EXPECT_EQ(view->trashButton()->text(), model.trashButtonText());

    // Two lookalikes side by side, each shown large.
    QPushButton* compare = nullptr;
    for (QPushButton* button : view->findChildren<QPushButton*>()) {
        if (button->text() == QStringLiteral("Comparer"))
            compare = button;
    }
    ASSERT_NE(compare, nullptr);
    QTest::mouseClick(compare, Qt::LeftButton);
    auto* preview = view->findChild<SimilarPreview*>();
    ASSERT_NE(preview, nullptr);
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            const QList<QLabel*> labels = preview->findChildren<QLabel*>();
            return std::count_if(labels.cbegin(), labels.cend(),
                                 [](const QLabel* label) { return !label->pixmap().isNull(); }) == 2;
        },
        timeoutMs));
    preview->close();

    // The last unticked file of a group cannot be ticked: the box springs back.
    kept->click();
    EXPECT_FALSE(kept->isChecked());
    EXPECT_EQ(view->noticeLabel()->text(), QStringLiteral("Chaque groupe garde au moins un fichier."));

    // Declined, nothing moves; confirmed, the ticked copy goes to the trash and its group with it.
    int asked = 0;
    view->setConfirmation([&asked](int files, qint64) {
        ++asked;
        return files == 1 && asked > 1;
    });
    QTest::mouseClick(view->trashButton(), Qt::LeftButton);
    EXPECT_FALSE(model.trashing());
    EXPECT_TRUE(m_fakes.trash.trashed.isEmpty());
    QTest::mouseClick(view->trashButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.trashing(); }, timeoutMs));
    EXPECT_EQ(m_fakes.trash.trashed, QStringList{folder + QStringLiteral("/2021/IMG_0001.JPG")});
    EXPECT_TRUE(QFile::exists(folder + QStringLiteral("/IMG_0001.JPG")));
    EXPECT_TRUE(view->noticeLabel()->text().startsWith(QStringLiteral("1 fichier envoyé à la Corbeille")));
    EXPECT_EQ(view->checkBox(DupGroup::Kind::Identical, 0, 1), nullptr);
    EXPECT_FALSE(view->trashButton()->isEnabled());
}

TEST_F(MainWindowTest, VaultPageOpensOnTheOwnersYesAndForgetsEverythingOnLock)
{
    QSettings().setValue(QStringLiteral("welcomeDone"), true);
    auto window = makeWindow();
    window->setSection(Page::Vault);
    VaultView* view = window->vaultView();
    EXPECT_TRUE(view->lockedTitle()->isVisible());
    EXPECT_EQ(view->lockedTitle()->text(), QStringLiteral("Coffre verrouillé"));
    EXPECT_FALSE(view->list()->isVisible());

    m_fakes.ownerCheck.answer = OwnerCheck::Outcome::Refused;
    QTest::mouseClick(view->unlockButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return view->unlockButton()->isEnabled(); }, timeoutMs));
    EXPECT_EQ(view->messageLabel()->text(), QStringLiteral("Authentification annulée ou échouée."));
    EXPECT_TRUE(view->lockedTitle()->isVisible());

    m_fakes.ownerCheck.answer = OwnerCheck::Outcome::Confirmed;
    QTest::mouseClick(view->unlockButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return view->list()->isVisible(); }, timeoutMs));
    const QString paper = m_out.filePath(QStringLiteral("Papiers/carte d'identité.pdf"));
    QDir().mkpath(QFileInfo(paper).absolutePath());
    QFile file(paper);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write("%PDF-1.4 carte") > 0);
    file.close();
    view->setFilePicker([&paper] { return QStringList{paper}; });
    QTest::mouseClick(view->addButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return view->list()->topLevelItemCount() == 1; }, timeoutMs));
    EXPECT_EQ(view->list()->topLevelItem(0)->text(0), QStringLiteral("carte d'identité.pdf"));
    EXPECT_EQ(m_fakes.trash.trashed, QStringList{paper});
    EXPECT_TRUE(view->messageLabel()->text().startsWith(QStringLiteral("1 fichier mis dans le coffre.")));
    screenshot(*window, QStringLiteral("20-vault-unlocked"));

    // Nothing chosen, nothing to do; chosen, opened; declined, kept.
    EXPECT_FALSE(view->openButton()->isEnabled());
    view->list()->setCurrentItem(view->list()->topLevelItem(0));
    ASSERT_TRUE(view->openButton()->isEnabled());
    QTest::mouseClick(view->openButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_workspace.opened.size() == 1; }, timeoutMs));
    const QString copy = m_workspace.opened.constFirst();
    EXPECT_TRUE(QFile::exists(copy));
    view->setConfirmation([](const QString& name) { return name.isEmpty(); });
    QTest::mouseClick(view->deleteButton(), Qt::LeftButton);
    EXPECT_EQ(view->list()->topLevelItemCount(), 1);

    // Locked: the list, the key and the opened copy gone.
    QTest::mouseClick(view->lockButton(), Qt::LeftButton);
    EXPECT_TRUE(view->lockedTitle()->isVisible());
    EXPECT_EQ(view->list()->topLevelItemCount(), 0);
    EXPECT_FALSE(QFile::exists(copy));
    screenshot(*window, QStringLiteral("21-vault-locked"));
}

TEST_F(MainWindowTest, TransferPageServesWhatIsChosenAndShowsTheDownloads)
{
    // The page's view on a model that serves on loopback, never on this machine's network.
    TransferModel model(m_fakes.services(), [] {
        return QList<LocalAddress>{{QHostAddress::LocalHost, QStringLiteral("lo"), false},
                                   {QHostAddress(QStringLiteral("192.0.2.1")), QStringLiteral("wlp2s0"), true}};
    });
    m_fakes.nearbyShare.state = {NearbyShare::Availability::Kind::Ready,
                                 {{QStringLiteral("id1"), QStringLiteral("iPhone de Léa")}}};
    TransferView view(model);
    view.resize(1180 - 236, 760);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    EXPECT_FALSE(view.startButton()->isEnabled());
    EXPECT_TRUE(view.addressChoice()->isVisible()); // two networks: the user may pick
    EXPECT_EQ(view.addressChoice()->itemText(1), QStringLiteral("192.0.2.1 (wlp2s0, Wi-Fi)"));

    const QString video = m_out.filePath(QStringLiteral("Film de l'été.mov"));
    QFile file(video);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    const QByteArray bytes(2'000'000, 'v');
    file.write(bytes);
    file.close();
    auto* data = new QMimeData;
    data->setUrls({QUrl::fromLocalFile(video)});
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&view, &enter);
    ASSERT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(10, 10), Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&view, &drop);
    delete data;
    ASSERT_EQ(view.chosenList()->count(), 1);
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.nearbyButton()->isEnabled(); }, timeoutMs));
    EXPECT_EQ(view.nearbyButton()->text(), QStringLiteral("Envoyer avec KDE Connect"));

    QTest::mouseClick(view.startButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.qrCode()->isVisible(); }, timeoutMs)) << qPrintable(model.status());
    EXPECT_EQ(view.urlLabel()->text(), model.urlString());
    EXPECT_TRUE(model.urlString().startsWith(QStringLiteral("http://127.0.0.1:")));
    // Large, and every module whole device pixels: at least 4 of them at the smallest window.
    EXPECT_GE(view.qrCode()->moduleSize(), 4);
    const Fetched got = fetch(model.urlString() + QStringLiteral("f/0"));
    EXPECT_TRUE(got.body == bytes);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return view.downloadList()->topLevelItemCount() == 1 &&
                   view.downloadList()->topLevelItem(0)->text(1) == QStringLiteral("Terminé");
        },
        timeoutMs));
    EXPECT_EQ(view.downloadList()->topLevelItem(0)->text(0), QStringLiteral("Film de l'été.mov"));
    EXPECT_EQ(view.statusLabel()->text(), QStringLiteral("Fichier envoyé !"));
    screenshot(view, QStringLiteral("25-transfer-serving"));
#ifndef Q_OS_MACOS
    EXPECT_EQ(macWords(view), QStringList());
#endif
    EXPECT_EQ(cutTexts(view), QStringList());

    QTest::mouseClick(view.stopButton(), Qt::LeftButton);
    EXPECT_FALSE(model.isRunning());
    EXPECT_FALSE(view.qrCode()->isVisible());
    EXPECT_TRUE(view.startButton()->isEnabled());
}

TEST_F(MainWindowTest, BackupPageCopiesACardIntoMonthFoldersOnceAndForgetsOnlyWhenConfirmed)
{
    const QString card = m_out.filePath(QStringLiteral("EOS_DIGITAL"));
    QDir().mkpath(card + QStringLiteral("/DCIM/100CANON"));
    for (const char* name : {"IMG_0001.JPG", "IMG_0002.JPG", "MVI_0003.MOV"}) {
        QFile file(card + QStringLiteral("/DCIM/100CANON/") + QString::fromLatin1(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(4000, 'p'));
        file.flush();
        file.setFileTime(QDateTime(QDate(2025, 6, 21), QTime(18, 0)), QFileDevice::FileModificationTime);
    }
    const QString destination = m_out.filePath(QStringLiteral("Sauvegarde photos"));
    PhotoBackupModel model(m_fakes.services(), m_out.filePath(QStringLiteral("history.json")));
    PhotosLibraryBackup library(m_fakes.services());
    PhotoBackupView view(model, library);
    QStringList asked;
    view.setFolderPicker([&](const QString& title) {
        asked.append(title);
        return asked.size() == 1 ? destination : card;
    });
    int confirmations = 0;
    bool confirm = false;
    view.setConfirmer([&](const QString&, const QString&) {
        ++confirmations;
        return confirm;
    });
    view.resize(1180 - 236, 760);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    EXPECT_EQ(m_fakes.phones.started, 1);
    EXPECT_EQ(view.stateTitleLabel()->text(), QStringLiteral("Aucun iPhone trouvé"));
    EXPECT_FALSE(view.copyAllButton()->isEnabled());

    view.changeDestinationButton()->click();
    EXPECT_EQ(model.destination(), destination);
    view.chooseSourceButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.copyAllButton()->isEnabled(); }, timeoutMs));
    EXPECT_EQ(view.stateTitleLabel()->text(), QStringLiteral("« EOS_DIGITAL » est prêt"));
    EXPECT_TRUE(view.summaryLabel()->text().startsWith(QStringLiteral("3 éléments · ")));
    view.videosBox()->click(); // photos only
    EXPECT_TRUE(view.summaryLabel()->text().startsWith(QStringLiteral("2 éléments · ")));
    screenshot(view, QStringLiteral("26-backup-ready"));
#ifndef Q_OS_MACOS
    EXPECT_EQ(macWords(view), QStringList());
#endif
    EXPECT_EQ(cutTexts(view), QStringList());

    view.copySelectionButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.resultLabel()->isVisible(); }, timeoutMs));
    EXPECT_EQ(view.resultLabel()->text(), QStringLiteral("2 copiés, 0 déjà présents, 0 échecs."));
    EXPECT_TRUE(QFile::exists(destination + QStringLiteral("/2025-06/IMG_0002.JPG")));
    EXPECT_FALSE(QFile::exists(destination + QStringLiteral("/2025-06/MVI_0003.MOV")));

    view.copyAllButton()->click();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return view.resultLabel()->text() == QStringLiteral("1 copiés, 2 déjà présents, 0 échecs."); },
        timeoutMs));

    // Forgetting asks first; refused, the next copy still skips everything.
    view.forgetButton()->click();
    EXPECT_EQ(confirmations, 1);
    view.copyAllButton()->click();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return view.resultLabel()->text() == QStringLiteral("0 copiés, 3 déjà présents, 0 échecs."); },
        timeoutMs));
    confirm = true;
    view.forgetButton()->click();
    view.copyAllButton()->click();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return view.resultLabel()->text() == QStringLiteral("3 copiés, 0 déjà présents, 0 échecs."); },
        timeoutMs));
    screenshot(view, QStringLiteral("27-backup-copied"));
}

TEST_F(MainWindowTest, ReturnPressesTheFocusedButton)
{
    SampleBackup plain;
    plain.id = QStringLiteral("plain-backup");
    plain.files = cameraRollPhotos(2);
    plain.write(m_root.path());
    QSettings().setValue(QStringLiteral("welcomeDone"), true);
    auto window = makeWindow();
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));

    QPushButton* card = nullptr;
    for (QPushButton* button : window->homeView()->findChildren<QPushButton*>(QStringLiteral("card"))) {
        if (button->accessibleName() == title(Page::Explore))
            card = button;
    }
    ASSERT_NE(card, nullptr);
    card->setFocus();
    QTest::keyClick(card, Qt::Key_Return);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->section() == Page::Explore; }, timeoutMs));

    QListWidget* list = window->explorePage()->backupsView()->list();
    list->setCurrentRow(0);
    QTest::keyClick(list, Qt::Key_Return);
    ExplorerView* explorer = readyExplorer(*window);
    ASSERT_NE(explorer, nullptr);
    explorer->backButton()->setFocus();
    QTest::keyClick(explorer->backButton(), Qt::Key_Enter);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->explorePage()->explorerView() == nullptr; }, timeoutMs));

    QCheckBox box(window->explorePage());
    box.show();
    box.setFocus();
    QTest::keyClick(&box, Qt::Key_Return);
    QApplication::processEvents();
    EXPECT_FALSE(box.isChecked());
}

TEST_F(MainWindowTest, TheWindowFollowsTheDesktopsColourScheme)
{
    const QByteArray forced = qgetenv("NUVREL_THEME");
    qunsetenv("NUVREL_THEME");
    auto window = makeBackupsWindow();
    WindowStyler::follow(*qApp, m_fakes.appearance);
    for (const auto scheme : {Appearance::Scheme::Dark, Appearance::Scheme::Light, Appearance::Scheme::Dark}) {
        m_fakes.appearance.change(scheme);
        QApplication::processEvents();
        const bool dark = scheme == Appearance::Scheme::Dark;
        EXPECT_EQ(WindowStyler::isDark(), dark);
        EXPECT_EQ(window->palette().color(QPalette::Window).lightness() < 128, dark);
        EXPECT_EQ(window->sidebar()->palette().color(QPalette::Base).lightness() < 128, dark);
    }
    screenshot(*window, QStringLiteral("04-backups-dark"));
    m_fakes.appearance.change(Appearance::Scheme::Light);
    if (!forced.isNull())
        qputenv("NUVREL_THEME", forced);
}

// Cells widen so that whole columns fill the grid, whether or not the scroll bar shows, and at
// any width: an empty band at the right edge looks like a layout fault.
TEST_F(MainWindowTest, PhotoCellsShareOutTheWidth)
{
    for (const int photos : {3, 60}) {
        SampleBackup plain;
        plain.id = QStringLiteral("grid-%1").arg(photos);
        plain.files = cameraRollPhotos(photos);
        plain.write(m_root.path());
    }
    auto window = makeBackupsWindow();
    QListWidget* list = window->explorePage()->backupsView()->list();
    ASSERT_EQ(list->count(), 2);

    for (int row = 0; row < 2; ++row) {
        list->setCurrentRow(row);
        QTest::keyClick(list, Qt::Key_Return);
        ExplorerView* explorer = readyExplorer(*window);
        ASSERT_NE(explorer, nullptr);
        PhotoGridView* grid = explorer->photoGrid();
        const int count = grid->model()->rowCount();
        for (const int width : {760, 1024, 1031, 1280, 1440, 1587, 1920}) {
            window->resize(width, 800);
            QTest::qWait(50); // the list lays its items out later
            const QScrollBar* bar = grid->verticalScrollBar();
            const int barRoom = bar->isVisible() ? 0 : bar->sizeHint().width();
            const QRect first = grid->visualRect(grid->model()->index(0, 0));
            EXPECT_EQ(first.width(), first.height());
            EXPECT_GE(first.width(), PhotoDelegate::minimumCellSide);
            int columns = 0;
            while (columns < count && grid->visualRect(grid->model()->index(columns, 0)).top() == first.top())
                ++columns;
            const int used = grid->visualRect(grid->model()->index(columns - 1, 0)).right() + 1 - first.left();
            const int room = grid->viewport()->width() - first.left() - barRoom;
            SCOPED_TRACE(QStringLiteral("%1 photos, window %2 px").arg(count).arg(width).toStdString());
            EXPECT_LE(used, room);
            if (columns < count) {
                EXPECT_LE(room - used, columns); // only the rounding of an even share, and the pixel kept
            }
        }
        window->resize(1280, 800);
        QTest::mouseClick(explorer->backButton(), Qt::LeftButton);
        ASSERT_TRUE(QTest::qWaitFor([&] { return window->explorePage()->explorerView() == nullptr; }, timeoutMs));
    }
}

} // namespace
