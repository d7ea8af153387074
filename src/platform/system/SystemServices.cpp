#include "platform/system/SystemServices.h"

#include "platform/system/KeychainSecretStore.h"
#include "platform/system/Launcher.h"
#include "platform/system/SystemAppearance.h"
#include "platform/system/SystemClipboard.h"
#include "platform/system/SystemHandoff.h"
#include "platform/system/SystemTrash.h"
#include "platform/system/SystemVolumes.h"
#include "platform/system/SystemWorkspace.h"

namespace nuvrel {

SecretStore& systemSecretStore()
{
    // QtKeychain speaks to the Keychain on macOS and to the Secret Service on Linux.
    static KeychainSecretStore store;
    return store;
}

Workspace& systemWorkspace()
{
    static SystemWorkspace workspace;
    return workspace;
}

Services systemServices()
{
    static SystemTrash trash;
    static SystemClipboard clipboard;
    static SystemVolumes volumes;
    static SystemAppearance appearance;
    static ProcessLauncher launcher;
    static SystemHandoff handoff(launcher);
    return Services{systemSecretStore(), systemWorkspace(), trash, clipboard, volumes, appearance, handoff};
}

} // namespace nuvrel
