#include "app/views/transfer/QrCodeView.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace nuvrel {

QrCodeView::QrCodeView(QWidget* parent)
    : QWidget(parent)
{
    setMinimumSize(220, 220);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
}

void QrCodeView::setImage(const QImage& image)
{
    m_image = image;
    update();
}

int QrCodeView::moduleSize() const
{
    if (m_image.isNull())
        return 0;
    const double ratio = devicePixelRatioF();
    return std::max(1, int(std::floor(std::min(width(), height()) * ratio / m_image.width())));
}

void QrCodeView::paintEvent(QPaintEvent*)
{
    if (m_image.isNull())
        return;
    QPainter painter(this);
    const double ratio = devicePixelRatioF();
    const int factor = moduleSize();
    // Scaled here by a whole factor, nearest neighbour; drawn at the device's own density, unscaled.
    QImage scaled = m_image.scaled(m_image.size() * factor, Qt::IgnoreAspectRatio, Qt::FastTransformation);
    scaled.setDevicePixelRatio(ratio);
    const double side = scaled.width() / ratio;
    const auto onGrid = [ratio](double x) { return std::round(x * ratio) / ratio; };
    painter.drawImage(QPointF(onGrid((width() - side) / 2), onGrid((height() - side) / 2)), scaled);
}

} // namespace nuvrel
