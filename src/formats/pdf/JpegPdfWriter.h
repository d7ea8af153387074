#pragma once

#include <QByteArray>
#include <QList>
#include <QSize>
#include <QSizeF>

class QIODevice;

namespace nuvrel {

/// A PDF whose every page is one JPEG picture, embedded byte for byte (DCTDecode). QPdfWriter would
/// decode each picture and encode it again, losing the size that was chosen for it. Pages are written
/// as they come, so a long document never waits in memory.
///
///     JpegPdfWriter pdf(&file);
///     pdf.addPage(jpegBytes, {1240, 1754}, 3, {595, 842});
///     pdf.finish();
class JpegPdfWriter final
{
public:
    explicit JpegPdfWriter(QIODevice* device);

    /// A page of `pageSize` points filled by the picture, `pixels` wide and high with `components`
    /// colour components (1 grey, 3 RGB). False when the device refuses the bytes.
    bool addPage(const QByteArray& jpeg, QSize pixels, int components, QSizeF pageSize);
    /// Writes the page tree and the cross-reference table. False when the device refuses the bytes, or
    /// when no page was added.
    bool finish();

private:
    int newObject();
    bool write(const QByteArray& bytes);
    bool beginObject(int object);

    QIODevice* m_device;
    qint64 m_written = 0;
    bool m_failed = false;
    QList<qint64> m_offsets; ///< of object n at n - 1
    QList<int> m_pages;
};

} // namespace nuvrel
