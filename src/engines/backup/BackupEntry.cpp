#include "engines/backup/BackupEntry.h"

#include <QStringList>

namespace nuvrel {

MBFileInfo BackupEntry::meta() const
{
    if (preMeta)
        return preMeta->value;
    if (blob) {
        if (std::optional<MBFileInfo> parsed = MBFileInfo::parse(*blob))
            return *parsed;
    }
    return {};
}

QString BackupEntry::fileName() const
{
    const qsizetype slash = path.lastIndexOf(u'/');
    return slash < 0 ? path : path.mid(slash + 1);
}

QString BackupEntry::safeRelativePath() const
{
    QStringList parts;
    for (QStringView part : QStringView(path).split(u'/')) {
        if (part.isEmpty() || part == u"." || part == u"..")
            continue;
        parts.append(part.toString());
    }
    return parts.join(u'/');
}

bool BackupEntry::isValidFileID(QStringView fileID)
{
    if (fileID.size() != 40)
        return false;
    return std::all_of(fileID.begin(), fileID.end(),
                       [](QChar c) { return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f'); });
}

} // namespace nuvrel
