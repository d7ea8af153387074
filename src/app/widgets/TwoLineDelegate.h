#pragma once

#include <QStyledItemDelegate>

namespace nuvrel {

/// List rows of a title and a grey detail line below it, with the item's icon on the left.
/// The detail comes from the item's DetailRole.
class TwoLineDelegate final : public QStyledItemDelegate
{
public:
    static constexpr int DetailRole = Qt::UserRole + 100;

    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace nuvrel
