#pragma once

#include "formats/plist/PV.h"

#include <QByteArray>
#include <QVarLengthArray>

#include <optional>
#include <span>

namespace nuvrel {

/// A reader of the binary property-list container ("bplist00": objects, offset table, trailer).
///
/// Every bad length, offset or reference gives a null value for the object concerned and never an error,
/// so one damaged object does not stop the decoding of its neighbours.
class BPlist final
{
public:
    static constexpr qsizetype minimumSize = 41;
    static constexpr quint64 maxObjects = 5'000'000;
    static constexpr quint64 maxArrayCount = 999'999;
    static constexpr quint64 maxDictCount = 1'000'000; ///< exclusive
    static constexpr int maxDepth = 11;
    /// Objects one object() call may decode: four per input byte, at most this many. A tree without
    /// shared containers decodes at most one object per reference byte, so sound lists never reach it,
    /// while shared references could otherwise blow a small input up into an astronomic tree (an array
    /// listing itself twelve levels deep). Past the budget, objects read as null.
    static constexpr qint64 maxDecodedObjects = qint64(1) << 20;

    /// The object kinds this reader tells apart, from the high nibble of an object's marker byte.
    enum Kind : quint8 {
        Simple = 0x0,
        Integer = 0x1,
        Real = 0x2,
        Data = 0x4,
        Ascii = 0x5,
        Utf16 = 0x6,
        Uid = 0x8,
        ArrayKind = 0xA,
        DictKind = 0xD
    };

    /// Where one object lies: its marker split in two, its payload position and, for counted kinds, the count.
    struct Object
    {
        quint8 kind = 0;
        quint8 low = 0;
        qint64 payload = 0;
        quint64 count = 0;
    };

    /// The reader, or nothing when the header, trailer or offset table is unsound.
    static std::optional<BPlist> fromData(QByteArray data);

    const QByteArray& bytes() const { return m_bytes; }
    qsizetype objectCount() const { return m_offsets.size(); }
    quint64 offset(qsizetype index) const { return m_offsets[index]; }
    int refSize() const { return m_refSize; }
    qint64 top() const { return m_top; }

    /// Decodes object `index` and everything it holds; `depth` is its nesting level, the top being 0.
    /// `complete`, when given, tells whether the whole tree fitted in maxDecodedObjects.
    PV object(qint64 index, int depth, bool* complete = nullptr) const;

    /// `count` bytes at `at` as a big-endian unsigned number (its low 64 bits); 0 when out of range.
    quint64 be(qint64 at, qint64 count) const
    {
        if (count <= 0 || !fits(at, static_cast<quint64>(count)))
            return 0;
        const quint8* bytes = m_data + at;
        quint64 value = 0;
        for (qint64 i = 0; i < count; ++i)
            value = (value << 8) | bytes[i];
        return value;
    }

    // The primitives below let a caller walk the container without building the tree; they follow
    // the same rules as object(), so both ways give the same answers.

    /// The object at `index` seen from nesting `depth`, or nothing where object() would give null
    /// for any kind (index out of range, too deep, offset outside the data).
    std::optional<Object> locate(qint64 index, int depth) const;
    /// The object index stored in the reference at byte position `at` (0 when it runs past the end).
    qint64 reference(qint64 at) const { return static_cast<qint64>(be(at, m_refSize)); }
    /// The index of the value stored under `key` in a dictionary object seen at `depth`, the later
    /// one when the key repeats; nothing when absent or when `dict` is no readable dictionary.
    /// Keys are ASCII, as every key of a keyed archive is.
    std::optional<qint64> dictValue(const Object& dict, int depth, QLatin1StringView key) const;
    /// dictValue for several keys in one pass over the dictionary; `found[i]` answers `keys[i]`.
    void dictValues(const Object& dict, int depth, std::span<const QLatin1StringView> keys,
                    std::span<std::optional<qint64>> found) const;
    /// Whether the object is a readable array or dictionary (their counts are bounded).
    static bool isArray(const Object& object) { return object.kind == ArrayKind && object.count <= maxArrayCount; }
    static bool isDict(const Object& object) { return object.kind == DictKind && object.count < maxDictCount; }
    /// The signed value of an integer or uid object.
    qint64 integerValue(const Object& object) const;
    /// The bytes of a data object, or nothing when they run past the end.
    std::optional<QByteArray> dataValue(const Object& object) const;
    /// The text of a string object, or nothing when it runs past the end.
    std::optional<QString> stringValue(const Object& object) const;

private:
    BPlist() = default;
    PV decode(qint64 index, int depth, qint64& budget) const;
    bool fits(qint64 at, quint64 count) const
    {
        return at >= 0 && at <= m_size && count <= static_cast<quint64>(m_size - at);
    }
    bool stringEquals(const Object& object, QLatin1StringView text) const;

    QByteArray m_bytes;
    // m_bytes is never modified, so its buffer stays put; reading through a plain pointer keeps the
    // hot paths free of QByteArray's checks.
    const quint8* m_data = nullptr;
    qint64 m_size = 0;
    QVarLengthArray<quint64, 64> m_offsets;
    int m_refSize = 1;
    qint64 m_top = 0;
};

} // namespace nuvrel
