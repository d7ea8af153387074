#pragma once

#include "models/duplicates/DuplicatesModel.h"

#include <QDialog>
#include <QMultiHash>
#include <QWidget>

#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QVBoxLayout;

namespace nuvrel {

/// Two photos of a similar group side by side, each chosen among the group's members, large enough
/// to tell which one to keep.
class SimilarPreview final : public QDialog
{
    Q_OBJECT

public:
    SimilarPreview(DuplicatesModel& model, const DupGroup& group, QWidget* parent = nullptr);

    static constexpr int side = 720;

private:
    struct Pane
    {
        QComboBox* choice;
        QLabel* picture;
        QLabel* details;
        QImage image; ///< as decoded, scaled to the label at each resize
    };
    void showChoice(Pane& pane);
    void fit(Pane& pane);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    DuplicatesModel& m_model;
    DupGroup m_group;
    Pane m_left{};
    Pane m_right{};
};

/// « Doublons »: a folder searched for identical files and similar photos, each group a card whose
/// oldest file is kept; the ticked files go to the trash after a confirmation. The view only binds to
/// its model.
class DuplicatesView final : public QWidget
{
    Q_OBJECT

public:
    /// Groups shown per section before "Afficher plus": a folder can hold thousands.
    static constexpr int groupsPerPage = 60;

    explicit DuplicatesView(DuplicatesModel& model, QWidget* parent = nullptr);

    void retranslate();
    DuplicatesModel& model() const { return m_model; }

    /// Chooses the folder; a dialog unless a test sets another.
    void setFolderPicker(std::function<QString()> picker) { m_pickFolder = std::move(picker); }
    /// Asks before the trash; a message box unless a test sets another.
    void setConfirmation(std::function<bool(int files, qint64 bytes)> confirm) { m_confirm = std::move(confirm); }

    // For tests and the keyboard.
    QPushButton* chooseButton() const { return m_choose; }
    QPushButton* scanButton() const { return m_scan; }
    QPushButton* stopButton() const { return m_stop; }
    QPushButton* trashButton() const { return m_trash; }
    QLabel* summaryLabel() const { return m_summary; }
    QLabel* noticeLabel() const { return m_notice; }
    /// The tick box of an item, while its group is shown.
    QCheckBox* checkBox(DupGroup::Kind kind, int group, int item) const;

private:
    struct Section
    {
        QLabel* title = nullptr;
        QWidget* cards = nullptr;
        QVBoxLayout* layout = nullptr;
        QPushButton* more = nullptr;
        int shown = 0;
    };

    void chooseFolder();
    void confirmTrash();
    void render();
    void renderProgress();
    void rebuildGroups();
    void showMore(DupGroup::Kind kind);
    void appendCards(DupGroup::Kind kind);
    QWidget* makeCard(DupGroup::Kind kind, int index);
    QWidget* makeTile(DupGroup::Kind kind, int group, int item, QWidget* parent);
    void setPicture(const QString& path, const QImage& image);
    Section& section(DupGroup::Kind kind) { return kind == DupGroup::Kind::Identical ? m_identical : m_similar; }

    DuplicatesModel& m_model;
    std::function<QString()> m_pickFolder;
    std::function<bool(int, qint64)> m_confirm;
    QLabel* m_title;
    QLabel* m_subtitle;
    QLabel* m_folder;
    QPushButton* m_choose;
    QPushButton* m_scan;
    QPushButton* m_stop;
    QProgressBar* m_progress;
    QLabel* m_progressText;
    QLabel* m_summary;
    QLabel* m_empty;
    QLabel* m_notice;
    QPushButton* m_trash;
    Section m_identical;
    Section m_similar;
    QHash<QPair<int, QPair<int, int>>, QCheckBox*> m_checks; ///< (kind, (group, item))
    QHash<QPair<int, QPair<int, int>>, QLabel*> m_keepBadges;
    QMultiHash<QString, QLabel*> m_pictures; ///< thumbnails waiting for their image
};

} // namespace nuvrel
