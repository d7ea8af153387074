#pragma once

#include "platform/SecretStore.h"

#include <QString>

#include <optional>

namespace nuvrel {

/// Backup passwords the user asked to keep, one keychain item per backup.
class BackupPasswordStore final
{
public:
    /// The keychain item of one backup.
    struct Query
    {
        QString service;
        QString account;
    };

    explicit BackupPasswordStore(SecretStore& store)
        : m_store(store)
    {}

    Query query(const QString& backupId) const;
    std::optional<QString> load(const QString& backupId) const;
    /// Replaces whatever was kept for this backup. False when the keychain refused.
    bool save(const QString& password, const QString& backupId);
    bool remove(const QString& backupId);

private:
    SecretStore& m_store;
};

} // namespace nuvrel
