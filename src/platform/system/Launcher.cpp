#include "platform/system/Launcher.h"

#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>

namespace nuvrel {

namespace {

constexpr int outputTimeoutMs = 5000;
constexpr qint64 maxDesktopFileBytes = qint64(256) * 1024;

} // namespace

QString ProcessLauncher::findProgram(const QString& name)
{
    return QStandardPaths::findExecutable(name);
}

bool ProcessLauncher::isExecutable(const QString& path)
{
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

bool ProcessLauncher::start(const QString& program, const QStringList& arguments)
{
    return QProcess::startDetached(program, arguments);
}

std::optional<QString> ProcessLauncher::output(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForFinished(outputTimeoutMs)) {
        process.kill();
        process.waitForFinished();
        return std::nullopt;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return std::nullopt;
    return QString::fromUtf8(process.readAllStandardOutput());
}

std::optional<Launcher::DesktopEntry> ProcessLauncher::readDesktopEntry(const QString& path)
{
    QFile file(path);
    if (file.size() > maxDesktopFileBytes || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    DesktopEntry entry;
    entry.id = QFileInfo(path).fileName();
    bool inEntry = false;
    bool application = false;
    bool hidden = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inEntry = line == QLatin1StringView("[Desktop Entry]");
            continue;
        }
        if (!inEntry)
            continue;
        const qsizetype equals = line.indexOf(u'=');
        if (equals <= 0)
            continue;
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        if (key == QLatin1StringView("Name"))
            entry.name = value;
        else if (key == QLatin1StringView("Exec"))
            entry.exec = value;
        else if (key == QLatin1StringView("Type"))
            application = value == QLatin1StringView("Application");
        else if (key == QLatin1StringView("NoDisplay") || key == QLatin1StringView("Hidden"))
            hidden = hidden || value == QLatin1StringView("true");
    }
    if (!application || hidden || entry.name.isEmpty() || entry.exec.isEmpty())
        return std::nullopt;
    return entry;
}

QList<Launcher::DesktopEntry> ProcessLauncher::desktopEntries()
{
    // The user's entries come first and hide the system's of the same name.
    QList<DesktopEntry> entries;
    QSet<QString> seen;
    for (const QString& folder : QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation)) {
        const QFileInfoList files = QDir(folder).entryInfoList({QStringLiteral("*.desktop")}, QDir::Files, QDir::Name);
        for (const QFileInfo& file : files) {
            if (seen.contains(file.fileName()))
                continue;
            seen.insert(file.fileName());
            if (std::optional<DesktopEntry> entry = readDesktopEntry(file.absoluteFilePath()))
                entries.append(*entry);
        }
    }
    return entries;
}

bool ProcessLauncher::openUrl(const QUrl& url)
{
    return QDesktopServices::openUrl(url);
}

} // namespace nuvrel
