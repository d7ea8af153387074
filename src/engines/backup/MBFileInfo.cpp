#include "engines/backup/MBFileInfo.h"

#include "formats/plist/BPlist.h"
#include "ground/Dates.h"

#include <array>

namespace nuvrel {

namespace {

constexpr QLatin1StringView sizeKey{"Size"};
constexpr QLatin1StringView protectionClassKey{"ProtectionClass"};
constexpr QLatin1StringView modeKey{"Mode"};
constexpr QLatin1StringView lastModifiedKey{"LastModified"};
constexpr QLatin1StringView encryptionKeyKey{"EncryptionKey"};
// The record's keys in one array, so that its dictionary is walked once for all of them.
enum RecordKey { Size, ProtectionClass, Mode, LastModified, EncryptionKey, RecordKeyCount };
constexpr std::array<QLatin1StringView, RecordKeyCount> recordKeys{sizeKey, protectionClassKey, modeKey,
                                                                   lastModifiedKey, encryptionKeyKey};

void setMtime(MBFileInfo& info, qint64 seconds)
{
    const QDateTime date = utcFromSecsSinceEpoch(seconds);
    if (date.isValid())
        info.mtime = date;
}

// --- The tree walk -------------------------------------------------------------------------------

// A uid pointing into "$objects" stands for that element; null when the uid is negative.
const PV* dereferenced(const PV& value, const PV::Array& objects)
{
    if (const PV::Uid* uid = value.asUid()) {
        if (uid->value < 0)
            return nullptr;
        if (static_cast<quint64>(uid->value) < objects.size())
            return &objects[static_cast<size_t>(uid->value)];
    }
    return &value;
}

std::optional<qint64> treeInteger(const PV& record, QLatin1StringView key, const PV::Array& objects)
{
    const PV* value = record.value(QString(key));
    if (!value)
        return std::nullopt;
    const PV* target = dereferenced(*value, objects);
    if (!target || !target->asInt())
        return std::nullopt;
    return *target->asInt();
}

// --- The direct walk -----------------------------------------------------------------------------

struct Archive
{
    const BPlist& plist;
    BPlist::Object objects;
    static constexpr int objectsDepth = 1;
    static constexpr int elementDepth = 2;

    // The value object `index` held by a dictionary seen at `depth`, with a uid replaced by its
    // "$objects" element; nothing when absent, unreadable, or a negative uid.
    std::optional<std::pair<BPlist::Object, int>> value(std::optional<qint64> index, int depth) const
    {
        if (!index)
            return std::nullopt;
        std::optional<BPlist::Object> object = plist.locate(*index, depth + 1);
        if (!object)
            return std::nullopt;
        if (object->kind != BPlist::Uid)
            return std::pair(*object, depth + 1);
        const qint64 uid = plist.integerValue(*object);
        if (uid < 0)
            return std::nullopt;
        if (static_cast<quint64>(uid) < objects.count)
            return element(uid);              // nothing when the element is unreadable
        return std::pair(*object, depth + 1); // a uid past the end stays a uid, which no field accepts
    }

    // Element `position` of "$objects", when that is a valid position and the element is readable.
    std::optional<std::pair<BPlist::Object, int>> element(qint64 position) const
    {
        if (position < 0 || static_cast<quint64>(position) >= objects.count)
            return std::nullopt;
        const qint64 index = plist.reference(objects.payload + position * plist.refSize());
        const std::optional<BPlist::Object> object = plist.locate(index, elementDepth);
        if (!object)
            return std::nullopt;
        return std::pair(*object, elementDepth);
    }

