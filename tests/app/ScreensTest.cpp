// Every screen of the window at its smallest size, in light and dark, in French, German and Russian
// (the longest words and another script), saved for a person to look at and checked for cut texts.
// The same test runs again at a scale of 2 (QT_SCALE_FACTOR=2): the pictures then hold twice the pixels.

#include "WindowChecks.h"
#include "app/shell/MainWindow.h"
#include "app/shell/WindowStyler.h"
#include "app/views/conversations/ConversationsView.h"
#include "app/views/duplicates/DuplicatesView.h"
#include "app/views/explore/BackupsView.h"
#include "app/views/explore/ExplorePage.h"
#include "app/views/explore/ExplorerView.h"
#include "app/views/explore/PhotoGrid.h"
#include "app/views/lighten/LightenView.h"
#include "app/views/transfer/TransferView.h"
#include "app/views/welcome/WelcomeView.h"
#include "engines/backup/BackupReadError.h"
#include "l10n/LanguageStore.h"
#include "models/backups/BackupsModel.h"
#include "models/conversations/SavedConversations.h"
#include "models/explorer/ExplorerModel.h"
#include "support/ChatFixtures.h"
#include "support/FakeServices.h"
#include "support/SampleBackup.h"

#include <QAbstractButton>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSettings>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

class Screens : public testing::Test
{
protected:
    void SetUp() override
    {
        m_forcedTheme = qgetenv("NUVREL_THEME");
        qunsetenv("NUVREL_THEME");
        QSettings().clear();
        qputenv("NUVREL_BACKUP_ROOT", QFile::encodeName(m_root.path()));
        const qreal scale = qApp->devicePixelRatio();
        m_folder = QStringLiteral("screens/%1/%2x/").arg(QGuiApplication::platformName()).arg(scale);
    }
    void TearDown() override
    {
        qunsetenv("NUVREL_BACKUP_ROOT");
        LanguageStore::shared().setLanguage(AppLanguage::Fr);
        WindowStyler::apply(*qApp, Appearance::Scheme::Light);
        if (!m_forcedTheme.isNull())
            qputenv("NUVREL_THEME", m_forcedTheme);
    }

    // The screen now shown, in each language and scheme: saved, every text of it read whole and
    // clear, and every control reached by Tab in reading order.
    void capture(QWidget& window, const QString& screen)
    {
        window.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
        QWidget* focused = QApplication::focusWidget();
        EXPECT_EQ(tabOrderFaults(window), QStringList()) << qPrintable(screen);
        if (focused)
            focused->setFocus(Qt::OtherFocusReason);
        static const AppLanguage languages[] = {AppLanguage::Fr, AppLanguage::De, AppLanguage::Ru};
        for (const AppLanguage language : languages) {
            LanguageStore::shared().setLanguage(language);
            for (const auto scheme : {Appearance::Scheme::Light, Appearance::Scheme::Dark}) {
                WindowStyler::apply(*qApp, scheme);
                QApplication::processEvents();
                const QString name =
                    QStringLiteral("%1-%2-%3")
                        .arg(screen, identifier(language),
                             scheme == Appearance::Scheme::Dark ? QStringLiteral("dark") : QStringLiteral("light"));
                screenshot(window, m_folder + name);
                if (scheme == Appearance::Scheme::Light) {
                    EXPECT_EQ(cutTexts(window), QStringList()) << qPrintable(name);
#ifndef Q_OS_MACOS
                    EXPECT_EQ(macWords(window), QStringList()) << qPrintable(name);
#endif
                }
                EXPECT_EQ(faintTexts(window), QStringList()) << qPrintable(name);
            }
        }
        LanguageStore::shared().setLanguage(AppLanguage::Fr);
        WindowStyler::apply(*qApp, Appearance::Scheme::Light);
        QApplication::processEvents();
    }

    QTemporaryDir m_root;
    FakeServices m_fakes;
    QString m_folder;
    QByteArray m_forcedTheme;
};

