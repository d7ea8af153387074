#pragma once

#include <QSize>
#include <QString>

#include <atomic>
#include <optional>

namespace nuvrel {

/// What a video file holds, as the ffprobe command tells it.
struct VideoProbe
{
    QSize size;              ///< of the first video stream, as stored (before its rotation)
    bool highDynamicRange{}; ///< HLG or PQ, as iPhones film in HDR
    bool hasAudio{};
    qint64 durationUs = 0; ///< 0 when unknown

    /// The first video stream of `path`; nothing when the file has none, is no video, or ffprobe is
    /// missing or fails. `cancel` stops it early.
    static std::optional<VideoProbe> of(const QString& path, const std::atomic<bool>* cancel = nullptr);

    /// The ffprobe command that comes with ffmpeg, or empty when it is not installed.
    static QString ffprobePath();
};

} // namespace nuvrel
