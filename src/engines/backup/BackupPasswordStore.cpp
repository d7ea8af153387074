#include "engines/backup/BackupPasswordStore.h"

namespace nuvrel {

BackupPasswordStore::Query BackupPasswordStore::query(const QString& backupId) const
{
    // The service is the item's name in the keychain window, hence French like every name we create.
    return {QStringLiteral("Nuvrel : mot de passe de sauvegarde iPhone"), backupId};
}

std::optional<QString> BackupPasswordStore::load(const QString& backupId) const
{
    const Query item = query(backupId);
    return m_store.load(item.service, item.account);
}

bool BackupPasswordStore::save(const QString& password, const QString& backupId)
{
    const Query item = query(backupId);
    return m_store.save(item.service, item.account, password);
}

bool BackupPasswordStore::remove(const QString& backupId)
{
    const Query item = query(backupId);
    return m_store.remove(item.service, item.account);
}

} // namespace nuvrel