    std::optional<qint64> integer(std::optional<qint64> index) const
    {
        const auto found = value(index, elementDepth);
        if (!found || found->first.kind != BPlist::Integer)
            return std::nullopt;
        return plist.integerValue(found->first);
    }
};

} // namespace

std::optional<MBFileInfo> MBFileInfo::fromArchive(const PV& archive)
{
    const PV* objectsValue = archive.value(QStringLiteral("$objects"));
    const PV* topValue = archive.value(QStringLiteral("$top"));
    if (!objectsValue || !objectsValue->asArray() || !topValue || !topValue->asDict())
        return std::nullopt;
    const PV::Array& objects = *objectsValue->asArray();
    const PV* root = topValue->value(QStringLiteral("root"));
    if (!root || !root->asUid() || root->asUid()->value < 0 ||
        static_cast<quint64>(root->asUid()->value) >= objects.size())
        return std::nullopt;
    const PV& record = objects[static_cast<size_t>(root->asUid()->value)];
    if (!record.asDict())
        return std::nullopt;

    MBFileInfo info;
    info.size = treeInteger(record, sizeKey, objects).value_or(0);
    info.protectionClass = static_cast<int>(treeInteger(record, protectionClassKey, objects).value_or(0));
    info.mode = static_cast<int>(treeInteger(record, modeKey, objects).value_or(0));
    if (const std::optional<qint64> seconds = treeInteger(record, lastModifiedKey, objects))
        setMtime(info, *seconds);
    if (const PV* key = record.value(QString(encryptionKeyKey))) {
        if (const PV* target = dereferenced(*key, objects)) {
            if (const QByteArray* data = target->asData())
                info.encKey = *data;
            else if (const PV* wrapped = target->value(QStringLiteral("NS.data")); wrapped && wrapped->asData())
                info.encKey = *wrapped->asData();
        }
    }
    return info;
}

std::optional<MBFileInfo> MBFileInfo::parse(const QByteArray& data)
{
    const std::optional<BPlist> plist = BPlist::fromData(data);
    if (!plist)
        return std::nullopt;
    const std::optional<BPlist::Object> top = plist->locate(plist->top(), 0);
    if (!top || !BPlist::isDict(*top))
        return std::nullopt;

    const std::optional<qint64> objectsIndex = plist->dictValue(*top, 0, QLatin1StringView("$objects"));
    const std::optional<qint64> topIndex = plist->dictValue(*top, 0, QLatin1StringView("$top"));
    if (!objectsIndex || !topIndex)
        return std::nullopt;
    const std::optional<BPlist::Object> objects = plist->locate(*objectsIndex, Archive::objectsDepth);
    const std::optional<BPlist::Object> topDict = plist->locate(*topIndex, Archive::objectsDepth);
    if (!objects || !BPlist::isArray(*objects) || !topDict || !BPlist::isDict(*topDict))
        return std::nullopt;

    const std::optional<qint64> rootIndex =
        plist->dictValue(*topDict, Archive::objectsDepth, QLatin1StringView("root"));
    if (!rootIndex)
        return std::nullopt;
    const std::optional<BPlist::Object> root = plist->locate(*rootIndex, Archive::elementDepth);
    if (!root || root->kind != BPlist::Uid)
        return std::nullopt;
    const Archive archive{*plist, *objects};
    const auto record = archive.element(plist->integerValue(*root));
    if (!record || !BPlist::isDict(record->first))
        return std::nullopt;

    std::array<std::optional<qint64>, RecordKeyCount> fields;
    plist->dictValues(record->first, Archive::elementDepth, recordKeys, fields);
    MBFileInfo info;
    info.size = archive.integer(fields[Size]).value_or(0);
    info.protectionClass = static_cast<int>(archive.integer(fields[ProtectionClass]).value_or(0));
    info.mode = static_cast<int>(archive.integer(fields[Mode]).value_or(0));
    if (const std::optional<qint64> seconds = archive.integer(fields[LastModified]))
        setMtime(info, *seconds);
    if (const auto key = archive.value(fields[EncryptionKey], Archive::elementDepth)) {
        if (key->first.kind == BPlist::Data) {
            info.encKey = plist->dataValue(key->first);
        } else if (BPlist::isDict(key->first)) {
            if (const std::optional<qint64> wrapped =
                    plist->dictValue(key->first, key->second, QLatin1StringView("NS.data"))) {
                const std::optional<BPlist::Object> object = plist->locate(*wrapped, key->second + 1);
                if (object && object->kind == BPlist::Data)
                    info.encKey = plist->dataValue(*object);
            }
        }
    }
    return info;
}

} // namespace nuvrel
