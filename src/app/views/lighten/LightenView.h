#pragma once

#include "models/lighten/AllegerModel.h"

#include <QFrame>
#include <QWidget>

#include <functional>

class QButtonGroup;
class QLabel;
class QListView;
class QPushButton;
class QSpinBox;

namespace nuvrel {

class WrappingCheckBox;

/// The frame files are dropped on: it lights up while files from any file manager are dragged over
/// it, and hands their paths on when they are dropped.
class DropZone final : public QFrame
{
    Q_OBJECT

public:
    explicit DropZone(QWidget* parent = nullptr);

    bool isHighlighted() const { return m_highlighted; }

Q_SIGNALS:
    void dropped(const QStringList& paths);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void setHighlighted(bool highlighted);

    bool m_highlighted = false;
};

/// « Alléger »: files dropped or picked, the channel they are for, the list of what each became, and
/// the hand-off. Every lightened row can be dragged out into another application. The view only
/// binds to its model.
class LightenView final : public QWidget
{
    Q_OBJECT

public:
    explicit LightenView(AllegerModel& model, QWidget* parent = nullptr);

    void retranslate();
    AllegerModel& model() const { return m_model; }

    /// Chooses files (`photos`: photos and videos only); a file dialog unless a test sets another.
    void setFilePicker(std::function<QStringList(bool photos)> picker) { m_pickFiles = std::move(picker); }

    // For tests and the keyboard.
    DropZone* dropZone() const { return m_dropZone; }
    QPushButton* chooseButton() const { return m_choose; }
    QPushButton* photosButton() const { return m_photos; }
    QPushButton* targetButton(LightenTarget target) const;
    QListView* list() const { return m_list; }
    QPushButton* runButton() const { return m_run; }
    QPushButton* stopButton() const { return m_stop; }
    QPushButton* removeButton() const { return m_remove; }
    QPushButton* clearListButton() const { return m_clearList; }
    QPushButton* clearFolderButton() const { return m_clearFolder; }
    QPushButton* sendButton() const { return m_send; }
    QLabel* noticeLabel() const { return m_notice; }
    QLabel* totalLabel() const { return m_total; }

protected:
    // Delete takes the selected rows out of the list.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void choose(bool photos);
    QStringList pickFiles(bool photos);
    void removeSelected();
    void render();

    AllegerModel& m_model;
    std::function<QStringList(bool)> m_pickFiles;
    QLabel* m_title;
    QLabel* m_subtitle;
    DropZone* m_dropZone;
    QLabel* m_dropText;
    QPushButton* m_choose;
    QPushButton* m_photos;
    QLabel* m_targetTitle;
    QButtonGroup* m_targets;
    QList<QPushButton*> m_targetButtons;
    WrappingCheckBox* m_strip;
    WrappingCheckBox* m_convert;
    WrappingCheckBox* m_automatic;
    QLabel* m_limitLabel;
    QSpinBox* m_limit;
    QListView* m_list;
    QLabel* m_empty;
    QLabel* m_total;
    QLabel* m_notice;
    QPushButton* m_run;
    QPushButton* m_stop;
    QPushButton* m_remove;
    QPushButton* m_clearList;
    QPushButton* m_clearFolder;
    QPushButton* m_send;
};

} // namespace nuvrel
