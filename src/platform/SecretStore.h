#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace nuvrel {

/// The system's store of secrets: the macOS Keychain, or the Secret Service (GNOME Keyring, KWallet)
/// on Linux. Calls block until the store answers: make them off the GUI thread.
class SecretStore
{
public:
    virtual ~SecretStore() = default;

    /// The secret kept under service and account; nothing when there is none or the store is unreachable.
    virtual std::optional<QString> load(const QString& service, const QString& account) = 0;
    /// Keeps the secret, replacing any kept under the same service and account. False on failure.
    virtual bool save(const QString& service, const QString& account, const QString& secret) = 0;
    /// The same for secrets that are bytes, not text (a key), kept as they are.
    virtual std::optional<QByteArray> loadBytes(const QString& service, const QString& account) = 0;
    virtual bool saveBytes(const QString& service, const QString& account, const QByteArray& secret) = 0;
    /// Forgets the secret; true when none is kept any more.
    virtual bool remove(const QString& service, const QString& account) = 0;
};

} // namespace nuvrel
