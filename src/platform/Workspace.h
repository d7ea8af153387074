#pragma once

#include <QString>
#include <QUrl>

namespace nuvrel {

/// The desktop's file manager and default applications.
class Workspace
{
public:
    virtual ~Workspace() = default;

    /// Opens a file with the application the system associates with it. False when nothing could open it.
    virtual bool open(const QString& path) = 0;
    /// Shows a file or folder selected in the file manager (the Finder on macOS).
    virtual bool reveal(const QString& path) = 0;
    /// Opens an address: a web page, or a settings page of the system.
    virtual bool openUrl(const QUrl& url) = 0;
};

} // namespace nuvrel
