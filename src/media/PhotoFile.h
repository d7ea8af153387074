#pragma once

#include <QByteArray>
#include <QImage>
#include <QSize>
#include <QString>

#include <memory>

namespace nuvrel {

/// A photo file opened for decoding at a chosen size: JPEG, PNG, TIFF, WebP and GIF through Qt's
/// readers, HEIC and HEIF through libheif. Opening reads the header only, so a picture that declares
/// more than `maxPixels` is refused before a byte of it is decoded (a PNG of a few kilobytes can
/// declare 50,000 × 50,000 pixels). Not thread-safe; one per thread.
class PhotoFile final
{
public:
    enum class Status {
        Ok,
        Unreadable, ///< missing, not a picture, or a format we do not decode
        TooLarge,   ///< declares more than maxPixels
    };
    enum class Format { Jpeg, Heif, Png, Tiff, WebP, Gif };

    static constexpr qint64 maxPixels = 200'000'000;

    /// Whether the photo route reads files with this (lower-case) extension.
    static bool isDecodable(const QString& suffix);

    explicit PhotoFile(const QString& path);
    ~PhotoFile();
    Q_DISABLE_COPY_MOVE(PhotoFile)

    Status status() const { return m_status; }
    Format format() const { return m_format; }
    /// The stored pixel size, before the orientation is applied; invalid when the header does not say.
    QSize storedSize() const { return m_size; }
    /// A HEIF's colour profile (iPhones shoot in Display P3); empty for sRGB, when none is given, and
    /// for the other formats, whose profile exiv2 reads with the rest of their metadata.
    QByteArray iccProfile() const { return m_iccProfile; }
    /// A HEIF's Exif, from its TIFF header on; empty for the other formats.
    QByteArray heifExif() const { return m_heifExif; }

    /// The picture turned upright, its long side at most `maxSide` and never enlarged; a JPEG is
    /// decoded straight at a fraction of its size, a HEIF from its stored thumbnail when that is large
    /// enough. Null when decoding fails.
    QImage decode(int maxSide);

private:
    struct Heif;

    void openHeif();
    QImage decodeHeif(int maxSide);
    QImage decodeWithQt(int maxSide);

    QString m_path;
    Status m_status = Status::Unreadable;
    Format m_format = Format::Jpeg;
    QSize m_size;
    QByteArray m_iccProfile;
    QByteArray m_heifExif;
    std::unique_ptr<Heif> m_heif;
};

} // namespace nuvrel
