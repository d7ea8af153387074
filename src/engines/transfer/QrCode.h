#pragma once

#include <QByteArray>
#include <QImage>
#include <QString>

#include <optional>
#include <vector>

namespace nuvrel {

/// A QR code's modules, as libqrencode lays them out, for a phone's camera to read an address from.
class QrCode final
{
public:
    /// The light border a reader needs around the code, in modules.
    static constexpr int quietZone = 4;

    /// Level M: an address is short, and a screen photographed at an angle loses a little.
    /// Nothing when the text cannot be encoded (over the largest version's capacity).
    static std::optional<QrCode> encode(const QByteArray& text);

    /// Modules per side, without the quiet zone.
    int size() const { return m_size; }
    bool isDark(int x, int y) const { return m_modules[std::size_t(y) * std::size_t(m_size) + std::size_t(x)]; }

    /// One pixel per module, the quiet zone included, dark on white: drawn larger only by whole
    /// factors (nearest neighbour), it stays sharp at any screen density.
    QImage toImage() const;
    /// The code in a terminal, two rows of modules per line with half-block characters, the quiet
    /// zone included. `colours`: light background and dark ink forced with ANSI codes, so that a
    /// dark terminal does not show it inverted.
    QString toTerminalText(bool colours) const;

private:
    QrCode(int size, std::vector<bool> modules)
        : m_size(size)
        , m_modules(std::move(modules))
    {}

    int m_size;
    std::vector<bool> m_modules;
};

} // namespace nuvrel
