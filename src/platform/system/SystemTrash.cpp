#include "platform/system/SystemTrash.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

namespace nuvrel {

namespace {

#ifndef Q_OS_MACOS
// Qt 6.4 moves a file to a wrong folder, and says it succeeded, when the home trash does not exist
// yet (a new account, a desktop that never used it): the trash's folders are made first, owner-only
// as desktops make them.
void prepareHomeTrash()
{
    const QString trash =
        QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Trash");
    for (const char* part : {"/files", "/info"}) {
        const QString folder = trash + QLatin1StringView(part);
        if (QDir().mkpath(folder))
            QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    }
    QFile::setPermissions(trash, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

// A trashed item lies in the "files" folder of a trash, with its record in "info" beside it.
bool isInATrash(const QString& trashed)
{
    const QFileInfo item(trashed);
    const QDir files = item.dir();
    if (files.dirName() != u"files")
        return false;
    const QString info = QDir(QFileInfo(files.path()).path())
                             .filePath(QStringLiteral("info/") + item.fileName() + QStringLiteral(".trashinfo"));
    return QFileInfo::exists(info);
}
#endif

} // namespace

std::optional<QString> SystemTrash::moveToTrash(const QString& path)
{
    if (!QFileInfo::exists(path) && !QFileInfo(path).isSymLink())
        return std::nullopt;
#ifndef Q_OS_MACOS
    prepareHomeTrash();
#endif
    QString trashed;
    if (!QFile::moveToTrash(path, &trashed))
        return std::nullopt;
#ifndef Q_OS_MACOS
    // Said to succeed, it must have: the item is in a trash and gone from its place. Otherwise it is put
    // back, so that nothing is lost in a folder nobody would look in.
    if (!isInATrash(trashed) || QFileInfo::exists(path)) {
        if (!QFileInfo::exists(path) && QFileInfo::exists(trashed))
            QFile::rename(trashed, path);
        return std::nullopt;
    }
#endif
    return trashed;
}

} // namespace nuvrel
