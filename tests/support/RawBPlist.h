#pragma once

#include <QByteArray>
#include <QList>

namespace nuvrel::test {

/// Writes binary property lists byte by byte, so that tests can build the malformed ones no library
/// would write: wrong counts, dangling references, self-referencing containers, odd widths.
class RawBPlist final
{
public:
    /// The trailer fields; build() fills them from the objects unless a test overrides them.
    struct Trailer
    {
        int offsetSize = 1;
        int refSize = 1;
        quint64 objectCount = 0;
        quint64 top = 0;
        quint64 tablePosition = 0;
    };

    explicit RawBPlist(int refSize = 1)
        : m_refSize(refSize)
    {}

    /// Appends an object's bytes (marker included) and returns its index.
    int add(const QByteArray& object);
    /// Replaces object `index`, for references that must point forward or to themselves.
    void set(int index, const QByteArray& object) { m_objects[index] = object; }

    QByteArray integer(quint64 value, int widthLog2 = 3) const;
    QByteArray real(double value) const;
    QByteArray ascii(const QByteArray& text) const;
    QByteArray utf16(const QString& text) const;
    QByteArray data(const QByteArray& bytes) const;
    QByteArray uid(quint64 value, int bytes = 1) const;
    QByteArray array(const QList<quint64>& references) const;
    QByteArray dict(const QList<quint64>& keys, const QList<quint64>& values) const;
    /// A counted marker: the low nibble holds `count`, or 0xF and an integer count follows.
    QByteArray counted(quint8 kind, quint64 count) const;

    QByteArray build(quint64 top = 0) const;
    /// As build(), after `tweak` may change any trailer field.
    template <typename Tweak>
    QByteArray build(quint64 top, Tweak tweak) const
    {
        Trailer trailer = layout(top);
        tweak(trailer);
        return assemble(trailer);
    }

private:
    Trailer layout(quint64 top) const;
    QByteArray assemble(const Trailer& trailer) const;
    QByteArray reference(quint64 index) const;

    int m_refSize;
    QList<QByteArray> m_objects;
};

} // namespace nuvrel::test
