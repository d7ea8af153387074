#pragma once

#include <QString>
#include <QStringList>

namespace nuvrel {

/// The system's clipboard, for handing text or files to another application by pasting.
class Clipboard
{
public:
    virtual ~Clipboard() = default;

    virtual void copyText(const QString& text) = 0;
    /// Files, as a file manager copies them: pasted into a chat or a folder, they arrive as files.
    virtual void copyFiles(const QStringList& paths) = 0;
};

} // namespace nuvrel
