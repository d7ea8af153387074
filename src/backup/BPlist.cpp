#include "backup/BPlist.h"

#include <cstring>

namespace nuvrel {

namespace {

constexpr qint64 trailerSize = 32;

// UTF-16 with an unpaired surrogate cannot be decoded; such a string reads as empty.
bool isWellFormedUtf16(const char16_t* units, qsizetype count)
{
    for (qsizetype i = 0; i < count; ++i) {
        if (QChar::isHighSurrogate(units[i])) {
            if (i + 1 == count || !QChar::isLowSurrogate(units[i + 1]))
                return false;
            ++i;
        } else if (QChar::isLowSurrogate(units[i])) {
            return false;
        }
    }
    return true;
}

} // namespace

std::optional<BPlist> BPlist::fromData(QByteArray data)
{
    const qint64 size = data.size();
    if (size < minimumSize || !data.startsWith("bplist"))
        return std::nullopt;

    BPlist plist;
    plist.m_bytes = std::move(data);
    const qint64 trailer = size - trailerSize;
    const auto entrySize = static_cast<qint64>(plist.be(trailer + 6, 1));
    const auto refSize = static_cast<int>(plist.be(trailer + 7, 1));
    if (entrySize < 1 || entrySize > 8 || refSize < 1 || refSize > 8)
        return std::nullopt;
    const quint64 objects = plist.be(trailer + 8, 8);
    if (objects < 1 || objects >= maxObjects)
        return std::nullopt;
    const quint64 tablePosition = plist.be(trailer + 24, 8);
    const quint64 tableSize = objects * static_cast<quint64>(entrySize);
    if (tablePosition > static_cast<quint64>(size) || tableSize > static_cast<quint64>(size) - tablePosition)
        return std::nullopt;

    plist.m_refSize = refSize;
    plist.m_top = static_cast<qint64>(plist.be(trailer + 16, 8));
    plist.m_offsets.resize(static_cast<qsizetype>(objects));
    const auto table = static_cast<qint64>(tablePosition);
    for (qsizetype i = 0; i < plist.m_offsets.size(); ++i)
        plist.m_offsets[i] = plist.be(table + i * entrySize, entrySize);
    return plist;
}

quint64 BPlist::be(qint64 at, qint64 count) const
{
    if (at < 0 || count <= 0 || !fits(at, static_cast<quint64>(count)))
        return 0;
    const auto* bytes = reinterpret_cast<const quint8*>(m_bytes.constData()) + at;
    quint64 value = 0;
    for (qint64 i = 0; i < count; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

bool BPlist::fits(qint64 at, quint64 count) const
{
    const qint64 size = m_bytes.size();
    return at >= 0 && at <= size && count <= static_cast<quint64>(size - at);
}

std::optional<BPlist::Object> BPlist::locate(qint64 index, int depth) const
{
    if (index < 0 || index >= m_offsets.size() || depth > maxDepth)
        return std::nullopt;
    const quint64 offset = m_offsets[index];
    if (offset >= static_cast<quint64>(m_bytes.size()))
        return std::nullopt;

    const auto marker = static_cast<quint8>(m_bytes[static_cast<qsizetype>(offset)]);
    Object object;
    object.kind = marker >> 4;
    object.low = marker & 0x0F;
    object.payload = static_cast<qint64>(offset) + 1;
    switch (object.kind) {
    case Data:
    case Ascii:
    case Utf16:
    case ArrayKind:
    case DictKind:
        object.count = object.low;
        if (object.low == 0x0F) {
            // The count follows as an integer object whose marker's low nibble gives its width.
            if (object.payload < m_bytes.size()) {
                const qint64 width = qint64(1) << (static_cast<quint8>(m_bytes[object.payload]) & 0x0F);
                object.count = be(object.payload + 1, width);
                object.payload += 1 + width;
            }
        }
        break;
    default: break;
    }
    return object;
}

qint64 BPlist::integerValue(const Object& object) const
{
    const qint64 width = object.kind == Uid ? object.low + 1 : (object.low >= 3 ? 8 : qint64(1) << object.low);
    return static_cast<qint64>(be(object.payload, width));
}

std::optional<QByteArray> BPlist::dataValue(const Object& object) const
{
    if (!fits(object.payload, object.count))
        return std::nullopt;
    return m_bytes.sliced(object.payload, static_cast<qsizetype>(object.count));
}

std::optional<QString> BPlist::stringValue(const Object& object) const
{
    if (object.kind == Ascii) {
        if (!fits(object.payload, object.count))
            return std::nullopt;
        // Invalid UTF-8 is repaired with replacement characters rather than rejected.
        return QString::fromUtf8(m_bytes.constData() + object.payload, static_cast<qsizetype>(object.count));
    }
    if (object.count > static_cast<quint64>(m_bytes.size()) / 2 || !fits(object.payload, object.count * 2))
        return std::nullopt;
    const auto units = static_cast<qsizetype>(object.count);
    const auto* bytes = reinterpret_cast<const quint8*>(m_bytes.constData()) + object.payload;
    QString text(units, Qt::Uninitialized);
    auto* out = reinterpret_cast<char16_t*>(text.data());
    for (qsizetype i = 0; i < units; ++i)
        out[i] = static_cast<char16_t>((bytes[2 * i] << 8) | bytes[2 * i + 1]);
    if (!isWellFormedUtf16(out, units))
        return QString();
    return text;
}

bool BPlist::stringEquals(const Object& object, QStringView text) const
{
    if (object.kind == Ascii) {
        // Valid UTF-8 decodes one to one and a repaired byte never equals a key, so bytes can be compared.
        if (!fits(object.payload, object.count) || object.count != static_cast<quint64>(text.size()))
            return false;
        const char* bytes = m_bytes.constData() + object.payload;
        for (qsizetype i = 0; i < text.size(); ++i) {
            if (text[i].unicode() >= 0x80 || static_cast<quint8>(bytes[i]) != text[i].unicode())
                return false;
        }
        return true;
    }
    if (object.kind == Utf16) {
        const std::optional<QString> decoded = stringValue(object);
        return decoded && *decoded == text;
    }
    return false;
}

std::optional<qint64> BPlist::dictValue(const Object& dict, int depth, QStringView key) const
{
    if (!isDict(dict))
        return std::nullopt;
    const auto count = static_cast<qint64>(dict.count);
    std::optional<qint64> found;
    for (qint64 i = 0; i < count; ++i) {
        const std::optional<Object> keyObject = locate(reference(dict.payload + i * m_refSize), depth + 1);
        if (keyObject && stringEquals(*keyObject, key))
            found = reference(dict.payload + (count + i) * m_refSize);
    }
    return found;
}

PV BPlist::object(qint64 index, int depth, bool* complete) const
{
    qint64 budget = maxDecodedObjects;
    PV value = decode(index, depth, budget);
    if (complete)
        *complete = budget > 0;
    return value;
}

PV BPlist::decode(qint64 index, int depth, qint64& budget) const
{
    if (budget <= 0)
        return {};
    --budget;
    const std::optional<Object> found = locate(index, depth);
    if (!found)
        return {};
    const Object& object = *found;
    switch (object.kind) {
    case Simple:
        if (object.low == 0x8 || object.low == 0x9)
            return PV(object.low == 0x9);
        return {};
    case Integer: return PV(integerValue(object));
    case Real: {
        // Only eight-byte reals are decoded; any other width reads as 0.0, a value rather than null.
        double value = 0.0;
        if (object.low == 3 && fits(object.payload, 8)) {
            const quint64 bits = be(object.payload, 8);
            std::memcpy(&value, &bits, sizeof value);
        }
        return PV(value);
    }
    case Data: {
        std::optional<QByteArray> data = dataValue(object);
        return data ? PV(std::move(*data)) : PV();
    }
    case Ascii:
    case Utf16: {
        std::optional<QString> text = stringValue(object);
        return text ? PV(std::move(*text)) : PV();
    }
    case Uid: return PV(PV::Uid{integerValue(object)});
    case ArrayKind: {
        if (!isArray(object))
            return {};
        PV::Array array;
        const auto count = static_cast<qint64>(object.count);
        array.reserve(static_cast<size_t>(std::min<qint64>(count, budget)));
        for (qint64 i = 0; i < count; ++i)
            array.push_back(decode(reference(object.payload + i * m_refSize), depth + 1, budget));
        return PV(std::move(array));
    }
    case DictKind: {
        if (!isDict(object))
            return {};
        PV::Dict dict;
        const auto count = static_cast<qint64>(object.count);
        for (qint64 i = 0; i < count; ++i) {
            PV key = decode(reference(object.payload + i * m_refSize), depth + 1, budget);
            PV value = decode(reference(object.payload + (count + i) * m_refSize), depth + 1, budget);
            if (const QString* text = key.asString())
                dict.insert_or_assign(*text, std::move(value));
        }
        return PV(std::move(dict));
    }
    default: return {};
    }
}

} // namespace nuvrel
