#include "engines/lighten/LightenError.h"
#include "engines/lighten/LightenFiles.h"
#include "engines/lighten/Lightener.h"
#include "engines/lighten/PhotoPasses.h"
#include "ground/NewFile.h"
#include "media/PhotoEncoder.h"
#include "media/PhotoFile.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>

namespace nuvrel {

namespace {

constexpr double startQuality = 0.85;
constexpr double qualityFloor = 0.5;
constexpr double qualityStep = 0.1;
constexpr double restartQuality = 0.8;
constexpr double sideFactor = 0.8;
constexpr int smallestSide = 600;
constexpr int maxEncodings = 16;

} // namespace

QByteArray lighten::encodeWithinBudget(const QImage& picture, std::optional<qint64> budget,
                                       const std::function<QByteArray(const QImage&, double)>& encode,
                                       QList<PhotoPass>* passes)
{
    int side = std::max(picture.width(), picture.height());
    QImage sized = picture;
    double quality = startQuality;
    QByteArray encoded;
    for (int pass = 1; pass <= maxEncodings; ++pass) {
        if (passes)
            passes->append({std::max(sized.width(), sized.height()), quality});
        encoded = encode(sized, quality);
        if (encoded.isEmpty() || !budget || encoded.size() <= *budget)
            break;
        if (quality > qualityFloor) {
            quality -= qualityStep;
            continue;
        }
        side = int(sideFactor * side);
        if (side < smallestSide)
            break; // kept over budget: smaller would not be worth sending
        quality = restartQuality;
        // Scaled from the first pixels each time, never from a lossy encoding.
        sized = picture.scaled(picture.size().scaled(side, side, Qt::KeepAspectRatio), Qt::IgnoreAspectRatio,
                               Qt::SmoothTransformation);
    }
    return encoded;
}

QString Lightener::lightenImage(const QString& source, LightenTarget target, bool strip, bool convertHeic,
                                const QString& outputFolder)
{
    lighten::checkSource(source);
    PhotoFile photo(source);
    if (photo.status() == PhotoFile::Status::TooLarge)
        throw LightenError(LightenError::Kind::TooLarge);
    if (photo.status() != PhotoFile::Status::Ok)
        throw LightenError(LightenError::Kind::Unreadable);

    const QString suffix = QFileInfo(source).suffix().toLower();
    const bool keepHeic = !convertHeic && (suffix == QLatin1StringView("heic") || suffix == QLatin1StringView("heif"));
    const int targetSide = maxPhotoSide(target);
    const QSize stored = photo.storedSize();
    const int longSide = stored.isValid() ? std::max(stored.width(), stored.height()) : targetSide;
    const int sideLimit = std::min(longSide, targetSide);

    const PhotoMetadata metadata = photo.format() == PhotoFile::Format::Heif
                                       ? PhotoMetadata::fromHeif(photo.heifExif(), photo.iccProfile())
                                       : PhotoMetadata::fromFile(source);
    // Decoded once at the largest size tried; smaller sizes are scaled from these pixels.
    const QImage decoded = photo.decode(sideLimit);
    if (decoded.isNull())
        throw LightenError(LightenError::Kind::Unreadable);

    const QByteArray encoded =
        lighten::encodeWithinBudget(decoded, byteBudget(target), [&](const QImage& picture, double quality) {
            const PhotoMetadata carried = metadata.carried(!strip, picture.size());
            return keepHeic ? PhotoEncoder::heic(picture, quality, carried)
                            : PhotoEncoder::jpeg(picture, quality, carried);
        });
    if (encoded.isEmpty())
        throw LightenError(LightenError::Kind::Unreadable);

    const QString name =
        lighten::stem(source) + (keepHeic ? QStringLiteral("-leger.heic") : QStringLiteral("-leger.jpg"));
    NewFile out(QDir(outputFolder).filePath(name), FreeNameStyle::Hyphenated);
    errno = 0;
    if (out.device().write(encoded) != encoded.size())
        throw FileError::fromErrno(FileError::Operation::Write, errno ? errno : EIO, QDir(outputFolder).filePath(name));
    QString output = out.commit();
    copyDates(source, output);
    return output;
}

} // namespace nuvrel
