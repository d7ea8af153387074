#pragma once

#include "platform/Services.h"

namespace nuvrel {

class SecretStore;
class Workspace;

/// The keychain of this system: the macOS Keychain, or the Secret Service (GNOME Keyring, KWallet).
SecretStore& systemSecretStore();
/// The file manager and default applications of this system. Needs a QGuiApplication.
Workspace& systemWorkspace();
/// Every service of this system, for the application's pages.
Services systemServices();

} // namespace nuvrel
