#pragma once

#include "platform/system/Launcher.h"

#include <QMap>

namespace nuvrel::test {

/// A system as the test describes it: which programs exist, what they print, which entries the
/// menus hold; every start is recorded instead of run.
class RecordingLauncher final : public Launcher
{
public:
    QString findProgram(const QString& name) override { return programs.value(name); }
    bool isExecutable(const QString& path) override { return executables.contains(path); }
    bool start(const QString& program, const QStringList& arguments) override
    {
        started.append(QStringList{program} + arguments);
        return !refuseToStart;
    }
    std::optional<QString> output(const QString& program, const QStringList& arguments) override
    {
        const QString line = (QStringList{program} + arguments).join(u' ');
        if (!outputs.contains(line))
            return std::nullopt;
        return outputs.value(line);
    }
    QList<DesktopEntry> desktopEntries() override { return entries; }
    bool openUrl(const QUrl& url) override
    {
        urls.append(url);
        return !refuseToStart;
    }

    QMap<QString, QString> programs;
    QStringList executables;
    QMap<QString, QString> outputs; ///< by command line
    QList<DesktopEntry> entries;
    bool refuseToStart = false;

    QList<QStringList> started;
    QList<QUrl> urls;
};

} // namespace nuvrel::test
