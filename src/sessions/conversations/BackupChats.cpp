#include "sessions/conversations/BackupChats.h"

#include "engines/backup/IPhoneBackupReader.h"

#include <QDir>

namespace nuvrel {

std::optional<BackupEntry> chatStoreEntry(const BackupCatalogue& catalogue, BackupChatStore store)
{
    return store == BackupChatStore::WhatsApp ? catalogue.whatsAppDatabase : catalogue.messagesDatabase;
}

std::optional<QString> extractChatStore(const IPhoneBackupReader& reader, const BackupCatalogue& catalogue,
                                        BackupChatStore store, const QString& folder)
{
    const std::optional<BackupEntry> entry = chatStoreEntry(catalogue, store);
    if (!entry)
        return std::nullopt;
    QDir(folder).removeRecursively();
    const QString database = reader.extract(*entry, QDir(folder).filePath(entry->fileName()));
    // The journal files hold the newest messages: they travel with the database.
    const QList<BackupEntry> siblings = catalogue.byDomain.value(entry->domain);
    for (const QString& suffix : {QStringLiteral("-wal"), QStringLiteral("-shm")}) {
        for (const BackupEntry& sibling : siblings) {
            if (sibling.path == entry->path + suffix) {
                reader.extract(sibling, database + suffix);
                break;
            }
        }
    }
    return database;
}

} // namespace nuvrel