TEST_F(Screens, EveryScreenAtTheSmallestSizeInEachSchemeAndLanguage)
{
    MainWindow window(m_fakes.services());
    window.resize(window.minimumSize());
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window.backupsModel().isScanning(); }, windowTimeoutMs));
    EXPECT_EQ(window.size(), window.minimumSize());

    capture(window, QStringLiteral("01-welcome"));
    QTest::mouseClick(window.welcomeView()->startButton(), Qt::LeftButton);
    capture(window, QStringLiteral("02-home"));
    window.setSection(Page::Explore);
    capture(window, QStringLiteral("03-no-backup"));

    // An encrypted backup with photos and conversations, and a plain one.
    QTemporaryDir scratch;
    const QString sms = scratch.filePath(QStringLiteral("sms.db"));
    writeSampleMessagesDatabase(sms);
    SampleBackup sample;
    sample.password = QStringLiteral("secret");
    sample.files = cameraRollPhotos(40);
    sample.files.append({QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db"), readAll(sms)});
    sample.write(m_root.path());
    SampleBackup plain;
    plain.id = QStringLiteral("plain-backup");
    plain.deviceName = QStringLiteral("iPhone de Louis");
    plain.files = cameraRollPhotos(2);
    plain.write(m_root.path());
    window.backupsModel().refresh();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return window.explorePage()->backupsView()->list()->count() == 2; }, windowTimeoutMs));
    capture(window, QStringLiteral("04-backups"));

    QListWidget* list = window.explorePage()->backupsView()->list();
    list->setCurrentRow(0);
    QTest::keyClick(list, Qt::Key_Return);
    ExplorerView* explorer = window.explorePage()->explorerView();
    ASSERT_NE(explorer, nullptr);
    ExplorerModel& model = explorer->model();
    capture(window, QStringLiteral("05-password"));
    EXPECT_EQ(QApplication::focusWidget(), explorer->passwordField()) << "the keyboard waits in the field";
    QTest::keyClicks(explorer->passwordField(), QStringLiteral("wrong"));
    QTest::keyClick(explorer->passwordField(), Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return labelTexts(*explorer).contains(BackupReadError::wrongPassword().message()); }, windowTimeoutMs));
    capture(window, QStringLiteral("06-wrong-password"));

    explorer->passwordField()->selectAll();
    QTest::keyClicks(explorer->passwordField(), QStringLiteral("secret"));
    QTest::keyClick(explorer->passwordField(), Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.phase() == ExplorerModel::Phase::Ready; }, windowTimeoutMs));
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.photoRoll().thumbnailsDecoded() >= 8; }, windowTimeoutMs));
    PhotoGridView* grid = explorer->photoGrid();
    EXPECT_EQ(QApplication::focusWidget(), grid) << "the keyboard went on to the photos, not to the sidebar";
    for (int row : {0, 3})
        QTest::mouseClick(grid->viewport(), Qt::LeftButton, {},
                          grid->visualRect(grid->model()->index(row, 0)).center());
    capture(window, QStringLiteral("07-photos"));

    explorer->tabs()->setCurrentIndex(ExplorerModel::FilesTab);
    capture(window, QStringLiteral("08-files"));
    explorer->tabs()->setCurrentIndex(ExplorerModel::ConversationsTab);
    ASSERT_TRUE(QTest::qWaitFor([&] { return explorer->chatList()->model()->rowCount() > 0; }, windowTimeoutMs));
    capture(window, QStringLiteral("09-conversations"));
    explorer->chatList()->setCurrentIndex(explorer->chatList()->model()->index(0, 0));
    QTest::keyClick(explorer->chatList(), Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.pdfFingerprint().isEmpty(); }, windowTimeoutMs))
        << qPrintable(model.errorNotice());
    capture(window, QStringLiteral("10-pdf-saved"));

    // The conversations page: its sources, then pasted text read, previewed and saved.
    window.setSection(Page::Conversations);
    ConversationsView* conversations = window.conversationsView();
    ConversationsModel& keeping = conversations->model();
    keeping.setFolder(m_root.path() + QStringLiteral("/Conversations"));
    capture(window, QStringLiteral("11-conversation-sources"));
    QTest::mouseClick(conversations->sourceButton(ConversationsModel::Pasted), Qt::LeftButton);
    conversations->pasteField()->setPlainText(QStringLiteral("[12/03/2024 10:04] Ana : On se retrouve où ?\n"
                                                             "[12/03/2024 10:05] Bruno : Devant la gare, à midi.\n"
                                                             "[12/03/2024 10:06] Ana : Parfait, à tout à l'heure !\n"));
    QPushButton* read = nullptr;
    for (QPushButton* button : conversations->findChildren<QPushButton*>()) {
        if (button->text() == QStringLiteral("Lire le texte"))
            read = button;
    }
    ASSERT_NE(read, nullptr);
    QTest::mouseClick(read, Qt::LeftButton);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return !keeping.preview().isEmpty() && keeping.busy().isEmpty(); }, windowTimeoutMs));
    EXPECT_TRUE(conversations->preview()->toPlainText().contains(QStringLiteral("Bruno : Devant la gare")));
    capture(window, QStringLiteral("12-conversation-preview"));
    QTest::mouseClick(conversations->saveButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !keeping.pdfFingerprint().isEmpty(); }, windowTimeoutMs))
        << qPrintable(keeping.errorNotice());
    EXPECT_TRUE(QFileInfo(keeping.lastPdf()).isFile());
    EXPECT_TRUE(labelTexts(*conversations).contains(keeping.pdfFingerprint()));
    capture(window, QStringLiteral("13-conversation-saved"));
    QTest::mouseClick(conversations->backButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return keeping.saved().rowCount() == 1; }, windowTimeoutMs));
    capture(window, QStringLiteral("14-conversations-kept"));

    // From a backup: the list, the password of the encrypted one, then its conversations.
    QTest::mouseClick(conversations->sourceButton(ConversationsModel::Backup), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return conversations->backupList()->count() == 2; }, windowTimeoutMs));
    capture(window, QStringLiteral("15-conversation-backups"));
    conversations->backupList()->setCurrentRow(0);
    QTest::keyClick(conversations->backupList(), Qt::Key_Return);
    ASSERT_NE(keeping.backupSession(), nullptr);
    ASSERT_TRUE(QTest::qWaitFor([&] { return conversations->passwordField()->isVisible(); }, windowTimeoutMs));
    capture(window, QStringLiteral("16-conversation-password"));
    EXPECT_EQ(QApplication::focusWidget(), conversations->passwordField());
    QTest::keyClicks(conversations->passwordField(), QStringLiteral("wrong"));
    QTest::keyClick(conversations->passwordField(), Qt::Key_Return);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return labelTexts(*conversations).contains(BackupReadError::wrongPassword().message()); },
                        windowTimeoutMs));
    // The refused password is selected, to be typed over; the button follows what is typed.
    EXPECT_EQ(conversations->passwordField()->selectedText(), QStringLiteral("wrong"));
    QTest::keyClicks(conversations->passwordField(), QStringLiteral("secret"));
    QPushButton* unlock = nullptr;
    for (QPushButton* button : conversations->findChildren<QPushButton*>()) {
        if (button->text() == QStringLiteral("Ouvrir la sauvegarde"))
            unlock = button;
    }
    ASSERT_NE(unlock, nullptr);
    EXPECT_TRUE(unlock->isEnabled());
    QTest::mouseClick(unlock, Qt::LeftButton);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return keeping.chatList().rowCount() > 0 && keeping.busy().isEmpty(); }, windowTimeoutMs))
        << qPrintable(keeping.chatsMessage());
    conversations->chatList()->setCurrentIndex(conversations->chatList()->model()->index(0, 0));
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return !keeping.preview().isEmpty() && keeping.busy().isEmpty(); }, windowTimeoutMs));
    capture(window, QStringLiteral("17-conversation-from-backup"));

    // The lighten page: empty, files dragged over it, then a pass done with one failure, and sent.
    window.setSection(Page::Lighten);
    LightenView* lighten = window.lightenView();
    AllegerModel& lightening = lighten->model();
    lightening.setOutputFolder(m_root.path() + QStringLiteral("/Nuvrel-Alleges"));
    capture(window, QStringLiteral("18-lighten-empty"));
    const QString files = scratch.filePath(QStringLiteral("Envoi"));
    QDir().mkpath(files);
    QImage picture(3000, 2000, QImage::Format_RGB32);
    picture.fill(QColor(0x2E, 0x7D, 0x8C));
    ASSERT_TRUE(picture.save(files + QStringLiteral("/IMG_4032.JPG"), "JPEG", 95));
    QFile report(files + QStringLiteral("/Compte rendu de la réunion du conseil.docx"));
    ASSERT_TRUE(report.open(QIODevice::WriteOnly));
    report.write(QByteArray(400'000, 'c'));
    report.close();
    QFile cut(files + QStringLiteral("/facture.pdf"));
    ASSERT_TRUE(cut.open(QIODevice::WriteOnly));
    cut.write("%PDF-1.4 cut short");
    cut.close();
    QMimeData dragged;
    dragged.setUrls({QUrl::fromLocalFile(files)});
    QDragEnterEvent over(QPoint(20, 20), Qt::CopyAction, &dragged, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(lighten->dropZone(), &over);
    capture(window, QStringLiteral("19-lighten-drag-over"));
    QDropEvent dropped(QPointF(20, 20), Qt::CopyAction, &dragged, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(lighten->dropZone(), &dropped);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return !lightening.running() && lightening.waitingCount() == 0; }, windowTimeoutMs));
    capture(window, QStringLiteral("20-lighten-done"));
    m_fakes.handoff.answer = {Handoff::Outcome::Kind::WebOpened, {}};
    QTest::mouseClick(lighten->sendButton(), Qt::LeftButton);
    capture(window, QStringLiteral("21-lighten-sent"));

    // The duplicates page: nothing chosen yet, then a folder with copies and a burst.
    window.setSection(Page::Duplicates);
    DuplicatesView* duplicates = window.duplicatesView();
    capture(window, QStringLiteral("22-duplicates-empty"));
    const QString album = scratch.filePath(QStringLiteral("Album"));
    QDir().mkpath(album + QStringLiteral("/Copies"));
    QImage shot(1600, 1200, QImage::Format_RGB32);
    for (int y = 0; y < shot.height(); ++y) {
        for (int x = 0; x < shot.width(); ++x)
            shot.setPixel(x, y, qRgb(40 + (x / 8) % 180, 90 + (y / 10) % 120, 160 - (x + y) / 30 % 100));
    }
    ASSERT_TRUE(shot.save(album + QStringLiteral("/IMG_2041.JPG"), "JPEG", 92));
    ASSERT_TRUE(QFile::copy(album + QStringLiteral("/IMG_2041.JPG"), album + QStringLiteral("/Copies/IMG_2041.JPG")));
    ASSERT_TRUE(shot.save(album + QStringLiteral("/IMG_2042.JPG"), "JPEG", 60));
    ASSERT_TRUE(shot.scaled(800, 600).save(album + QStringLiteral("/IMG_2043.JPG"), "JPEG", 80));
    QFile contract(album + QStringLiteral("/Contrat de location signé.pdf"));
    ASSERT_TRUE(contract.open(QIODevice::WriteOnly));
    contract.write(QByteArray(180'000, 'p'));
    contract.close();
    ASSERT_TRUE(QFile::copy(contract.fileName(), album + QStringLiteral("/Copies/Contrat de location signé.pdf")));
    duplicates->setFolderPicker([&album] { return album; });
    QTest::mouseClick(duplicates->chooseButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return duplicates->model().scanned(); }, windowTimeoutMs));
    QTest::qWait(300); // the thumbnails
    capture(window, QStringLiteral("23-duplicates-found"));

    // The transfer page, files chosen; serving is shown by the page's own test, on loopback.
    window.setSection(Page::Transfer);
    TransferView* transfer = window.transferView();
    transfer->setFilePicker([&album] {
        return QStringList{album + QStringLiteral("/IMG_2041.JPG"),
                           album + QStringLiteral("/Contrat de location signé.pdf")};
    });
    QTest::mouseClick(transfer->chooseFilesButton(), Qt::LeftButton);
    transfer->setFolderPicker([&album] { return QString(album + QStringLiteral("/Copies")); });
    QTest::mouseClick(transfer->chooseFolderButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !transfer->nearbyTextLabel()->text().isEmpty(); }, windowTimeoutMs));
    capture(window, QStringLiteral("24-transfer-chosen"));
}

} // namespace
