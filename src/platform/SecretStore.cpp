#include "platform/SecretStore.h"

#include "platform/KeychainSecretStore.h"

namespace nuvrel {

SecretStore& systemSecretStore()
{
    // QtKeychain speaks to the Keychain on macOS and to the Secret Service on Linux.
    static KeychainSecretStore store;
    return store;
}

} // namespace nuvrel
