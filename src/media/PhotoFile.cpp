#include "media/PhotoFile.h"

#include "ground/RegularFile.h"
#include "media/HeifImage.h"
#include "media/Thumbnailer.h"

#include <QColorSpace>
#include <QFile>
#include <QImageReader>

#include <algorithm>
#include <mutex>

namespace nuvrel {

namespace {

bool tooManyPixels(QSize size)
{
    return size.isValid() && qint64(size.width()) * size.height() > PhotoFile::maxPixels;
}

// Qt refuses to allocate an image above a limit of its own (256 MB); ours is the pixel limit, so the
// two refuse the same pictures.
void raiseQtAllocationLimit()
{
    static std::once_flag once;
    std::call_once(once, [] {
        constexpr qint64 bytesPerPixel = 4;
        QImageReader::setAllocationLimit(int(PhotoFile::maxPixels * bytesPerPixel / (qint64(1024) * 1024)) + 1);
    });
}

QSize fittedSize(QSize size, int maxSide)
{
    if (size.width() <= maxSide && size.height() <= maxSide)
        return size;
    return size.scaled(maxSide, maxSide, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
}

// The Exif item of a HEIF starts with the offset of its TIFF header, which some writers follow with
// "Exif\0\0": everything before the header goes.
QByteArray tiffFromHeifExif(const QByteArray& item)
{
    if (item.size() < 4 + 8)
        return {};
    const auto* bytes = reinterpret_cast<const uchar*>(item.constData());
    const quint32 offset = quint32(bytes[0]) << 24 | quint32(bytes[1]) << 16 | quint32(bytes[2]) << 8 | bytes[3];
    const auto isTiffHeader = [&item](qsizetype at) {
        return at >= 0 && at + 8 <= item.size() &&
               (item.sliced(at, 4) == QByteArrayView("II*\0", 4) || item.sliced(at, 4) == QByteArrayView("MM\0*", 4));
    };
    qsizetype at = 4 + qsizetype(std::min<quint32>(offset, quint32(item.size())));
    if (!isTiffHeader(at)) {
        const qsizetype marker = item.indexOf(QByteArrayView("Exif\0\0", 6));
        at = marker < 0 ? -1 : marker + 6;
        if (!isTiffHeader(at))
            return {};
    }
    return item.sliced(at);
}

} // namespace

struct PhotoFile::Heif
{
    HeifPointer<heif_context> context;
    HeifPointer<heif_image_handle> primary;
};

bool PhotoFile::isDecodable(const QString& suffix)
{
    static const QStringList suffixes{QStringLiteral("jpg"),  QStringLiteral("jpeg"), QStringLiteral("jpe"),
                                      QStringLiteral("jfif"), QStringLiteral("heic"), QStringLiteral("heif"),
                                      QStringLiteral("hif"),  QStringLiteral("png"),  QStringLiteral("tif"),
                                      QStringLiteral("tiff"), QStringLiteral("webp"), QStringLiteral("gif")};
    return suffixes.contains(suffix);
}

PhotoFile::PhotoFile(const QString& path)
    : m_path(path)
{
    // A FIFO or a device put where a photo was listed must not hang the reader.
    QFile file;
    if (!openRegularFile(file, path))
        return;
    const QByteArray head = file.read(16);
    file.close();
    if (Thumbnailer::isHeif(head)) {
        m_format = Format::Heif;
        openHeif();
        return;
    }

    raiseQtAllocationLimit();
    QImageReader reader(path);
    reader.setDecideFormatFromContent(true);
    const QByteArray format = reader.format();
    if (format == "jpeg")
        m_format = Format::Jpeg;
    else if (format == "png")
        m_format = Format::Png;
    else if (format == "tiff")
        m_format = Format::Tiff;
    else if (format == "webp")
        m_format = Format::WebP;
    else if (format == "gif")
        m_format = Format::Gif;
    else
        return;
    m_size = reader.size();
    m_status = tooManyPixels(m_size) ? Status::TooLarge : Status::Ok;
}

PhotoFile::~PhotoFile() = default;

void PhotoFile::openHeif()
{
    auto heif = std::make_unique<Heif>();
    heif->context.reset(heif_context_alloc());
    if (!heif->context ||
        heif_context_read_from_file(heif->context.get(), QFile::encodeName(m_path).constData(), nullptr).code !=
            heif_error_Ok)
        return;
    heif_image_handle* primary = nullptr;
    if (heif_context_get_primary_image_handle(heif->context.get(), &primary).code != heif_error_Ok || !primary)
        return;
    heif->primary.reset(primary);
    m_size = QSize(heif_image_handle_get_width(primary), heif_image_handle_get_height(primary));
    if (m_size.isEmpty())
        return;

    switch (heif_image_handle_get_color_profile_type(primary)) {
    case heif_color_profile_type_prof:
    case heif_color_profile_type_rICC: {
        QByteArray profile(qsizetype(heif_image_handle_get_raw_color_profile_size(primary)), Qt::Uninitialized);
        if (!profile.isEmpty() &&
            heif_image_handle_get_raw_color_profile(primary, profile.data()).code == heif_error_Ok)
            m_iccProfile = profile;
        break;
    }
    case heif_color_profile_type_nclx: {
        heif_color_profile_nclx* nclx = nullptr;
        if (heif_image_handle_get_nclx_color_profile(primary, &nclx).code == heif_error_Ok && nclx) {
            // Display P3 is what iPhones write this way; sRGB needs no profile.
            if (nclx->color_primaries == heif_color_primaries_SMPTE_EG_432_1)
                m_iccProfile = QColorSpace(QColorSpace::DisplayP3).iccProfile();
            heif_nclx_color_profile_free(nclx);
        }
        break;
    }
    default: break;
    }

    heif_item_id exifId = 0;
    if (heif_image_handle_get_list_of_metadata_block_IDs(primary, "Exif", &exifId, 1) == 1) {
        const size_t size = heif_image_handle_get_metadata_size(primary, exifId);
        if (size > 0 && size < size_t(64) * 1024 * 1024) {
            QByteArray item(qsizetype(size), Qt::Uninitialized);
            if (heif_image_handle_get_metadata(primary, exifId, item.data()).code == heif_error_Ok)
                m_heifExif = tiffFromHeifExif(item);
        }
    }
    m_heif = std::move(heif);
    m_status = tooManyPixels(m_size) ? Status::TooLarge : Status::Ok;
}

QImage PhotoFile::decode(int maxSide)
{
    if (m_status != Status::Ok || maxSide <= 0)
        return {};
    return m_format == Format::Heif ? decodeHeif(maxSide) : decodeWithQt(maxSide);
}

QImage PhotoFile::decodeHeif(int maxSide)
{
    // A small size is served by a stored thumbnail when one is large enough.
    const HeifPointer<heif_image_handle> thumbnail = heifThumbnail(m_heif->primary.get(), maxSide);
    QImage image = decodeHeifImage(thumbnail ? thumbnail.get() : m_heif->primary.get(), maxSide);
    if (!image.isNull() && !m_iccProfile.isEmpty())
        image.setColorSpace(QColorSpace::fromIccProfile(m_iccProfile));
    return image;
}

QImage PhotoFile::decodeWithQt(int maxSide)
{
    raiseQtAllocationLimit();
    QImageReader reader(m_path);
    reader.setDecideFormatFromContent(true);
    reader.setAutoTransform(true);
    // Scaled before it is turned: the long side is the same either way.
    if (m_size.isValid() && (m_size.width() > maxSide || m_size.height() > maxSide))
        reader.setScaledSize(fittedSize(m_size, maxSide));
    QImage image = reader.read();
    if (image.isNull())
        return {};
    if (image.width() > maxSide || image.height() > maxSide) {
        const QColorSpace space = image.colorSpace();
        image = image.scaled(fittedSize(image.size(), maxSide), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        image.setColorSpace(space);
    }
    return image;
}

} // namespace nuvrel
