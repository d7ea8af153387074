#include "formats/plist/BPlist.h"

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
    plist.m_data = reinterpret_cast<const quint8*>(plist.m_bytes.constData());
    plist.m_size = size;
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

std::optional<BPlist::Object> BPlist::locate(qint64 index, int depth) const
{
    if (index < 0 || index >= m_offsets.size() || depth > maxDepth)
        return std::nullopt;
    const quint64 offset = m_offsets[index];
    if (offset >= static_cast<quint64>(m_size))
        return std::nullopt;

    const quint8 marker = m_data[offset];
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
            if (object.payload < m_size) {
                const qint64 width = qint64(1) << (m_data[object.payload] & 0x0F);
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
        return QString::fromUtf8(reinterpret_cast<const char*>(m_data) + object.payload,
                                 static_cast<qsizetype>(object.count));
    }
    if (object.count > static_cast<quint64>(m_size) / 2 || !fits(object.payload, object.count * 2))
        return std::nullopt;
    const auto units = static_cast<qsizetype>(object.count);
    const quint8* bytes = m_data + object.payload;
    QString text(units, Qt::Uninitialized);
    auto* out = reinterpret_cast<char16_t*>(text.data());
    for (qsizetype i = 0; i < units; ++i)
        out[i] = static_cast<char16_t>((bytes[2 * i] << 8) | bytes[2 * i + 1]);
    if (!isWellFormedUtf16(out, units))
        return QString();
    return text;
}

bool BPlist::stringEquals(const Object& object, QLatin1StringView text) const
{
    if (object.count != static_cast<quint64>(text.size()))
        return false;
    if (object.kind == Ascii) {
        // Valid UTF-8 decodes one to one and a repaired byte never equals an ASCII key, so bytes compare.
        return fits(object.payload, object.count) &&
               std::memcmp(m_data + object.payload, text.data(), static_cast<size_t>(text.size())) == 0;
    }
    if (object.kind == Utf16) {
        if (!fits(object.payload, object.count * 2))
            return false;
        const quint8* units = m_data + object.payload;
        for (qsizetype i = 0; i < text.size(); ++i) {
            if (units[2 * i] != 0 || units[2 * i + 1] != static_cast<quint8>(text[i].unicode()))
                return false;
        }
        return true;
    }
    return false;
}

std::optional<qint64> BPlist::dictValue(const Object& dict, int depth, QLatin1StringView key) const
{
    std::optional<qint64> found;
    dictValues(dict, depth, {&key, 1}, {&found, 1});
    return found;
}

void BPlist::dictValues(const Object& dict, int depth, std::span<const QLatin1StringView> keys,
                        std::span<std::optional<qint64>> found) const
{
    std::fill(found.begin(), found.end(), std::nullopt);
    if (!isDict(dict))
        return;
    const auto count = static_cast<qint64>(dict.count);
    for (qint64 i = 0; i < count; ++i) {
        const std::optional<Object> keyObject = locate(reference(dict.payload + i * m_refSize), depth + 1);
        if (!keyObject)
            continue;
        for (size_t k = 0; k < keys.size(); ++k) {
            // Every key is looked at to the end: a repeated key takes the later value.
            if (stringEquals(*keyObject, keys[k])) {
                found[k] = reference(dict.payload + (count + i) * m_refSize);
                break;
            }
        }
    }
}

PV BPlist::object(qint64 index, int depth, bool* complete) const
{
    qint64 budget = std::min(maxDecodedObjects, 4 * qint64(m_bytes.size()) + 1024);
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
