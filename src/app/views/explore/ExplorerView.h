#pragma once

#include <QWidget>

#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListView;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTabWidget;
class QHBoxLayout;

namespace nuvrel {

class WrappingCheckBox;

class ExplorerModel;
class PhotoGridView;

/// The explorer of one backup: password prompt, opening, then the photos, files and conversations tabs
/// with the progress and notice lines below them. It only binds to its ExplorerModel.
class ExplorerView final : public QWidget
{
    Q_OBJECT

public:
    explicit ExplorerView(ExplorerModel& model, QWidget* parent = nullptr);

    void retranslate();
    /// Puts the keyboard where the phase wants it: the password field, the retry button, the open tab.
    void placeFocus();
    ExplorerModel& model() const { return m_model; }

    // For tests and keyboard users: the controls by role.
    QPushButton* backButton() const { return m_back; }
    QLineEdit* passwordField() const { return m_password; }
    QPushButton* openButton() const { return m_open; }
    QTabWidget* tabs() const { return m_tabs; }
    PhotoGridView* photoGrid() const { return m_grid; }
    QListView* chatList() const { return m_chatList; }
    QListView* fileList() const { return m_fileList; }
    QPushButton* stopButton() const { return m_stop; }

    /// Asks where extracted files go; tests answer without a dialog.
    void setDestinationPicker(std::function<QString()> picker) { m_pickDestination = std::move(picker); }

Q_SIGNALS:
    void backRequested();

private:
    QWidget* buildPasswordPanel();
    QWidget* buildMessagePanel();
    QWidget* buildPhotosTab();
    QWidget* buildFilesTab();
    QWidget* buildConversationsTab();

    void renderPhase();
    void renderPassword();
    /// The list or grid a tab is about: where the keyboard goes once the backup is open.
    QWidget* tabContent(int tab) const;
    void renderPhotos();
    void renderPlace();
    void renderChats();
    void renderStatus();
    void renderTabTitles();
    QString pickDestination();

    ExplorerModel& m_model;
    std::function<QString()> m_pickDestination;

    // Header
    QPushButton* m_back;
    QLabel* m_device;
    QLabel* m_readOnly;
    QWidget* m_keyBar;
    QStackedWidget* m_phases;

    // Password
    QLabel* m_prompt;
    QLineEdit* m_password;
    QLabel* m_passwordError;
    WrappingCheckBox* m_remember;
    QPushButton* m_open;
    QLabel* m_kept;
    QPushButton* m_forget;
    QPushButton* m_printSheet;

    // Loading and failure
    QLabel* m_message;
    QProgressBar* m_spinner;
    QPushButton* m_retry;

    // Ready
    QTabWidget* m_tabs;
    QLabel* m_photosHeader;
    PhotoGridView* m_grid;
    QPushButton* m_showMore;
    QLabel* m_noneChosen;
    QPushButton* m_extractSelected;
    QPushButton* m_extractAll;

    QLabel* m_domainsIntro;
    QWidget* m_placeBar;
    QHBoxLayout* m_crumbs;
    QPushButton* m_extractFolder;
    QListView* m_fileList;

    QLabel* m_chatsIntro;
    QComboBox* m_source;
    QLineEdit* m_search;
    QListView* m_chatList;
    QLabel* m_chatsMessage;
    QLabel* m_refine;
    QPushButton* m_saveAll;

    // Status
    QLabel* m_busy;
    QProgressBar* m_progress;
    QLabel* m_notice;
    QPushButton* m_reveal;
    QWidget* m_fingerprintRow;
    QLabel* m_fingerprintTitle;
    QLabel* m_fingerprint;
    QPushButton* m_copyFingerprint;
    QPushButton* m_stop;
};

} // namespace nuvrel
