#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

namespace nuvrel {

/// What handing files to another application asks of the system: programs on the PATH, the
/// desktop's application entries, starting a program, the default browser. SystemHandoff speaks
/// only through it, so that tests record each command line instead of starting applications.
class Launcher
{
public:
    /// An application entry of the desktop (a .desktop file).
    struct DesktopEntry
    {
        QString id;   ///< its file name, "com.github.eneshecan.WhatsAppForLinux.desktop"
        QString name; ///< as menus show it
        QString exec; ///< its command line, field codes (%U…) included
    };

    virtual ~Launcher() = default;

    /// The program's path on the PATH, or empty.
    virtual QString findProgram(const QString& name) = 0;
    /// Whether a file exists and may be run (a sandbox's launcher outside the PATH).
    virtual bool isExecutable(const QString& path) = 0;
    /// Starts a program that outlives us; false when it could not start.
    virtual bool start(const QString& program, const QStringList& arguments) = 0;
    /// Runs a program to its end (a few seconds at most): its standard output when it exits with 0.
    virtual std::optional<QString> output(const QString& program, const QStringList& arguments) = 0;
    /// The application entries installed, for this user and the system, visible ones only.
    virtual QList<DesktopEntry> desktopEntries() = 0;
    /// Opens a web address in the default browser.
    virtual bool openUrl(const QUrl& url) = 0;
};

/// The real one: QProcess, the XDG data folders' applications, the desktop's browser.
class ProcessLauncher final : public Launcher
{
public:
    QString findProgram(const QString& name) override;
    bool isExecutable(const QString& path) override;
    bool start(const QString& program, const QStringList& arguments) override;
    std::optional<QString> output(const QString& program, const QStringList& arguments) override;
    QList<DesktopEntry> desktopEntries() override;
    bool openUrl(const QUrl& url) override;

    /// Reads one .desktop file; nothing when it is no visible application.
    static std::optional<DesktopEntry> readDesktopEntry(const QString& path);
};

} // namespace nuvrel
