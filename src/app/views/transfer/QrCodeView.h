#pragma once

#include <QImage>
#include <QWidget>

namespace nuvrel {

/// A QR code drawn as large as the widget allows, each module a whole number of device pixels and
/// placed on the pixel grid, so that it stays sharp at any screen density.
class QrCodeView final : public QWidget
{
    Q_OBJECT

public:
    explicit QrCodeView(QWidget* parent = nullptr);

    /// One pixel per module, the quiet zone included.
    void setImage(const QImage& image);
    const QImage& image() const { return m_image; }
    /// Device pixels per module at the current size.
    int moduleSize() const;

    QSize sizeHint() const override { return {300, 300}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return width; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QImage m_image;
};

} // namespace nuvrel
