#pragma once

#include <functional>

namespace nuvrel {

/// The desktop's choice of a light or a dark look, which the window follows.
class Appearance
{
public:
    enum class Scheme { NoPreference, Light, Dark };

    virtual ~Appearance() = default;

    virtual Scheme scheme() const = 0;
    /// Calls `changed` on the GUI thread each time the desktop's choice changes; one watcher at a time.
    virtual void watch(std::function<void()> changed) = 0;
};

} // namespace nuvrel
