#pragma once

#include <QDateTime>
#include <QString>

namespace nuvrel {

/// When a photo or a video was taken, as its own content records it: a photo's Exif DateTimeOriginal
/// (JPEG, HEIC, PNG, TIFF, WebP), a video's movie header (QuickTime and MP4). Unlike a file's dates,
/// it survives a copy onto another disk. Invalid when the file does not say or cannot be read.
QDateTime recordedCaptureDate(const QString& path);

/// The creation time in the movie header ("mvhd") of a QuickTime or MP4 file, in UTC; invalid when
/// there is none, it is zero (unset), or the file is not such a movie. Reads a few boxes' headers,
/// never the media.
QDateTime movieCreationDate(const QString& path);

} // namespace nuvrel
