#pragma once

#include "ground/ListRoles.h"

#include <QStyledItemDelegate>

namespace nuvrel {

/// List rows of a title and a grey detail line below it, with the item's icon on the left.
/// The detail comes from the item's ListRole::Detail; the icon from its decoration, or else from the
/// application's icon named by its ListRole::IconName.
class TwoLineDelegate final : public QStyledItemDelegate
{
public:
    static constexpr int DetailRole = ListRole::Detail;

    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace nuvrel
