#pragma once

#include "models/photobackup/PhotoBackupModel.h"
#include "models/photobackup/PhotosLibraryBackup.h"

#include <QWidget>

#include <functional>

class QCheckBox;
class QComboBox;
class QDateEdit;
class QLabel;
class QProgressBar;
class QPushButton;

namespace nuvrel {

/// « Sauvegarde »: photos and videos off the phone on a cable (or a mounted phone, a camera's card)
/// with the user's choices, a Photos library package backed up whole, and the notice on full backups.
/// Both copy into the destination folder shown at the top. The view only binds to its models.
class PhotoBackupView final : public QWidget
{
    Q_OBJECT
public:
    PhotoBackupView(PhotoBackupModel& import, PhotosLibraryBackup& library, QWidget* parent = nullptr);

    void retranslate();

    /// Chooses a folder (a source, the destination, a library); a dialog unless a test sets another.
    void setFolderPicker(std::function<QString(const QString& title)> picker) { m_pickFolder = std::move(picker); }
    /// Asks to confirm forgetting the history; a dialog unless a test sets another.
    void setConfirmer(std::function<bool(const QString& question, const QString& detail)> confirm)
    {
        m_confirm = std::move(confirm);
    }

    // For tests and the keyboard.
    QLabel* stateTitleLabel() const { return m_stateTitle; }
    QLabel* stateHintLabel() const { return m_stateHint; }
    QLabel* summaryLabel() const { return m_summary; }
    QLabel* resultLabel() const { return m_result; }
    QLabel* libraryStatusLabel() const { return m_libraryStatus; }
    QPushButton* changeDestinationButton() const { return m_changeDestination; }
    QPushButton* copyAllButton() const { return m_copyAll; }
    QPushButton* copySelectionButton() const { return m_copySelection; }
    QPushButton* stopButton() const { return m_stop; }
    QPushButton* forgetButton() const { return m_forget; }
    QPushButton* chooseSourceButton() const { return m_chooseSource; }
    QPushButton* chooseLibraryButton() const { return m_chooseLibrary; }
    QPushButton* libraryStartButton() const { return m_libraryStart; }
    QCheckBox* photosBox() const { return m_photos; }
    QCheckBox* videosBox() const { return m_videos; }
    QComboBox* periodChoice() const { return m_period; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void renderImport();
    void renderChoices();
    void renderLibrary();
    QString pick(const QString& title);

    PhotoBackupModel& m_import;
    PhotosLibraryBackup& m_library;
    bool m_started = false;

    QLabel* m_title;
    QLabel* m_intro;
    QLabel* m_destination;
    QPushButton* m_changeDestination;
    QPushButton* m_openDestination;

    // From the phone.
    QLabel* m_importTitle;
    QLabel* m_stateTitle;
    QLabel* m_stateHint;
    QPushButton* m_refresh;
    QPushButton* m_chooseSource;
    QPushButton* m_usePhone;
    QCheckBox* m_photos;
    QCheckBox* m_videos;
    QComboBox* m_period;
    QDateEdit* m_from;
    QDateEdit* m_to;
    QLabel* m_summary;
    QPushButton* m_copyAll;
    QPushButton* m_copySelection;
    QPushButton* m_stop;
    QProgressBar* m_progress;
    QLabel* m_result;
    QLabel* m_refusedHint;
    QLabel* m_lastError;
    QLabel* m_notice;
    QPushButton* m_forget;

    // From a library.
    QLabel* m_libraryTitle;
    QLabel* m_libraryText;
    QLabel* m_libraryPath;
    QPushButton* m_chooseLibrary;
    QPushButton* m_libraryStart;
    QPushButton* m_libraryStop;
    QProgressBar* m_libraryProgress;
    QLabel* m_libraryStatus;

    // Full backups.
    QLabel* m_fullTitle;
    QLabel* m_fullText;
    QLabel* m_fullCommand;
    QPushButton* m_fullOpen;

    std::function<QString(const QString&)> m_pickFolder;
    std::function<bool(const QString&, const QString&)> m_confirm;
};

} // namespace nuvrel
