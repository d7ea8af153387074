#pragma once

namespace nuvrel {

class Appearance;
class Clipboard;
class Handoff;
class NearbyShare;
class OwnerCheck;
class PhoneWatcher;
class SecretStore;
class SessionLock;
class Trash;
class Volumes;
class Workspace;

/// The operating system's services, as the pages and commands reach them: one object handed down,
/// so that a page needing one more service does not grow every constructor on the way. The
/// application and the CLI pass the system's (platform/system/SystemServices.h), tests pass fakes
/// (tests/support/FakeServices.h).
struct Services
{
    SecretStore& secrets;
    Workspace& workspace;
    Trash& trash;
    Clipboard& clipboard;
    Volumes& volumes;
    Appearance& appearance;
    Handoff& handoff;
    OwnerCheck& ownerCheck;
    SessionLock& sessionLock;
    NearbyShare& nearbyShare;
    PhoneWatcher& phones;
};

} // namespace nuvrel
