#include "platform/system/SystemServices.h"

#include "platform/system/ImobilePhoneWatcher.h"
#include "platform/system/KeychainSecretStore.h"
#include "platform/system/Launcher.h"
#ifdef Q_OS_MACOS
#include "platform/system/AirDropShare.h"
#include "platform/system/LocalAuthOwnerCheck.h"
#else
#include "platform/system/KdeConnectShare.h"
#include "platform/system/PolkitOwnerCheck.h"
#endif
#include "platform/system/SystemAppearance.h"
#include "platform/system/SystemClipboard.h"
#include "platform/system/SystemHandoff.h"
#include "platform/system/SystemSessionLock.h"
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

OwnerCheck& systemOwnerCheck()
{
#ifdef Q_OS_MACOS
    static LocalAuthOwnerCheck check;
#else
    static PolkitOwnerCheck check;
#endif
    return check;
}

OwnerCheck& terminalOwnerCheck()
{
#ifdef Q_OS_MACOS
    return systemOwnerCheck();
#else
    static PolkitOwnerCheck check = [] {
        PolkitOwnerCheck terminal;
        terminal.setTerminalAgent(true);
        return terminal;
    }();
    return check;
#endif
}

Services systemServices()
{
    static SystemTrash trash;
    static SystemClipboard clipboard;
    static SystemVolumes volumes;
    static SystemAppearance appearance;
    static ProcessLauncher launcher;
    static SystemHandoff handoff(launcher);
    static SystemSessionLock sessionLock;
#ifdef Q_OS_MACOS
    static AirDropShare nearbyShare;
#else
    static KdeConnectShare nearbyShare(launcher);
#endif
    static ImobilePhoneWatcher phones;
    return Services{systemSecretStore(), systemWorkspace(), trash,       clipboard, volumes, appearance, handoff,
                    systemOwnerCheck(),  sessionLock,       nearbyShare, phones};
}

} // namespace nuvrel
