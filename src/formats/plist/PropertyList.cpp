#include "formats/plist/PropertyList.h"

#include "ground/Dates.h"
#include "ground/RegularFile.h"

#include <QFile>

#include <plist/plist.h>

#include <memory>

namespace nuvrel::PropertyList {

namespace {

struct PlistDeleter
{
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

struct FreeDeleter
{
    void operator()(char* text) const { std::free(text); }
};
using CString = std::unique_ptr<char, FreeDeleter>;

// Keeps a malicious file's nesting from exhausting the stack on conversion.
constexpr int maxDepth = 512;

QVariant convert(plist_t node, int depth)
{
    if (!node || depth > maxDepth)
        return {};
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return QVariant(value != 0);
    }
    case PLIST_UINT: {
        // libplist keeps every integer as 64 raw bits; property lists store them signed.
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return QVariant(static_cast<qint64>(value));
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return QVariant(value);
    }
    case PLIST_STRING: {
        char* raw = nullptr;
        plist_get_string_val(node, &raw);
        const CString text(raw);
        return QVariant(QString::fromUtf8(text.get()));
    }
    case PLIST_DATA: {
        char* raw = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &raw, &length);
        const CString bytes(raw);
        return QVariant(QByteArray(bytes.get(), static_cast<qsizetype>(length)));
    }
    case PLIST_DATE: {
        int32_t seconds = 0;
        int32_t micros = 0;
        plist_get_date_val(node, &seconds, &micros);
        const qint64 msecs = (appleEpochOffsetSeconds + seconds) * 1000 + micros / 1000;
        return QVariant(utcFromMSecsSinceEpoch(msecs));
    }
    case PLIST_UID: {
        uint64_t value = 0;
        plist_get_uid_val(node, &value);
        return QVariant(static_cast<quint64>(value));
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t count = plist_array_get_size(node);
        list.reserve(count);
        for (uint32_t i = 0; i < count; ++i)
            list.append(convert(plist_array_get_item(node, i), depth + 1));
        return list;
    }
    case PLIST_DICT: {
        QVariantMap map;
        plist_dict_iter iter = nullptr;
        plist_dict_new_iter(node, &iter);
        for (;;) {
            char* rawKey = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, iter, &rawKey, &value);
            const CString key(rawKey);
            if (!key)
                break;
            map.insert(QString::fromUtf8(key.get()), convert(value, depth + 1));
        }
        std::free(iter);
        return map;
    }
    default: return {};
    }
}

} // namespace

QVariant fromData(const QByteArray& data)
{
    if (data.isEmpty() || data.size() > maxFileSize)
        return {};
    plist_t root = nullptr;
    const auto length = static_cast<uint32_t>(data.size());
#if NUVREL_LIBPLIST_MAJOR > 2 || (NUVREL_LIBPLIST_MAJOR == 2 && NUVREL_LIBPLIST_MINOR >= 3)
    plist_from_memory(data.constData(), length, &root, nullptr);
#else
    plist_from_memory(data.constData(), length, &root);
#endif
    const PlistPtr owner(root);
    return convert(root, 0);
}

QVariant readFile(const QString& path)
{
    QFile file;
    if (!openRegularFile(file, path, {maxFileSize}))
        return {};
    return fromData(file.read(maxFileSize + 1));
}

} // namespace nuvrel::PropertyList
