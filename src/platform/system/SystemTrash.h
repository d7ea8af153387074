#pragma once

#include "platform/Trash.h"

namespace nuvrel {

/// The desktop's trash through Qt: the freedesktop.org trash on Linux, the Finder's on macOS.
class SystemTrash final : public Trash
{
public:
    std::optional<QString> moveToTrash(const QString& path) override;
};

} // namespace nuvrel
