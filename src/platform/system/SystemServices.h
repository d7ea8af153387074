#pragma once

#include "platform/Services.h"

namespace nuvrel {

class OwnerCheck;
class SecretStore;
class Workspace;

/// The keychain of this system: the macOS Keychain, or the Secret Service (GNOME Keyring, KWallet).
SecretStore& systemSecretStore();
/// The file manager and default applications of this system. Needs a QGuiApplication.
Workspace& systemWorkspace();
/// The check that the person at the keyboard owns the account (polkit on Linux).
OwnerCheck& systemOwnerCheck();
/// The same for a program in a terminal: the password is asked there when no desktop agent serves the
/// session.
OwnerCheck& terminalOwnerCheck();
/// Every service of this system, for the application's pages.
Services systemServices();

} // namespace nuvrel
