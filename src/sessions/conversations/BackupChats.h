#pragma once

#include "engines/backup/BackupCatalogue.h"

#include <QString>

namespace nuvrel {

class IPhoneBackupReader;

/// The conversation stores an iPhone backup may hold.
enum class BackupChatStore { Messages, WhatsApp };

/// The entry of `store` in the backup, if it holds one.
std::optional<BackupEntry> chatStoreEntry(const BackupCatalogue& catalogue, BackupChatStore store);

/// Copies `store` out of the backup into `folder` (emptied first), with the journal files that hold its
/// newest messages, and returns the database's path. Throws BackupReadError; nothing when the backup
/// holds no such store.
std::optional<QString> extractChatStore(const IPhoneBackupReader& reader, const BackupCatalogue& catalogue,
                                        BackupChatStore store, const QString& folder);

} // namespace nuvrel
