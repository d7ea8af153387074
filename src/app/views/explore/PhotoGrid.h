#pragma once

#include <QAbstractListModel>
#include <QHash>
#include <QListView>
#include <QStyledItemDelegate>

namespace nuvrel {

class ExplorerModel;

/// The camera roll as a list model: the first `shownPhotos` photos of the explorer.
class PhotoGridModel final : public QAbstractListModel
{
    Q_OBJECT

public:
    static constexpr int FileIDRole = Qt::UserRole + 1;
    static constexpr int IsVideoRole = Qt::UserRole + 2;
    static constexpr int SelectedRole = Qt::UserRole + 3;

    explicit PhotoGridModel(ExplorerModel& explorer, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    ExplorerModel& explorer() const { return m_explorer; }

private:
    void reset();

    ExplorerModel& m_explorer;
    QHash<QString, int> m_rows;
};

/// A photo cell: the thumbnail (asked for when first painted), a video mark, and a check when selected.
class PhotoDelegate final : public QStyledItemDelegate
{
public:
    /// The smallest cell; the grid widens its cells so that whole columns fill the width.
    static constexpr int minimumCellSide = 132;

    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

/// The grid: clicking a cell, or Space on the current one, toggles it in the explorer's selection.
class PhotoGridView final : public QListView
{
    Q_OBJECT

public:
    PhotoGridView(PhotoGridModel& model, QWidget* parent = nullptr);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void toggle(const QModelIndex& index);
    void fitCellsToWidth();
    PhotoGridModel& m_model;
};

} // namespace nuvrel
