#pragma once

#include "engines/backup/BackupReadError.h"
#include "engines/backup/PhoneBackup.h"
#include "ground/DirectoryListing.h"

#include <QLatin1StringView>
#include <QString>

#include <optional>

namespace nuvrel {

/// Finds the phone backups of this computer's user. Reads only; never writes in a backup folder.
class BackupLocator final
{
public:
    static constexpr QLatin1StringView settingsKey{"backupRoot"};
    static constexpr QLatin1StringView environmentVariable{"NUVREL_BACKUP_ROOT"};

    BackupLocator() = delete;

    /// Where backups are: on macOS the folder the sync service writes to,
    /// ~/Library/Application Support/MobileSync/Backup; elsewhere ~/.local/share/MobileSync/Backup.
    static QString defaultRoot();
    /// The folder to scan: NUVREL_BACKUP_ROOT when set, else the "backupRoot" setting, else defaultRoot().
    static QString root();

    /// Scans root(). Synchronous and file-system only: call it off the GUI thread.
    static BackupScan scan();
    static BackupScan scan(const QString& root, const DirectoryLister& lister = listDirectory);

    /// The facts of one candidate folder, or nothing when it holds no readable Info.plist dictionary.
    static std::optional<PhoneBackup> read(const QString& folder);
    /// Whether `folder` looks like a backup at all: it holds one of the files every backup has.
    static bool looksLikeBackup(const QString& folder);
    /// Why read(folder) gave nothing: Info.plist is missing, refused or damaged.
    static BackupReadError readFailure(const QString& folder);

    /// A property list of a backup that must hold a dictionary; throws BackupReadError about `subject`
    /// when the file is missing, refused or damaged.
    static QVariantMap readPlist(const QString& path, BackupReadError::Subject subject);

    /// Whether a listing failure means the system refused permission (as opposed to a missing folder).
    static bool isPermissionRefusal(int error);
};

} // namespace nuvrel
