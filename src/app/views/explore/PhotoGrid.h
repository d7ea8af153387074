#pragma once

#include <QListView>
#include <QStyledItemDelegate>

namespace nuvrel {

class PhotoRoll;

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

/// The grid of a photo roll: clicking a cell, or Space on the current one, toggles it in the selection.
class PhotoGridView final : public QListView
{
    Q_OBJECT

public:
    PhotoGridView(PhotoRoll& model, QWidget* parent = nullptr);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void toggle(const QModelIndex& index);
    void fitCellsToWidth();
    PhotoRoll& m_model;
};

} // namespace nuvrel
