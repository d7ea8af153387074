#include "engines/backup/BackupLocator.h"

#include "formats/plist/PropertyList.h"
#include "ground/RegularFile.h"

#include <QDir>
#include <QSettings>
#include <QStandardPaths>

#include <algorithm>
#include <cerrno>

namespace nuvrel {

namespace {

// Files every backup folder holds, whatever its age.
constexpr const char* backupFiles[] = {"Info.plist", "Manifest.plist", "Manifest.db", "Manifest.mbdb", "Status.plist"};

QString textOr(const QVariantMap& info, QLatin1StringView key, const QString& fallback)
{
    const QVariant value = info.value(key);
    return value.typeId() == QMetaType::QString ? value.toString() : fallback;
}

} // namespace

QString BackupLocator::defaultRoot()
{
#ifdef Q_OS_MACOS
    return QDir::homePath() + QLatin1StringView("/Library/Application Support/MobileSync/Backup");
#else
    // No system service writes backups here: the same layout under the data folder gives
    // "idevicebackup2 backup" and backups copied from a Mac one place to go.
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QLatin1StringView("/MobileSync/Backup");
#endif
}

QString BackupLocator::root()
{
    QString fromEnvironment = qEnvironmentVariable(environmentVariable.data());
    if (!fromEnvironment.isEmpty())
        return fromEnvironment;
    QString fromSettings = QSettings().value(settingsKey).toString();
    if (!fromSettings.isEmpty())
        return fromSettings;
    return defaultRoot();
}

BackupScan BackupLocator::scan()
{
    return scan(root());
}

bool BackupLocator::isPermissionRefusal(int error)
{
    return error == EACCES || error == EPERM;
}

BackupScan BackupLocator::scan(const QString& root, const DirectoryLister& lister)
{
    const DirectoryListing listing = lister(root);
    if (listing.error != 0)
        return isPermissionRefusal(listing.error) ? BackupScan::needsFullDiskAccess() : BackupScan::empty();

    QList<PhoneBackup> backups;
    const QDir rootDir(root);
    for (const QString& name : listing.names) {
        if (name.startsWith(u'.'))
            continue;
        if (std::optional<PhoneBackup> backup = read(rootDir.filePath(name)))
            backups.append(std::move(*backup));
    }
    // Newest first; undated backups last; equal dates keep the listing order.
    std::stable_sort(backups.begin(), backups.end(), [](const PhoneBackup& a, const PhoneBackup& b) {
        if (!b.lastBackup)
            return a.lastBackup.has_value();
        return a.lastBackup && *a.lastBackup > *b.lastBackup;
    });
    return BackupScan::found(std::move(backups));
}

std::optional<PhoneBackup> BackupLocator::read(const QString& folder)
{
    const QDir dir(folder);
    const QVariant info = PropertyList::readFile(dir.filePath(QStringLiteral("Info.plist")));
    if (info.typeId() != QMetaType::QVariantMap)
        return std::nullopt;
    const QVariantMap infoMap = info.toMap();

    PhoneBackup backup;
    backup.id = dir.dirName();
    backup.url = dir.absolutePath();
    backup.deviceName = textOr(infoMap, QLatin1StringView("Device Name"), QStringLiteral("iPhone"));
    backup.productType = textOr(infoMap, QLatin1StringView("Product Type"), {});
    backup.iosVersion = textOr(infoMap, QLatin1StringView("Product Version"), {});
    const QVariant date = infoMap.value(QStringLiteral("Last Backup Date"));
    if (date.typeId() == QMetaType::QDateTime && date.toDateTime().isValid())
        backup.lastBackup = date.toDateTime();

    const QVariant manifest = PropertyList::readFile(dir.filePath(QStringLiteral("Manifest.plist")));
    const QVariant encrypted = manifest.toMap().value(QStringLiteral("IsEncrypted"));
    backup.isEncrypted = encrypted.typeId() == QMetaType::Bool && encrypted.toBool();
    return backup;
}

bool BackupLocator::looksLikeBackup(const QString& folder)
{
    const QDir dir(folder);
    return std::any_of(std::begin(backupFiles), std::end(backupFiles),
                       [&dir](const char* name) { return QFileInfo::exists(dir.filePath(QLatin1StringView(name))); });
}

BackupReadError BackupLocator::readFailure(const QString& folder)
{
    try {
        readPlist(QDir(folder).filePath(QStringLiteral("Info.plist")), BackupReadError::Subject::InfoPlist);
    } catch (const BackupReadError& error) {
        return error;
    }
    return BackupReadError::damaged(BackupReadError::Subject::InfoPlist); // it changed meanwhile
}

QVariantMap BackupLocator::readPlist(const QString& path, BackupReadError::Subject subject)
{
    const QVariant value = PropertyList::readFile(path);
    if (value.typeId() == QMetaType::QVariantMap)
        return value.toMap();
    // Not a dictionary: because the system would not give the file, or because it holds something else.
    QFile file;
    if (!openRegularFile(file, path, {PropertyList::maxFileSize}) && errno != EFBIG)
        throw BackupReadError::openFailed(subject, errno);
    throw BackupReadError::damaged(subject);
}

} // namespace nuvrel
