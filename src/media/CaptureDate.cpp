#include "media/CaptureDate.h"

#include "ground/Dates.h"
#include "ground/FileScan.h"
#include "media/PhotoEncoder.h"
#include "media/PhotoFile.h"

#include <QFileInfo>
#include <QtEndian>

#include <cstring>
#include <limits>
#include <optional>

namespace nuvrel {

namespace {

// Seconds between 1904-01-01, the epoch of QuickTime's clocks, and 1970-01-01.
constexpr qint64 quickTimeEpochOffset = 2082844800;

struct Box
{
    qint64 bodyAt = 0;  ///< where its content starts
    qint64 bodyEnd = 0; ///< where it ends, clipped to its parent
    char type[4]{};
};

// The box at `at`, or nothing when its header is cut or claims less than itself. A box that claims
// more than its parent holds is clipped: a truncated file still shows the boxes it has.
std::optional<Box> boxAt(const FileReader& file, qint64 at, qint64 parentEnd)
{
    uchar header[16];
    if (at + 8 > parentEnd || !file.readAt(at, reinterpret_cast<char*>(header), 8))
        return std::nullopt;
    Box box;
    std::memcpy(box.type, header + 4, 4);
    quint64 size = qFromBigEndian<quint32>(header);
    qint64 headerSize = 8;
    if (size == 1) { // a 64-bit size follows the type
        if (at + 16 > parentEnd || !file.readAt(at + 8, reinterpret_cast<char*>(header + 8), 8))
            return std::nullopt;
        size = qFromBigEndian<quint64>(header + 8);
        headerSize = 16;
    } else if (size == 0) { // up to the end
        size = quint64(parentEnd - at);
    }
    if (size < quint64(headerSize))
        return std::nullopt;
    box.bodyAt = at + headerSize;
    box.bodyEnd = size > quint64(parentEnd - at) ? parentEnd : at + qint64(size);
    return box;
}

// The first child of type `type` between `from` and `to`; a bounded walk, so that a file of millions
// of tiny boxes costs nothing.
std::optional<Box> findBox(const FileReader& file, qint64 from, qint64 to, const char (&type)[5])
{
    constexpr int maxBoxes = 512;
    qint64 at = from;
    for (int seen = 0; seen < maxBoxes && at < to; ++seen) {
        const std::optional<Box> box = boxAt(file, at, to);
        if (!box)
            return std::nullopt;
        if (std::memcmp(box->type, type, 4) == 0)
            return box;
        at = box->bodyEnd;
    }
    return std::nullopt;
}

bool isMovieSuffix(const QString& suffix)
{
    static const QStringList movies = {QStringLiteral("mov"), QStringLiteral("mp4"), QStringLiteral("m4v"),
                                       QStringLiteral("3gp")};
    return movies.contains(suffix);
}

} // namespace

QDateTime movieCreationDate(const QString& path)
{
    const FileReader file(path);
    const std::optional<EntryStatus> status = entryStatus(path);
    if (!file.isOpen() || !status)
        return {};
    const std::optional<Box> movie = findBox(file, 0, status->size, "moov");
    if (!movie)
        return {};
    const std::optional<Box> header = findBox(file, movie->bodyAt, movie->bodyEnd, "mvhd");
    if (!header)
        return {};
    uchar fields[12];
    if (header->bodyAt + 12 > header->bodyEnd || !file.readAt(header->bodyAt, reinterpret_cast<char*>(fields), 12))
        return {};
    // Version 1 keeps its times in 64 bits, version 0 in 32; both after the version and flags.
    const quint64 seconds = fields[0] == 1 ? qFromBigEndian<quint64>(fields + 4) : qFromBigEndian<quint32>(fields + 4);
    if (seconds == 0 || seconds > quint64(std::numeric_limits<qint64>::max() / 2))
        return {};
    return utcFromSecsSinceEpoch(qint64(seconds) - quickTimeEpochOffset);
}

QDateTime recordedCaptureDate(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (isMovieSuffix(suffix))
        return movieCreationDate(path);
    if (suffix == QLatin1String("heic") || suffix == QLatin1String("heif")) {
        PhotoFile photo(path);
        if (photo.status() != PhotoFile::Status::Ok)
            return {};
        return PhotoMetadata::fromHeif(photo.heifExif(), {}).takenAt();
    }
    if (!PhotoFile::isDecodable(suffix))
        return {};
    return PhotoMetadata::fromFile(path).takenAt();
}

} // namespace nuvrel
