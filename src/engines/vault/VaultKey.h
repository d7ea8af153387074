#pragma once

#include <QByteArray>
#include <QString>

namespace nuvrel {

class SecretStore;

/// The vault's key: 256 random bits in the user's keyring, never derived from a password. Made the
/// first time the vault opens, and never again while encrypted files exist: a keyring that cannot
/// answer must not lead to a second key that would orphan the files sealed under the first.
namespace VaultKey {

inline constexpr char service[] = "Nuvrel : cle du coffre";
inline constexpr char account[] = "coffre-v1";

struct Result
{
    enum class Status {
        Loaded,
        Created,
        Missing,      ///< no key, or not a key, while encrypted files exist
        CannotCreate, ///< the keyring refused to keep a new key
    };
    Status status;
    QByteArray key; ///< 32 bytes when loaded or created
};

/// The key for the vault in `folder`, under the rules above. Blocks on the keyring: call it off the
/// GUI thread.
Result obtain(SecretStore& secrets, const QString& folder);

} // namespace VaultKey

} // namespace nuvrel
