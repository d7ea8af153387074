#include "support/RawBPlist.h"

#include <QString>

#include <cstring>

namespace nuvrel::test {

namespace {
QByteArray bigEndian(quint64 value, int bytes)
{
    QByteArray out(bytes, '\0');
    for (int i = bytes - 1; i >= 0; --i) {
        out[i] = static_cast<char>(value & 0xFF);
        value >>= 8;
    }
    return out;
}
} // namespace

int RawBPlist::add(const QByteArray& object)
{
    m_objects.append(object);
    return static_cast<int>(m_objects.size() - 1);
}

QByteArray RawBPlist::reference(quint64 index) const
{
    return bigEndian(index, m_refSize);
}

QByteArray RawBPlist::integer(quint64 value, int widthLog2) const
{
    return char(0x10 | widthLog2) + bigEndian(value, 1 << widthLog2);
}

QByteArray RawBPlist::real(double value) const
{
    quint64 bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return char(0x23) + bigEndian(bits, 8);
}

QByteArray RawBPlist::counted(quint8 kind, quint64 count) const
{
    if (count < 15)
        return QByteArray(1, static_cast<char>((kind << 4) | count));
    QByteArray out(1, static_cast<char>((kind << 4) | 0x0F));
    if (count <= 0xFF)
        return out + integer(count, 0);
    if (count <= 0xFFFF)
        return out + integer(count, 1);
    if (count <= 0xFFFFFFFF)
        return out + integer(count, 2);
    return out + integer(count, 3);
}

QByteArray RawBPlist::ascii(const QByteArray& text) const
{
    return counted(0x5, static_cast<quint64>(text.size())) + text;
}

QByteArray RawBPlist::utf16(const QString& text) const
{
    QByteArray out = counted(0x6, static_cast<quint64>(text.size()));
    for (QChar c : text)
        out += bigEndian(c.unicode(), 2);
    return out;
}

QByteArray RawBPlist::data(const QByteArray& bytes) const
{
    return counted(0x4, static_cast<quint64>(bytes.size())) + bytes;
}

QByteArray RawBPlist::uid(quint64 value, int bytes) const
{
    return char(0x80 | (bytes - 1)) + bigEndian(value, bytes);
}

QByteArray RawBPlist::array(const QList<quint64>& references) const
{
    QByteArray out = counted(0xA, static_cast<quint64>(references.size()));
    for (quint64 ref : references)
        out += reference(ref);
    return out;
}

QByteArray RawBPlist::dict(const QList<quint64>& keys, const QList<quint64>& values) const
{
    QByteArray out = counted(0xD, static_cast<quint64>(keys.size()));
    for (quint64 ref : keys)
        out += reference(ref);
    for (quint64 ref : values)
        out += reference(ref);
    return out;
}

QByteArray RawBPlist::build(quint64 top) const
{
    return assemble(layout(top));
}

RawBPlist::Trailer RawBPlist::layout(quint64 top) const
{
    Trailer trailer;
    trailer.refSize = m_refSize;
    trailer.objectCount = static_cast<quint64>(m_objects.size());
    trailer.top = top;
    qint64 position = 8;
    for (const QByteArray& object : m_objects)
        position += object.size();
    trailer.tablePosition = static_cast<quint64>(position);
    trailer.offsetSize = position > 0xFFFF ? 4 : (position > 0xFF ? 2 : 1);
    return trailer;
}

QByteArray RawBPlist::assemble(const Trailer& trailer) const
{
    QByteArray out("bplist00");
    QList<quint64> offsets;
    for (const QByteArray& object : m_objects) {
        offsets.append(static_cast<quint64>(out.size()));
        out += object;
    }
    for (quint64 offset : offsets)
        out += bigEndian(offset, std::clamp(trailer.offsetSize, 1, 8));
    out += QByteArray(6, '\0');
    out += char(trailer.offsetSize);
    out += char(trailer.refSize);
    out += bigEndian(trailer.objectCount, 8);
    out += bigEndian(trailer.top, 8);
    out += bigEndian(trailer.tablePosition, 8);
    return out;
}

} // namespace nuvrel::test
