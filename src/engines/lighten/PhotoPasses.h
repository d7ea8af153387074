#pragma once

// The photo route's search for an encoding within a budget, apart from decoding and files so that
// its steps can be followed with any budget. Private to the engine.

#include <QByteArray>
#include <QImage>
#include <QList>

#include <functional>
#include <optional>

namespace nuvrel::lighten {

/// One encoding tried: the long side in pixels and the quality.
struct PhotoPass
{
    int side = 0;
    double quality = 0;

    friend bool operator==(const PhotoPass&, const PhotoPass&) = default;
};

/// Encodes the picture at 0.85, then at qualities 0.1 lower down to 0.5, then at 0.8 of the size
/// from quality 0.8 again, until the bytes fit `budget`, the side would drop under 600 pixels, or 16
/// encodings were made; without a budget, once. `picture`'s long side is the first size. Returns the
/// last encoding, empty when `encode` failed; `passes` lists what was tried.
QByteArray encodeWithinBudget(const QImage& picture, std::optional<qint64> budget,
                              const std::function<QByteArray(const QImage&, double quality)>& encode,
                              QList<PhotoPass>* passes = nullptr);

} // namespace nuvrel::lighten
