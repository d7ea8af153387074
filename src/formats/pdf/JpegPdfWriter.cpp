#include "formats/pdf/JpegPdfWriter.h"

#include <QIODevice>

namespace nuvrel {

namespace {

constexpr int catalogObject = 1;
constexpr int pagesObject = 2;

QByteArray number(qreal value)
{
    return QByteArray::number(value, 'f', 2);
}

} // namespace

JpegPdfWriter::JpegPdfWriter(QIODevice* device)
    : m_device(device)
{
    m_offsets.resize(pagesObject); // the catalog and the page tree come last, under the first numbers
    // The binary comment tells transfer programs that the file is not text.
    write(QByteArrayLiteral("%PDF-1.4\n%\xE2\xE3\xCF\xD3\n"));
}

int JpegPdfWriter::newObject()
{
    m_offsets.append(-1);
    return int(m_offsets.size());
}

bool JpegPdfWriter::write(const QByteArray& bytes)
{
    if (m_failed)
        return false;
    if (m_device->write(bytes) != bytes.size()) {
        m_failed = true;
        return false;
    }
    m_written += bytes.size();
    return true;
}

bool JpegPdfWriter::beginObject(int object)
{
    m_offsets[object - 1] = m_written;
    return write(QByteArray::number(object) + " 0 obj\n");
}

bool JpegPdfWriter::addPage(const QByteArray& jpeg, QSize pixels, int components, QSizeF pageSize)
{
    if (jpeg.isEmpty() || pixels.isEmpty() || pageSize.isEmpty() || (components != 1 && components != 3))
        return false;
    const int image = newObject();
    beginObject(image);
    write("<< /Type /XObject /Subtype /Image /Width " + QByteArray::number(pixels.width()) + " /Height " +
          QByteArray::number(pixels.height()) + " /ColorSpace " + (components == 1 ? "/DeviceGray" : "/DeviceRGB") +
          " /BitsPerComponent 8 /Filter /DCTDecode /Length " + QByteArray::number(jpeg.size()) + " >>\nstream\n");
    write(jpeg);
    write("\nendstream\nendobj\n");

    const QByteArray width = number(pageSize.width());
    const QByteArray height = number(pageSize.height());
    const QByteArray drawing = "q " + width + " 0 0 " + height + " 0 0 cm /Im0 Do Q\n";
    const int contents = newObject();
    beginObject(contents);
    write("<< /Length " + QByteArray::number(drawing.size()) + " >>\nstream\n" + drawing + "endstream\nendobj\n");

    const int page = newObject();
    beginObject(page);
    write("<< /Type /Page /Parent " + QByteArray::number(pagesObject) + " 0 R /MediaBox [0 0 " + width + ' ' + height +
          "] /Resources << /XObject << /Im0 " + QByteArray::number(image) + " 0 R >> >> /Contents " +
          QByteArray::number(contents) + " 0 R >>\nendobj\n");
    m_pages.append(page);
    return !m_failed;
}

bool JpegPdfWriter::finish()
{
    if (m_pages.isEmpty())
        return false;
    QByteArray kids;
    for (int page : std::as_const(m_pages))
        kids += QByteArray::number(page) + " 0 R ";
    beginObject(pagesObject);
    write("<< /Type /Pages /Kids [" + kids.trimmed() + "] /Count " + QByteArray::number(m_pages.size()) +
          " >>\nendobj\n");
    beginObject(catalogObject);
    write("<< /Type /Catalog /Pages " + QByteArray::number(pagesObject) + " 0 R >>\nendobj\n");

    // Each entry is exactly 20 bytes, its end of line included.
    const qint64 table = m_written;
    QByteArray xref = "xref\n0 " + QByteArray::number(m_offsets.size() + 1) + "\n0000000000 65535 f \n";
    for (qint64 offset : std::as_const(m_offsets))
        xref += QByteArray::number(offset).rightJustified(10, '0') + " 00000 n \n";
    write(xref);
    write("trailer\n<< /Size " + QByteArray::number(m_offsets.size() + 1) + " /Root " +
          QByteArray::number(catalogObject) + " 0 R >>\nstartxref\n" + QByteArray::number(table) + "\n%%EOF\n");
    return !m_failed;
}

} // namespace nuvrel
