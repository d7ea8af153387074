#include "engines/backup/PhoneBackup.h"

namespace nuvrel {

BackupScan BackupScan::found(QList<PhoneBackup> backups)
{
    if (backups.isEmpty())
        return empty();
    return BackupScan(Status::Found, std::move(backups));
}

} // namespace nuvrel
