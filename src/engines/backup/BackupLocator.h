#pragma once

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

    /// The folder the sync service writes to: ~/Library/Application Support/MobileSync/Backup.
    static QString defaultRoot();
    /// The folder to scan: NUVREL_BACKUP_ROOT when set, else the "backupRoot" setting, else defaultRoot().
    static QString root();

    /// Scans root(). Synchronous and file-system only: call it off the GUI thread.
    static BackupScan scan();
    static BackupScan scan(const QString& root, const DirectoryLister& lister = listDirectory);

    /// The facts of one candidate folder, or nothing when it holds no readable Info.plist dictionary.
    static std::optional<PhoneBackup> read(const QString& folder);

    /// Whether a listing failure means the system refused permission (as opposed to a missing folder).
    static bool isPermissionRefusal(int error);
};

} // namespace nuvrel
