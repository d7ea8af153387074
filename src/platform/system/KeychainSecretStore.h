#pragma once

#include "platform/SecretStore.h"

namespace nuvrel {

/// SecretStore over QtKeychain. Never falls back to an unencrypted file when the store is missing:
/// a password that cannot be kept safely is not kept.
class KeychainSecretStore final : public SecretStore
{
public:
    std::optional<QString> load(const QString& service, const QString& account) override;
    bool save(const QString& service, const QString& account, const QString& secret) override;
    std::optional<QByteArray> loadBytes(const QString& service, const QString& account) override;
    bool saveBytes(const QString& service, const QString& account, const QByteArray& secret) override;
    bool remove(const QString& service, const QString& account) override;
};

} // namespace nuvrel
