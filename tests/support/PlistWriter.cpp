#include "support/PlistWriter.h"

#include <QDateTime>

#include <plist/plist.h>

#include <cstdlib>

namespace nuvrel::test {

namespace {

constexpr qint64 appleEpoch = 978307200;

plist_t toNode(const QVariant& value)
{
    if (value.canConvert<PlistUid>() && value.userType() == qMetaTypeId<PlistUid>())
        return plist_new_uid(value.value<PlistUid>().value);
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        plist_t dict = plist_new_dict();
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            plist_dict_set_item(dict, it.key().toUtf8().constData(), toNode(it.value()));
        return dict;
    }
    case QMetaType::QVariantList: {
        plist_t array = plist_new_array();
        for (const QVariant& item : value.toList())
            plist_array_append_item(array, toNode(item));
        return array;
    }
    case QMetaType::QString: return plist_new_string(value.toString().toUtf8().constData());
    case QMetaType::Bool: return plist_new_bool(value.toBool() ? 1 : 0);
    case QMetaType::Double: return plist_new_real(value.toDouble());
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        return plist_new_data(bytes.constData(), static_cast<uint64_t>(bytes.size()));
    }
    case QMetaType::QDateTime: {
        const qint64 msecs = value.toDateTime().toMSecsSinceEpoch() - appleEpoch * 1000;
        return plist_new_date(static_cast<int32_t>(msecs / 1000), static_cast<int32_t>((msecs % 1000) * 1000));
    }
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong: return plist_new_uint(static_cast<uint64_t>(value.toLongLong()));
    default: qFatal("writePlist: unsupported value type %s", value.typeName());
    }
}

} // namespace

QByteArray writePlist(const QVariant& value, PlistFormat format)
{
    plist_t root = toNode(value);
    char* bytes = nullptr;
    uint32_t length = 0;
    if (format == PlistFormat::Binary)
        plist_to_bin(root, &bytes, &length);
    else
        plist_to_xml(root, &bytes, &length);
    plist_free(root);
    QByteArray result(bytes, static_cast<qsizetype>(length));
    std::free(bytes);
    return result;
}

} // namespace nuvrel::test
