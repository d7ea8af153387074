#pragma once

#include "models/conversations/ConversationsModel.h"

#include <QWidget>

#include <functional>

class QComboBox;
class QDateEdit;
class QLabel;
class QLineEdit;
class QListView;
class QListWidget;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QStackedWidget;

namespace nuvrel {

class WrappingCheckBox;

/// « Garder une conversation »: the sources as cards with the saved PDFs below them; then, once a
/// source is chosen, its conversations, the preview of the chosen one with its period, owner and title,
/// and the saving. The view only binds to its model.
class ConversationsView final : public QWidget
{
    Q_OBJECT

public:
    explicit ConversationsView(ConversationsModel& model, QWidget* parent = nullptr);

    void retranslate();
    ConversationsModel& model() const { return m_model; }

    /// Chooses the file of a source; a file dialog unless a test sets another.
    void setFilePicker(std::function<QString(ConversationsModel::Source)> picker) { m_pickFile = std::move(picker); }

    /// The source a dropped file is read as, from its name; NoSource for a file no source reads.
    static ConversationsModel::Source sourceForFile(const QString& path);

    // For tests and the keyboard.
    QPushButton* sourceButton(ConversationsModel::Source source) const;
    QPushButton* backButton() const { return m_back; }
    QListView* chatList() const { return m_chatList; }
    QPlainTextEdit* pasteField() const { return m_paste; }
    QPlainTextEdit* preview() const { return m_preview; }
    QPushButton* saveButton() const { return m_save; }
    QPushButton* saveTickedButton() const { return m_saveTicked; }
    QListWidget* backupList() const { return m_backups; }
    QLineEdit* passwordField() const { return m_password; }
    QListView* savedList() const { return m_savedList; }

protected:
    // A file dropped on the page is opened as the source its name tells.
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    QWidget* buildSourcesScreen();
    QWidget* buildSourceScreen();
    QWidget* buildBackupPanel();
    QWidget* buildPastePanel();
    QWidget* buildConversationsPanel();
    void chooseSource(ConversationsModel::Source source);
    void openFile(ConversationsModel::Source source, const QString& path);
    void render();
    void renderBackup();
    void renderPreview();
    void renderStatus();
    void applyPeriod();
    QString pickFile(ConversationsModel::Source source);

    ConversationsModel& m_model;
    std::function<QString(ConversationsModel::Source)> m_pickFile;
    /// The source chosen on the cards, before the model has opened anything of it.
    ConversationsModel::Source m_pendingSource = ConversationsModel::NoSource;
    QStackedWidget* m_screens;

    // The sources.
    QLabel* m_title;
    QLabel* m_subtitle;
    QList<std::pair<ConversationsModel::Source, QPushButton*>> m_sourceCards;
    QList<std::pair<QLabel*, QLabel*>> m_sourceTexts;
    QLabel* m_savedTitle;
    QListView* m_savedList;
    QPushButton* m_openSaved;
    QPushButton* m_revealSaved;
    QPushButton* m_trashSaved;
    QLabel* m_savedEmpty;

    // One source.
    QPushButton* m_back;
    QLabel* m_sourceTitle;
    QStackedWidget* m_sourcePanels;
    QListWidget* m_backups;
    QLabel* m_backupsMessage;
    QWidget* m_passwordCard;
    QLabel* m_passwordPrompt;
    QLineEdit* m_password;
    QLabel* m_passwordError;
    WrappingCheckBox* m_remember;
    QPushButton* m_unlock;
    QComboBox* m_store;
    QPushButton* m_otherFile;
    QPlainTextEdit* m_paste;
    QPushButton* m_readPaste;
    QLineEdit* m_search;
    QListView* m_chatList;
    QLabel* m_chatsMessage;
    QPushButton* m_saveTicked;
    QComboBox* m_period;
    QDateEdit* m_from;
    QDateEdit* m_to;
    QLabel* m_ownerLabel;
    QComboBox* m_owner;
    QLabel* m_titleLabel;
    QLineEdit* m_chatTitle;
    QPlainTextEdit* m_preview;
    QPushButton* m_save;
    QLabel* m_busy;
    QProgressBar* m_progress;
    QPushButton* m_stop;
    QLabel* m_notice;
    QPushButton* m_openPdf;
    QPushButton* m_revealPdf;
    QWidget* m_fingerprintRow;
    QLabel* m_fingerprintTitle;
    QLabel* m_fingerprint;
    QPushButton* m_copyFingerprint;
};

} // namespace nuvrel
