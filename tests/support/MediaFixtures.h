#pragma once

#include <QByteArray>
#include <QSize>
#include <QString>
#include <QStringList>

namespace nuvrel::test {

/// Photos, videos and PDFs made in the test run by independent tools (ffmpeg, exiv2, heif-enc,
/// Ghostscript) or by Qt, and read back the same way.

/// Whether a command is installed.
bool hasTool(const QString& program);
/// Runs a command to its end (five minutes at most); true when it exits with 0. Its standard error
/// goes to `errors` when given.
bool runCommand(const QString& program, const QStringList& arguments, QString* errors = nullptr);

/// A photo full of detail (ffmpeg's colour test pattern with film grain), as a JPEG at ffmpeg's
/// quality scale `qscale` (2 is near lossless).
bool writeDetailedJpeg(const QString& path, QSize size, int qscale = 2);
/// What a phone writes beside the pixels, planted with exiv2: make and model, the orientation, the
/// time it was taken, a GPS position, a maker note and an XMP title.
bool plantCameraMetadata(const QString& path, int orientation);
/// `exiv2 -pa`: one line per tag, "Exif.GPSInfo.GPSLatitude  Rational  3  48deg 51' 0\"".
QString exifReport(const QString& path);
/// The ICC profile a file carries, as `exiv2 -pC` extracts it.
QByteArray embeddedIccProfile(const QString& path);
/// Gives a JPEG the ICC profile at `iccPath` (exiv2 -iC).
bool embedIccProfile(const QString& jpegPath, const QString& iccPath);

/// `ffprobe` entries as "key=value" lines (`-show_entries entries`).
QString probe(const QString& path, const QString& entries);

/// The same MP4 or MOV, its first track's display matrix set to turn the picture by `degrees`
/// (90, 180 or 270) as a phone held upright records it.
QByteArray withDisplayRotation(const QByteArray& movie, int degrees);

/// A scanned document: A4 pages, each a grainy picture at 300 dots per inch, written by QPdfWriter.
/// Needs a QGuiApplication.
bool writeScannedPdf(const QString& path, int pages);
/// The same PDF with an incremental update turning one page (`page` ≥ 0) or, with -1, the page tree,
/// whose pages inherit it, by `degrees`: what a viewer saves after "rotate page".
QByteArray withPageRotation(const QByteArray& pdf, int page, int degrees);

} // namespace nuvrel::test
