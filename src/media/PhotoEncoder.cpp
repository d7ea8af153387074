#include "media/PhotoEncoder.h"

#include "media/HeifImage.h"
#include <QBuffer>
#include <QColorSpace>
#include <QFile>
#include <QImageWriter>
#include <QPainter>
#include <QRegularExpression>
#include <QTimeZone>

#include <exiv2/exiv2.hpp>

#include <cmath>
#include <cstring>
#include <mutex>

namespace nuvrel {

namespace {

// Adobe's XMP toolkit inside exiv2 starts on first use and is not thread-safe: started once, before
// any thread reads a photo, with a lock that exiv2 takes around every use of it.
void lockXmp(void* lock, bool locking)
{
    auto* mutex = static_cast<std::recursive_mutex*>(lock);
    locking ? mutex->lock() : mutex->unlock();
}

// Called before any use of exiv2. It reports every oddity of a file on standard error; its findings
// reach us as exceptions.
void prepareExiv2()
{
    static std::once_flag once;
    static std::recursive_mutex xmpLock;
    std::call_once(once, [] {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        Exiv2::XmpParser::initialize(lockXmp, &xmpLock);
    });
}

// The TIFF tags of the first directory that say what the picture is, not how the file lays it out.
bool isDescriptiveTiffTag(const std::string& name)
{
    static const char* const kept[] = {"ImageDescription", "Make",         "Model",     "XResolution", "YResolution",
                                       "ResolutionUnit",   "Software",     "DateTime",  "Artist",      "HostComputer",
                                       "Copyright",        "DocumentName", "WhitePoint"};
    return std::any_of(std::begin(kept), std::end(kept), [&name](const char* tag) { return name == tag; });
}

int libjpegQuality(double quality)
{
    return std::clamp(int(std::lround(quality * 100)), 1, 100);
}

} // namespace

struct PhotoMetadata::Data
{
    Exiv2::ExifData exif;
    QByteArray iccProfile;
    Exiv2::ByteOrder byteOrder = Exiv2::bigEndian; // as iPhones write it
};

PhotoMetadata::PhotoMetadata()
    : d(std::make_unique<Data>())
{}
PhotoMetadata::~PhotoMetadata() = default;
PhotoMetadata::PhotoMetadata(PhotoMetadata&&) noexcept = default;
PhotoMetadata& PhotoMetadata::operator=(PhotoMetadata&&) noexcept = default;

PhotoMetadata PhotoMetadata::fromFile(const QString& path)
{
    prepareExiv2();
    PhotoMetadata result;
    try {
        const auto image = Exiv2::ImageFactory::open(QFile::encodeName(path).toStdString());
        image->readMetadata();
        result.d->exif = image->exifData();
        if (const Exiv2::DataBuf* profile = image->iccProfile(); profile && profile->size_ > 0)
            result.d->iccProfile = QByteArray(reinterpret_cast<const char*>(profile->pData_), profile->size_);
        result.d->byteOrder = image->byteOrder() == Exiv2::invalidByteOrder ? Exiv2::bigEndian : image->byteOrder();
    } catch (const std::exception&) {
        return {};
    }
    return result;
}

PhotoMetadata PhotoMetadata::fromHeif(const QByteArray& tiff, const QByteArray& iccProfile)
{
    prepareExiv2();
    PhotoMetadata result;
    result.d->iccProfile = iccProfile;
    if (tiff.isEmpty())
        return result;
    try {
        const Exiv2::ByteOrder order = Exiv2::ExifParser::decode(
            result.d->exif, reinterpret_cast<const Exiv2::byte*>(tiff.constData()), uint32_t(tiff.size()));
        if (order == Exiv2::invalidByteOrder)
            result.d->exif.clear();
        else
            result.d->byteOrder = order;
    } catch (const std::exception&) {
        result.d->exif.clear();
    }
    return result;
}

bool PhotoMetadata::hasExif() const
{
    return !d->exif.empty();
}

QDateTime PhotoMetadata::takenAt() const
{
    const auto text = [this](const char* key) -> QString {
        const auto datum = d->exif.findKey(Exiv2::ExifKey(key));
        return datum == d->exif.end() ? QString() : QString::fromStdString(datum->toString()).trimmed();
    };
    try {
        QDateTime taken =
            QDateTime::fromString(text("Exif.Photo.DateTimeOriginal").left(19), QStringLiteral("yyyy:MM:dd HH:mm:ss"));
        if (!taken.isValid())
            return {};
        // "+02:00": the clock of the place where the picture was taken.
        const QString offset = text("Exif.Photo.OffsetTimeOriginal");
        static const QRegularExpression offsetForm(QStringLiteral("^([+-])(\\d\\d):(\\d\\d)$"));
        if (const QRegularExpressionMatch match = offsetForm.match(offset); match.hasMatch()) {
            const int seconds = (match.captured(2).toInt() * 60 + match.captured(3).toInt()) * 60;
            taken.setTimeZone(QTimeZone(match.captured(1) == u'-' ? -seconds : seconds));
        }
        return taken;
    } catch (const std::exception&) {
        return {};
    }
}

QByteArray PhotoMetadata::iccProfile() const
{
    return d->iccProfile;
}

PhotoMetadata PhotoMetadata::carried(bool withLocation, QSize pixels) const
{
    PhotoMetadata result;
    result.d->byteOrder = d->byteOrder;
    result.d->iccProfile = d->iccProfile;
    if (d->exif.empty())
        return result;
    try {
        for (const Exiv2::Exifdatum& datum : d->exif) {
            const std::string group = datum.groupName();
            const std::string name = datum.tagName();
            const bool keep = (group == "Image" && isDescriptiveTiffTag(name)) ||
                              (group == "Photo" && name != "MakerNote" && name != "InteroperabilityTag" &&
                               name != "PixelXDimension" && name != "PixelYDimension") ||
                              (group == "GPSInfo" && withLocation);
            if (keep)
                result.d->exif.add(datum);
        }
        result.d->exif["Exif.Photo.PixelXDimension"] = uint32_t(pixels.width());
        result.d->exif["Exif.Photo.PixelYDimension"] = uint32_t(pixels.height());
    } catch (const std::exception&) {
        result.d->exif.clear();
    }
    return result;
}

QByteArray PhotoMetadata::tiff(QSize pixels) const
{
    if (d->exif.empty())
        return {};
    try {
        Exiv2::ExifData exif = d->exif;
        if (pixels.isValid()) {
            exif["Exif.Photo.PixelXDimension"] = uint32_t(pixels.width());
            exif["Exif.Photo.PixelYDimension"] = uint32_t(pixels.height());
        }
        Exiv2::Blob blob;
        Exiv2::ExifParser::encode(blob, d->byteOrder, exif);
        return QByteArray(reinterpret_cast<const char*>(blob.data()), qsizetype(blob.size()));
    } catch (const std::exception&) {
        return {};
    }
}

namespace PhotoEncoder {

QByteArray jpeg(const QImage& image, double quality, const PhotoMetadata& metadata)
{
    if (image.isNull())
        return {};
    QImage opaque = image;
    if (image.hasAlphaChannel()) {
        opaque = QImage(image.size(), QImage::Format_RGB32);
        opaque.fill(Qt::white);
        QPainter painter(&opaque);
        painter.drawImage(0, 0, image);
    }
    // The profile is written below with the Exif, once.
    opaque.setColorSpace(QColorSpace());

    QByteArray encoded;
    {
        QBuffer buffer(&encoded);
        buffer.open(QIODevice::WriteOnly);
        QImageWriter writer(&buffer, "jpeg");
        writer.setQuality(libjpegQuality(quality));
        if (!writer.write(opaque))
            return {};
    }
    const QByteArray tiff = metadata.tiff();
    const QByteArray iccProfile = metadata.iccProfile();
    if (tiff.isEmpty() && iccProfile.isEmpty())
        return encoded;

    prepareExiv2();
    try {
        const auto file =
            Exiv2::ImageFactory::open(reinterpret_cast<const Exiv2::byte*>(encoded.constData()), long(encoded.size()));
        if (!tiff.isEmpty()) {
            Exiv2::ExifData data;
            Exiv2::ExifParser::decode(data, reinterpret_cast<const Exiv2::byte*>(tiff.constData()),
                                      uint32_t(tiff.size()));
            file->setExifData(data);
        }
        if (!iccProfile.isEmpty()) {
            // Built in place: exiv2 0.27's buffers hand their bytes over when copied.
            Exiv2::DataBuf profile(reinterpret_cast<const Exiv2::byte*>(iccProfile.constData()),
                                   long(iccProfile.size()));
            file->setIccProfile(profile, false);
        }
        file->writeMetadata();
        Exiv2::BasicIo& io = file->io();
        if (io.open() != 0)
            return {};
        const Exiv2::DataBuf all = io.read(io.size());
        io.close();
        return QByteArray(reinterpret_cast<const char*>(all.pData_), all.size_);
    } catch (const std::exception&) {
        return {};
    }
}

namespace {

heif_error appendToByteArray(heif_context* /*context*/, const void* data, size_t size, void* userData)
{
    static_cast<QByteArray*>(userData)->append(static_cast<const char*>(data), qsizetype(size));
    return heif_error{heif_error_Ok, heif_suberror_Unspecified, "ok"};
}

} // namespace

QByteArray heic(const QImage& image, double quality, const PhotoMetadata& metadata)
{
    if (image.isNull())
        return {};
    // Even sides: for an odd one libheif stores a grid of one padded tile, whose Exif older readers
    // (exiv2 0.27) no longer find. One row or column less is not seen.
    const QImage rgb = image.copy(0, 0, std::max(2, image.width() & ~1), std::max(2, image.height() & ~1))
                           .convertToFormat(QImage::Format_RGB888);
    const QByteArray iccProfile = metadata.iccProfile();
    const int width = rgb.width();
    const int height = rgb.height();

    heif_image* pictureRaw = nullptr;
    if (heif_image_create(width, height, heif_colorspace_RGB, heif_chroma_interleaved_RGB, &pictureRaw).code !=
        heif_error_Ok)
        return {};
    HeifPointer<heif_image> picture(pictureRaw);
    if (heif_image_add_plane(picture.get(), heif_channel_interleaved, width, height, 8).code != heif_error_Ok)
        return {};
    int stride = 0;
    uint8_t* plane = heif_image_get_plane(picture.get(), heif_channel_interleaved, &stride);
    if (!plane)
        return {};
    for (int y = 0; y < height; ++y)
        std::memcpy(plane + qsizetype(y) * stride, rgb.constScanLine(y), size_t(width) * 3);
    if (!iccProfile.isEmpty() &&
        heif_image_set_raw_color_profile(picture.get(), "prof", iccProfile.constData(), size_t(iccProfile.size()))
                .code != heif_error_Ok)
        return {};

    HeifPointer<heif_context> context(heif_context_alloc());
    heif_encoder* encoderRaw = nullptr;
    if (!context ||
        heif_context_get_encoder_for_format(context.get(), heif_compression_HEVC, &encoderRaw).code != heif_error_Ok)
        return {};
    HeifPointer<heif_encoder> encoder(encoderRaw);
    heif_encoder_set_lossy_quality(encoder.get(), libjpegQuality(quality));
    // x265's "slow", libheif's default, takes seconds for a photo and saves a few per cent.
    heif_encoder_set_parameter(encoder.get(), "preset", "fast");
    heif_encoder_set_logging_level(encoder.get(), 0);

    heif_image_handle* handleRaw = nullptr;
    if (heif_context_encode_image(context.get(), picture.get(), encoder.get(), nullptr, &handleRaw).code !=
        heif_error_Ok)
        return {};
    HeifPointer<heif_image_handle> handle(handleRaw);
    const QByteArray tiff = metadata.tiff(rgb.size());
    if (!tiff.isEmpty() &&
        heif_context_add_exif_metadata(context.get(), handle.get(), tiff.constData(), int(tiff.size())).code !=
            heif_error_Ok)
        return {};

    QByteArray encoded;
    heif_writer writer{};
    writer.writer_api_version = 1;
    writer.write = appendToByteArray;
    if (heif_context_write(context.get(), &writer, &encoded).code != heif_error_Ok)
        return {};
    return encoded;
}

} // namespace PhotoEncoder

} // namespace nuvrel
