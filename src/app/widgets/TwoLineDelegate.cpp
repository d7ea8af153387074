#include "app/widgets/TwoLineDelegate.h"

#include "app/shell/Icons.h"

#include <QApplication>
#include <QPainter>

namespace nuvrel {

namespace {
constexpr int padding = 8;
constexpr int iconSide = 28;
} // namespace

void TwoLineDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QString title = opt.text;
    QIcon icon = opt.icon;
    if (icon.isNull()) {
        if (const QString name = index.data(ListRole::IconName).toString(); !name.isEmpty())
            icon = Icons::icon(name);
    }
    opt.text.clear();
    opt.icon = QIcon();
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

    const bool selected = opt.state & QStyle::State_Selected;
    const QPalette::ColorGroup group = opt.state & QStyle::State_Enabled ? QPalette::Normal : QPalette::Disabled;
    QRect area = opt.rect.adjusted(padding, padding / 2, -padding, -padding / 2);
    // A ticked list: the style drew the box at the row's start, and the click lands there.
    if (opt.features & QStyleOptionViewItem::HasCheckIndicator)
        area.setLeft(style->subElementRect(QStyle::SE_ItemViewItemCheckIndicator, &opt, widget).right() + padding);
    if (!icon.isNull()) {
        const QRect iconRect(area.left(), area.center().y() - iconSide / 2, iconSide, iconSide);
        icon.paint(painter, iconRect, Qt::AlignCenter, selected ? QIcon::Selected : QIcon::Normal);
        area.setLeft(iconRect.right() + padding + 4);
    }

    const QString detail = index.data(DetailRole).toString();
    QFont titleFont = opt.font;
    titleFont.setWeight(QFont::DemiBold);
    const QFontMetrics titleMetrics(titleFont);
    const QFontMetrics detailMetrics(opt.font);
    const int height = titleMetrics.height() + (detail.isEmpty() ? 0 : detailMetrics.height() + 2);
    int y = area.center().y() - height / 2;

    painter->save();
    painter->setFont(titleFont);
    painter->setPen(opt.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text));
    painter->drawText(QRect(area.left(), y, area.width(), titleMetrics.height()), Qt::AlignLeft | Qt::AlignVCenter,
                      titleMetrics.elidedText(title, Qt::ElideMiddle, area.width()));
    if (!detail.isEmpty()) {
        y += titleMetrics.height() + 2;
        QColor muted = opt.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text);
        muted.setAlphaF(selected ? 0.85f : 0.62f);
        painter->setFont(opt.font);
        painter->setPen(muted);
        painter->drawText(QRect(area.left(), y, area.width(), detailMetrics.height()), Qt::AlignLeft | Qt::AlignVCenter,
                          detailMetrics.elidedText(detail, Qt::ElideRight, area.width()));
    }
    painter->restore();
}

QSize TwoLineDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QFont titleFont = option.font;
    titleFont.setWeight(QFont::DemiBold);
    const bool hasDetail = !index.data(DetailRole).toString().isEmpty();
    const int text = QFontMetrics(titleFont).height() + (hasDetail ? QFontMetrics(option.font).height() + 2 : 0);
    return {200, std::max(text, iconSide) + padding * 2};
}

} // namespace nuvrel
