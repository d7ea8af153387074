#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QImage>
#include <QSize>
#include <QString>

#include <memory>

namespace nuvrel {

/// The metadata a smaller copy of a photo carries over from its source, read and written with exiv2:
/// its colour profile (iPhones shoot in Display P3: without it, colours look dull), the Exif tags
/// without the maker's private notes, the TIFF tags that describe the picture (not its Orientation,
/// since the pixels are already upright, nor its layout in the file), the GPS tags only when asked,
/// and the new pixel size. Nothing else: no XMP, no IPTC, no thumbnail.
class PhotoMetadata final
{
public:
    PhotoMetadata();
    ~PhotoMetadata();
    PhotoMetadata(PhotoMetadata&&) noexcept;
    PhotoMetadata& operator=(PhotoMetadata&&) noexcept;
    Q_DISABLE_COPY(PhotoMetadata)

    /// The metadata of a JPEG, PNG, TIFF or WebP file. Metadata that cannot be read counts as none: a
    /// photo with damaged metadata is still a photo.
    static PhotoMetadata fromFile(const QString& path);
    /// A HEIF's: its Exif item (a TIFF structure) and its profile, which libheif reads.
    static PhotoMetadata fromHeif(const QByteArray& tiff, const QByteArray& iccProfile);

    bool hasExif() const;
    /// When the picture was taken (Exif DateTimeOriginal, at its recorded offset or else in local
    /// time); invalid when the photo does not say. Unlike a file's dates, it survives copies.
    QDateTime takenAt() const;
    QByteArray iccProfile() const;
    /// Keeps what a copy carries (the GPS tags only `withLocation`) and records its pixel size.
    PhotoMetadata carried(bool withLocation, QSize pixels) const;
    /// The Exif as a TIFF structure, for a HEIF; empty without Exif. A valid `pixels` is written as
    /// the pixel size.
    QByteArray tiff(QSize pixels = {}) const;

private:
    struct Data;
    std::unique_ptr<Data> d;
};

/// Photos encoded in memory, with their metadata, at a quality between 0 and 1.
namespace PhotoEncoder {

/// A baseline JPEG (4:2:0, libjpeg's quality = quality × 100) carrying `metadata`. Transparent pixels
/// are laid on white. Empty on failure.
QByteArray jpeg(const QImage& image, double quality, const PhotoMetadata& metadata);

/// A HEIC (HEVC through libheif's encoder) carrying `metadata`. Empty on failure.
QByteArray heic(const QImage& image, double quality, const PhotoMetadata& metadata);

} // namespace PhotoEncoder

} // namespace nuvrel
