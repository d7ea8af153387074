#pragma once

#include <QByteArray>
#include <QImage>
#include <QString>

#include <atomic>

namespace nuvrel {

/// Small pictures of photos and videos for grids and previews. Decoding is slow: call it off the GUI
/// thread. Every function returns a null image when the input cannot be decoded.
class Thumbnailer final
{
public:
    Thumbnailer() = delete;

    /// A photo (JPEG, PNG, GIF, TIFF, WebP… through Qt; HEIC and HEIF through libheif) fitted into a
    /// maxSide × maxSide square, turned upright as its orientation says.
    static QImage image(const QByteArray& data, int maxSide);

    /// One frame near the start of a video, fitted the same way, through the ffmpeg command. `cancel`
    /// stops it early.
    static QImage videoFrame(const QString& path, int maxSide, const std::atomic<bool>* cancel = nullptr);

    /// The ffmpeg command, or empty when it is not installed.
    static QString ffmpegPath();

    /// Whether the data starts like an ISO base media file holding HEIF images ("ftypheic", "ftypmif1"…).
    static bool isHeif(const QByteArray& data);
};

} // namespace nuvrel
