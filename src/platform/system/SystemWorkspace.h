#pragma once

#include "platform/Workspace.h"

namespace nuvrel {

/// Default applications through QDesktopServices; revealing through `open -R` on macOS and the
/// org.freedesktop.FileManager1 interface elsewhere, falling back to opening the containing folder.
class SystemWorkspace final : public Workspace
{
public:
    bool open(const QString& path) override;
    bool reveal(const QString& path) override;
    bool openUrl(const QUrl& url) override;
};

} // namespace nuvrel
