#include "app/views/explore/PhotoGrid.h"

#include "app/shell/Icons.h"
#include "app/shell/WindowStyler.h"
#include "l10n/L.h"
#include "models/explorer/PhotoRoll.h"

#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScrollBar>

namespace nuvrel {

void PhotoDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const bool video = index.data(PhotoRoll::IsVideoRole).toBool();
    const bool selected = index.data(PhotoRoll::SelectedRole).toBool();
    const QRect cell = option.rect.adjusted(4, 4, -4, -4);

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    QPainterPath rounded;
    rounded.addRoundedRect(QRectF(cell), 6, 6);
    painter->setClipPath(rounded);
    painter->fillRect(cell, option.palette.color(QPalette::AlternateBase));

    // Asking paints nothing new now; the roll says when the picture is ready.
    const QImage thumb = index.data(PhotoRoll::ThumbnailRole).value<QImage>();
    if (!thumb.isNull()) {
        // Fill the square cell, cropping the long side, as photo grids do.
        const QSizeF source = QSizeF(thumb.size()).scaled(QSizeF(cell.size()), Qt::KeepAspectRatioByExpanding);
        const qreal scale = source.width() / thumb.width();
        const QRectF crop((source.width() - cell.width()) / 2 / scale, (source.height() - cell.height()) / 2 / scale,
                          cell.width() / scale, cell.height() / scale);
        painter->setRenderHint(QPainter::SmoothPixmapTransform);
        painter->drawImage(QRectF(cell), thumb, crop);
    } else {
        const QRect iconRect(cell.center().x() - 16, cell.center().y() - 16, 32, 32);
        QColor tint = option.palette.color(QPalette::Text);
        tint.setAlphaF(index.data(PhotoRoll::ThumbnailFailedRole).toBool() ? 0.55f : 0.25f);
        Icons::icon(video ? QStringLiteral("video") : QStringLiteral("photo"), tint).paint(painter, iconRect);
    }
    if (video && !thumb.isNull()) {
        const QRect badge(cell.left() + 6, cell.bottom() - 26, 20, 20);
        painter->setPen(Qt::NoPen);
        painter->setBrush(QColor(0, 0, 0, 140));
        painter->drawRoundedRect(badge.adjusted(-2, -2, 2, 2), 5, 5);
        Icons::icon(QStringLiteral("video"), Qt::white).paint(painter, badge);
    }
    painter->setClipping(false);

    const QColor accent = WindowStyler::accent();
    if (selected) {
        painter->setPen(QPen(accent, 3));
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(QRectF(cell).adjusted(1.5, 1.5, -1.5, -1.5), 6, 6);
        const QRect check(cell.right() - 26, cell.top() + 6, 20, 20);
        painter->setPen(QPen(Qt::white, 1.5));
        painter->setBrush(accent);
        painter->drawEllipse(check);
        Icons::icon(QStringLiteral("check"), Qt::white).paint(painter, check.adjusted(3, 3, -3, -3));
    }
    // The cell the arrow keys stand on: a ring in the gap around it, apart from the selection's.
    if (option.state & QStyle::State_HasFocus) {
        painter->setPen(QPen(accent, 2));
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(QRectF(option.rect).adjusted(1, 1, -1, -1), 8, 8);
    }
    painter->restore();
}

QSize PhotoDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const
{
    if (const auto* view = qobject_cast<const QListView*>(option.widget); view && view->gridSize().isValid())
        return view->gridSize();
    return {minimumCellSide, minimumCellSide};
}

PhotoGridView::PhotoGridView(PhotoRoll& model, QWidget* parent)
    : QListView(parent)
    , m_model(model)
{
    setModel(&model);
    setItemDelegate(new PhotoDelegate(this));
    setViewMode(QListView::IconMode);
    setResizeMode(QListView::Adjust);
    setMovement(QListView::Static);
    setUniformItemSizes(true);
    setGridSize(QSize(PhotoDelegate::minimumCellSide, PhotoDelegate::minimumCellSide));
    setSelectionMode(QAbstractItemView::NoSelection);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setSpacing(0);
    setMouseTracking(true);
    connect(this, &QListView::clicked, this, &PhotoGridView::toggle);
}

void PhotoGridView::resizeEvent(QResizeEvent* event)
{
    fitCellsToWidth();
    QListView::resizeEvent(event);
}

// Square cells that share the width out evenly, so no empty band stays at the right edge. The
// scroll bar's room is always kept: sizing from the width it leaves would let the bar's coming
// and going change the column count, and the column count bring the bar back and forth.
void PhotoGridView::fitCellsToWidth()
{
    const QScrollBar* bar = verticalScrollBar();
    // QListView starts a new row when a cell would reach the viewport's last pixel: cells that fill the
    // width exactly would lose their last column, so one pixel is left over.
    const int width = viewport()->width() - (bar->isVisible() ? 0 : bar->sizeHint().width()) - 1;
    const int columns = std::max(1, width / PhotoDelegate::minimumCellSide);
    const int side = std::max(PhotoDelegate::minimumCellSide, width / columns);
    if (gridSize().width() != side)
        setGridSize(QSize(side, side));
}

void PhotoGridView::toggle(const QModelIndex& index)
{
    if (index.isValid())
        m_model.toggleSelected(index.data(PhotoRoll::FileIDRole).toString());
}

void PhotoGridView::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        toggle(currentIndex());
        event->accept();
        return;
    }
    QListView::keyPressEvent(event);
}

} // namespace nuvrel
