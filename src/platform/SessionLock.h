#pragma once

#include <functional>

namespace nuvrel {

/// The desktop's screen lock: what was opened for the user's eyes alone closes when they walk away.
class SessionLock
{
public:
    virtual ~SessionLock() = default;

    /// Calls `locked` on the GUI thread each time the session locks; one watcher at a time.
    virtual void watch(std::function<void()> locked) = 0;
};

} // namespace nuvrel
