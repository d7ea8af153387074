#include "app/shell/Icons.h"

#include <QFile>
#include <QGuiApplication>
#include <QHash>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>

namespace nuvrel {

namespace {

// The drawings use pure black as their only colour; it is replaced when painting.
constexpr QByteArrayView placeholderColour = "#000000";

QByteArray svgData(const QString& name)
{
    static QHash<QString, QByteArray> cache;
    auto found = cache.constFind(name);
    if (found == cache.constEnd()) {
        QFile file(QStringLiteral(":/icons/%1.svg").arg(name));
        found = cache.insert(name, file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
    }
    return *found;
}

class TintedSvgEngine final : public QIconEngine
{
public:
    TintedSvgEngine(QString name, QColor colour)
        : m_name(std::move(name))
        , m_colour(colour)
    {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override
    {
        QByteArray data = svgData(m_name);
        data.replace(placeholderColour, colourFor(mode).name(QColor::HexRgb).toLatin1());
        QSvgRenderer renderer(data);
        if (mode == QIcon::Disabled)
            painter->setOpacity(painter->opacity() * 0.45);
        renderer.render(painter, QRectF(rect));
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        return scaledPixmap(size, mode, state, 1.0);
    }

    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state, qreal scale) override
    {
        QImage image((QSizeF(size) * scale).toSize(), QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        {
            QPainter painter(&image);
            painter.setRenderHint(QPainter::Antialiasing);
            paint(&painter, image.rect(), mode, state);
        }
        image.setDevicePixelRatio(scale);
        return QPixmap::fromImage(image);
    }

    QIconEngine* clone() const override { return new TintedSvgEngine(m_name, m_colour); }
    QString key() const override { return QStringLiteral("nuvrel-tinted-svg"); }
    bool isNull() override { return svgData(m_name).isEmpty(); }

private:
    QColor colourFor(QIcon::Mode mode) const
    {
        if (mode == QIcon::Selected)
            return QGuiApplication::palette().color(QPalette::HighlightedText);
        if (m_colour.isValid())
            return m_colour;
        return QGuiApplication::palette().color(QPalette::WindowText);
    }

    QString m_name;
    QColor m_colour;
};

} // namespace

QIcon Icons::icon(const QString& name, const QColor& colour)
{
    return QIcon(new TintedSvgEngine(name, colour));
}

} // namespace nuvrel
