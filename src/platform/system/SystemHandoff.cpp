#include "platform/system/SystemHandoff.h"

#include "platform/system/Launcher.h"

#include "ground/FreeName.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

namespace nuvrel {

namespace {

const QString flatpakTelegram = QStringLiteral("org.telegram.desktop");
const QString snapTelegram = QStringLiteral("/snap/bin/telegram-desktop");
const QUrl whatsAppWeb(QStringLiteral("https://web.whatsapp.com/"));

QStringList sendPathArguments(const QStringList& files)
{
    // Telegram Desktop takes every argument after -sendpath as a file.
    return QStringList{QStringLiteral("-sendpath")} + files;
}

// A desktop entry's command line, its field codes (%U, %f…) taken out: nothing is opened with it.
QStringList commandOf(const QString& exec)
{
    QStringList words = QProcess::splitCommand(exec);
    static const QRegularExpression fieldCode(QStringLiteral("^%[fFuUdDnNickvm]$"));
    words.removeIf([](const QString& word) { return fieldCode.match(word).hasMatch(); });
    for (QString& word : words)
        word.replace(QStringLiteral("%%"), QStringLiteral("%"));
    return words;
}

} // namespace

SystemHandoff::SystemHandoff(Launcher& launcher, QString sandboxFolder, Desktop desktop)
    : m_launcher(launcher)
    , m_sandboxFolder(std::move(sandboxFolder))
    , m_desktop(desktop)
{}

Handoff::Outcome SystemHandoff::send(Channel channel, const QStringList& files)
{
    if (m_desktop == Desktop::MacOS)
        return sendOnMac(channel, files);
    switch (channel) {
    case Channel::Telegram: return sendToTelegram(files);
    case Channel::WhatsApp: return openWhatsApp();
    case Channel::Mail: return composeMail(files);
    case Channel::Messages: return {Outcome::Kind::NotAvailable, {}};
    }
    return {Outcome::Kind::NotAvailable, {}};
}

QString SystemHandoff::sandboxFolder() const
{
    if (!m_sandboxFolder.isEmpty())
        return m_sandboxFolder;
    // The Flatpak may read the downloads folder, the Snap any visible folder of the home.
    return QDir(QStandardPaths::writableLocation(QStandardPaths::DownloadLocation)).filePath(QStringLiteral("Nuvrel"));
}

QStringList SystemHandoff::copiesForSandbox(const QStringList& files) const
{
    const QDir folder(sandboxFolder());
    if (!folder.mkpath(QStringLiteral(".")))
        return {};
    QStringList copies;
    for (const QString& file : files) {
        const QString target = freeName(folder.filePath(QFileInfo(file).fileName()), FreeNameStyle::Hyphenated);
        // QFile::copy writes under a temporary name and renames when complete.
        if (!QFile::copy(file, target))
            return {};
        copies.append(target);
    }
    return copies;
}

Handoff::Outcome SystemHandoff::sendToTelegram(const QStringList& files)
{
    const QString native = m_launcher.findProgram(QStringLiteral("telegram-desktop"));
    if (!native.isEmpty() && !native.startsWith(QLatin1StringView("/snap/")))
        return {m_launcher.start(native, sendPathArguments(files)) ? Outcome::Kind::ShareWindow : Outcome::Kind::Failed,
                {}};

    const QString flatpak = m_launcher.findProgram(QStringLiteral("flatpak"));
    const bool hasFlatpak =
        !flatpak.isEmpty() && m_launcher.output(flatpak, {QStringLiteral("info"), flatpakTelegram}).has_value();
    const QString snap =
        !native.isEmpty() ? native : (m_launcher.isExecutable(snapTelegram) ? snapTelegram : QString());
    if (!hasFlatpak && snap.isEmpty())
        return {Outcome::Kind::NotAvailable, {}};

    const QStringList copies = copiesForSandbox(files);
    if (copies.isEmpty())
        return {Outcome::Kind::Failed, {}};
    const bool started =
        hasFlatpak
            ? m_launcher.start(flatpak, QStringList{QStringLiteral("run"), flatpakTelegram} + sendPathArguments(copies))
            : m_launcher.start(snap, sendPathArguments(copies));
    if (!started)
        return {Outcome::Kind::Failed, {}};
    return {Outcome::Kind::SharedThroughFolder, sandboxFolder()};
}

Handoff::Outcome SystemHandoff::openWhatsApp()
{
    // An unofficial application (WhatsApp for Linux, ZapZap…) or a browser's web app, by its menu entry.
    for (const Launcher::DesktopEntry& entry : m_launcher.desktopEntries()) {
        if (!entry.name.contains(QLatin1StringView("WhatsApp"), Qt::CaseInsensitive))
            continue;
        const QStringList command = commandOf(entry.exec);
        if (!command.isEmpty() && m_launcher.start(command.constFirst(), command.mid(1)))
            return {Outcome::Kind::AppOpened, {}};
    }
    return {m_launcher.openUrl(whatsAppWeb) ? Outcome::Kind::WebOpened : Outcome::Kind::Failed, {}};
}

Handoff::Outcome SystemHandoff::composeMail(const QStringList& files)
{
    const QString email = m_launcher.findProgram(QStringLiteral("xdg-email"));
    const QString mime = m_launcher.findProgram(QStringLiteral("xdg-mime"));
    if (email.isEmpty() || mime.isEmpty())
        return {Outcome::Kind::NotAvailable, {}};
    const std::optional<QString> handler = m_launcher.output(
        mime, {QStringLiteral("query"), QStringLiteral("default"), QStringLiteral("x-scheme-handler/mailto")});
    if (!handler || handler->trimmed().isEmpty())
        return {Outcome::Kind::NotAvailable, {}};
    QStringList arguments;
    for (const QString& file : files)
        arguments << QStringLiteral("--attach") << file;
    return {m_launcher.start(email, arguments) ? Outcome::Kind::ShareWindow : Outcome::Kind::Failed, {}};
}

Handoff::Outcome SystemHandoff::sendOnMac(Channel channel, const QStringList& files)
{
    // `open` waits only for the application to be asked, and fails when none has that identifier.
    const QString open = QStringLiteral("/usr/bin/open");
    const auto openApplication = [&](const QStringList& identifiers) {
        for (const QString& identifier : identifiers) {
            if (m_launcher.output(open, {QStringLiteral("-b"), identifier}))
                return Outcome{Outcome::Kind::AppOpened, {}};
        }
        return Outcome{Outcome::Kind::NotAvailable, {}};
    };
    const auto openFilesWith = [&](const QString& application) {
        return m_launcher.output(open, QStringList{QStringLiteral("-a"), application} + files)
                   ? Outcome{Outcome::Kind::ShareWindow, {}}
                   : Outcome{Outcome::Kind::NotAvailable, {}};
    };
    switch (channel) {
    case Channel::WhatsApp:
        return openApplication({QStringLiteral("net.whatsapp.WhatsApp"), QStringLiteral("desktop.WhatsApp")});
    case Channel::Telegram:
        return openApplication({QStringLiteral("ru.keepcoder.Telegram"), QStringLiteral("org.telegram.desktop")});
    case Channel::Mail: return openFilesWith(QStringLiteral("Mail"));
    case Channel::Messages: return openFilesWith(QStringLiteral("Messages"));
    }
    return {Outcome::Kind::NotAvailable, {}};
}

} // namespace nuvrel
