#pragma once

#include "models/vault/VaultModel.h"

#include <QWidget>

#include <functional>

class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTreeWidget;

namespace nuvrel {

/// « Coffre »: locked, a door with its explanation and "Déverrouiller"; unlocked, the list of sealed
/// files (name, size, date added) with what can be done to the one selected, files dropped or chosen
/// to put in, and progress with "Arrêter" for large additions. The view only binds to its model.
class VaultView final : public QWidget
{
    Q_OBJECT

public:
    explicit VaultView(VaultModel& model, QWidget* parent = nullptr);

    void retranslate();

    /// Chooses files to put in; a dialog unless a test sets another.
    void setFilePicker(std::function<QStringList()> picker) { m_pickFiles = std::move(picker); }
    /// Asks before deleting for good; a message box unless a test sets another.
    void setConfirmation(std::function<bool(const QString& name)> confirm) { m_confirm = std::move(confirm); }

    // For tests and the keyboard.
    QPushButton* unlockButton() const { return m_unlock; }
    QPushButton* lockButton() const { return m_lock; }
    QPushButton* addButton() const { return m_add; }
    QPushButton* openButton() const { return m_open; }
    QPushButton* restoreButton() const { return m_restore; }
    QPushButton* deleteButton() const { return m_delete; }
    QPushButton* stopButton() const { return m_stop; }
    QTreeWidget* list() const { return m_list; }
    QLabel* messageLabel() const { return m_message; }
    QLabel* lockedTitle() const { return m_lockedTitle; }

protected:
    void showEvent(QShowEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void render();
    void renderProgress();
    void rebuildList();
    void pickFiles();
    void confirmDelete();
    /// The id of the selected entry, or a null one.
    QUuid selected() const;

    VaultModel& m_model;
    QStackedWidget* m_pages;
    QLabel* m_lockedTitle;
    QLabel* m_lockedText;
    QLabel* m_lockedNote;
    QPushButton* m_unlock;
    QLabel* m_unlockedTitle;
    QLabel* m_count;
    QLabel* m_unlockedText;
    QPushButton* m_add;
    QPushButton* m_lock;
    QTreeWidget* m_list;
    QLabel* m_dropHint;
    QPushButton* m_open;
    QPushButton* m_restore;
    QPushButton* m_delete;
    QProgressBar* m_progress;
    QLabel* m_progressText;
    QPushButton* m_stop;
    QLabel* m_message;
    std::function<QStringList()> m_pickFiles;
    std::function<bool(const QString&)> m_confirm;
};

} // namespace nuvrel
