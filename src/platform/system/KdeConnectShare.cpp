#include "platform/system/KdeConnectShare.h"

#include "platform/system/Launcher.h"

#include <QFileInfo>

#include <algorithm>

namespace nuvrel {

namespace {

const QString program = QStringLiteral("kdeconnect-cli");

} // namespace

KdeConnectShare::KdeConnectShare(Launcher& launcher)
    : m_launcher(launcher)
{}

NearbyShare::Availability KdeConnectShare::availability()
{
    const QString command = m_launcher.findProgram(program);
    if (command.isEmpty())
        return {Availability::Kind::NotInstalled, {}};
    // "-a": paired and reachable now. One phone per line: its id, a space, its name.
    const std::optional<QString> listed =
        m_launcher.output(command, {QStringLiteral("-a"), QStringLiteral("--id-name-only")});
    QList<Device> devices;
    for (const QString& line : listed.value_or(QString()).split(u'\n', Qt::SkipEmptyParts)) {
        const QString id = line.section(u' ', 0, 0).trimmed();
        const QString name = line.section(u' ', 1).trimmed();
        // An id is what the daemon made: letters, digits and '_'; anything else is not a device line.
        const bool plausible =
            !id.isEmpty() && !id.startsWith(u'-') &&
            std::all_of(id.cbegin(), id.cend(), [](QChar c) { return c.isLetterOrNumber() || c == u'_' || c == u'-'; });
        if (plausible)
            devices.append({id, name.isEmpty() ? id : name});
    }
    if (devices.isEmpty())
        return {Availability::Kind::NoDevice, {}};
    return {Availability::Kind::Ready, devices};
}

NearbyShare::Outcome KdeConnectShare::send(const QStringList& files, const QString& device)
{
    const QString command = m_launcher.findProgram(program);
    if (command.isEmpty() || device.isEmpty())
        return Outcome::NotAvailable;
    for (const QString& file : files) {
        // An absolute path: the daemon, not this process, opens it.
        const QStringList arguments{QStringLiteral("--share"), QFileInfo(file).absoluteFilePath(), QStringLiteral("-d"),
                                    device};
        if (!m_launcher.output(command, arguments))
            return Outcome::Failed;
    }
    return Outcome::Sent;
}

} // namespace nuvrel
