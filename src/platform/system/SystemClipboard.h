#pragma once

#include "platform/Clipboard.h"

namespace nuvrel {

/// The desktop's clipboard through QtGui. Needs a QGuiApplication.
class SystemClipboard final : public Clipboard
{
public:
    void copyText(const QString& text) override;
    void copyFiles(const QStringList& paths) override;
};

} // namespace nuvrel
