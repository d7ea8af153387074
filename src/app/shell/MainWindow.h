#pragma once

#include "app/shell/Page.h"
#include "app/shell/PageRegistry.h"
#include "platform/Services.h"

#include <QMainWindow>

class QActionGroup;
class QListWidget;
class QMenu;
class QStackedWidget;
class QTranslator;

namespace nuvrel {

class BackupsModel;
class AllegerModel;
class DuplicatesModel;
class DuplicatesView;
class PhotoBackupModel;
class PhotoBackupView;
class PhotosLibraryBackup;
class TransferModel;
class TransferView;
class VaultModel;
class VaultView;
class ConversationsModel;
class ConversationsView;
class LightenView;
class ExplorePage;
class HomeView;
class WelcomeView;

/// The one window: the welcome screen on first use, then the sidebar of pages and the page shown.
/// Each page's model is made with the window and lives as long as it.
class MainWindow final : public QMainWindow
{
    Q_OBJECT

public:
    static constexpr QLatin1StringView welcomeDoneKey{"welcomeDone"};

    explicit MainWindow(Services services, QWidget* parent = nullptr);
    ~MainWindow() override;

    Page section() const { return m_section; }
    void setSection(Page page);
    bool welcomeDone() const;
    void finishWelcome();

    /// Every text again, in the language in force; also Qt's own texts (dialog buttons, file dialogs).
    void retranslate();

    QListWidget* sidebar() const { return m_sidebar; }
    WelcomeView* welcomeView() const { return m_welcome; }
    HomeView* homeView() const { return m_home; }
    ExplorePage* explorePage() const { return m_explore; }
    ConversationsView* conversationsView() const { return m_conversations; }
    LightenView* lightenView() const { return m_lighten; }
    DuplicatesView* duplicatesView() const { return m_duplicates; }
    VaultView* vaultView() const { return m_vault; }
    TransferView* transferView() const { return m_transfer; }
    PhotoBackupView* photoBackupView() const { return m_photoBackup; }
    BackupsModel& backupsModel() const { return *m_backups; }
    QMenu* languageMenu() const { return m_languageMenu; }
    const PageRegistry& pages() const { return m_registry; }

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void buildMenus();
    void installQtTranslations();

    std::unique_ptr<BackupsModel> m_backups;
    std::unique_ptr<ConversationsModel> m_conversationsModel;
    std::unique_ptr<AllegerModel> m_lightenModel;
    std::unique_ptr<DuplicatesModel> m_duplicatesModel;
    std::unique_ptr<VaultModel> m_vaultModel;
    std::unique_ptr<TransferModel> m_transferModel;
    std::unique_ptr<PhotoBackupModel> m_photoBackupModel;
    std::unique_ptr<PhotosLibraryBackup> m_photosLibraryModel;
    QStackedWidget* m_root;
    WelcomeView* m_welcome;
    QWidget* m_shell;
    QListWidget* m_sidebar;
    QStackedWidget* m_pages;
    ExplorePage* m_explore;
    ConversationsView* m_conversations;
    LightenView* m_lighten;
    DuplicatesView* m_duplicates;
    VaultView* m_vault;
    TransferView* m_transfer;
    PhotoBackupView* m_photoBackup;
    HomeView* m_home;
    QMenu* m_languageMenu = nullptr;
    QActionGroup* m_languages = nullptr;
    QAction* m_quit = nullptr;
    std::unique_ptr<QTranslator> m_qtTranslator;
    PageRegistry m_registry;
    Page m_section = Page::Home;
};

} // namespace nuvrel
