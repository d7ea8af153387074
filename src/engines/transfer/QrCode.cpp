#include "engines/transfer/QrCode.h"

#include <qrencode.h>

#include <memory>

namespace nuvrel {

std::optional<QrCode> QrCode::encode(const QByteArray& text)
{
    // Byte mode, as it stands: an address's lower-case token is not alphanumeric for QR.
    const std::unique_ptr<QRcode, decltype(&QRcode_free)> code(
        QRcode_encodeData(int(text.size()), reinterpret_cast<const unsigned char*>(text.constData()), 0, QR_ECLEVEL_M),
        &QRcode_free);
    if (!code || code->width <= 0)
        return std::nullopt;
    const int size = code->width;
    std::vector<bool> modules(std::size_t(size) * std::size_t(size));
    for (std::size_t i = 0; i < modules.size(); ++i)
        modules[i] = (code->data[i] & 1) != 0; // bit 0: dark; the others say what the module is
    return QrCode(size, std::move(modules));
}

QImage QrCode::toImage() const
{
    const int side = m_size + 2 * quietZone;
    QImage image(side, side, QImage::Format_Grayscale8);
    image.fill(255);
    for (int y = 0; y < m_size; ++y) {
        uchar* line = image.scanLine(y + quietZone);
        for (int x = 0; x < m_size; ++x) {
            if (isDark(x, y))
                line[x + quietZone] = 0;
        }
    }
    return image;
}

QString QrCode::toTerminalText(bool colours) const
{
    const int side = m_size + 2 * quietZone;
    const auto dark = [this](int x, int y) {
        x -= quietZone;
        y -= quietZone;
        return x >= 0 && y >= 0 && x < m_size && y < m_size && isDark(x, y);
    };
    // With colours the ink is black on white; without, a block is the terminal's own ink.
    QString text;
    for (int y = 0; y < side; y += 2) {
        if (colours)
            text += QStringLiteral("\x1b[30;47m");
        for (int x = 0; x < side; ++x) {
            const bool top = dark(x, y);
            const bool bottom = y + 1 < side && dark(x, y + 1);
            text += top && bottom ? QChar(0x2588) : top ? QChar(0x2580) : bottom ? QChar(0x2584) : QChar(u' ');
        }
        if (colours)
            text += QStringLiteral("\x1b[0m");
        text += u'\n';
    }
    return text;
}

} // namespace nuvrel
