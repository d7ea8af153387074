#include "cli/BackupsCommand.h"
#include "cli/ChatsCommand.h"
#include "cli/CommandLine.h"
#include "cli/DuplicatesCommand.h"
#include "cli/FilesCommand.h"
#include "cli/LightenCommand.h"
#include "cli/PhotoCommands.h"
#include "cli/ServeCommand.h"
#include "cli/VaultCommand.h"
#include "engines/backup/BackupLocator.h"
#include "ground/WorkFolder.h"
#include "l10n/L.h"
#include "l10n/LanguageStore.h"

#include <QFileInfo>
#include <QGuiApplication>

#include <algorithm>
#include <cstring>
#include <memory>

using namespace nuvrel;

int main(int argc, char* argv[])
{
    // Drawing a PDF needs fonts, hence the GUI application, for those commands only; a command-line
    // tool never shows a window.
    std::unique_ptr<QCoreApplication> app;
    const auto has = [argc, argv](const char* word) {
        return std::any_of(argv + 1, argv + argc, [word](const char* given) { return std::strcmp(given, word) == 0; });
    };
    // A vault file opened from a terminal goes to the desktop's application for it, where there is a desktop.
#ifdef Q_OS_MACOS
    const bool desktop = true;
#else
    const bool desktop = !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
#endif
    if (has("vault") && has("open") && desktop) {
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else if (has("chat-pdf") || has("lighten")) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setOrganizationName(QStringLiteral("Nuvrel"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("nuvrel.app"));
    QCoreApplication::setApplicationName(QStringLiteral("Nuvrel"));
    QCoreApplication::setApplicationVersion(QStringLiteral(NUVREL_VERSION));

    QTextStream out(stdout);
    QTextStream err(stderr);
    QStringList arguments = QCoreApplication::arguments();
    const QString program = QFileInfo(arguments.takeFirst()).fileName();

    QString error;
    cli::CommandLine line = cli::CommandLine::parse(arguments, error);
    if (const std::optional<AppLanguage> language = appLanguageFromIdentifier(line.language.value_or(QString()))) {
        LanguageStore::shared().setLanguageForThisRun(*language);
        // Parsed again so that a mistake is told in the language the same line asked for.
        line = cli::CommandLine::parse(arguments, error);
    }
    if (!error.isEmpty()) {
        err << error << '\n';
        return cli::BadUsage;
    }
    if (line.help) {
        cli::printHelp(out, program);
        return 0;
    }
    if (line.version) {
        out << program << ' ' << QCoreApplication::applicationVersion() << '\n';
        return 0;
    }
    // Decrypted copies that a crash or a kill left behind; those of a running window stay.
    WorkFolder::removeAbandoned();

    if (line.command == QLatin1StringView("backups") && line.arguments.isEmpty())
        return cli::runBackups(line.root.value_or(BackupLocator::root()), line.json, out, err);
    if (line.command == QLatin1StringView("files"))
        return cli::runFiles(line, out, err);
    if (line.command == QLatin1StringView("extract"))
        return cli::runExtract(line, out, err);
    if (line.command == QLatin1StringView("chats"))
        return cli::runChats(line, out, err);
    if (line.command == QLatin1StringView("chat"))
        return cli::runChat(line, out, err);
    if (line.command == QLatin1StringView("chat-export"))
        return cli::runChatExport(line, out, err);
    if (line.command == QLatin1StringView("chat-pdf"))
        return cli::runChatPdf(line, out, err);
    if (line.command == QLatin1StringView("verify"))
        return cli::runVerify(line, out, err);
    if (line.command == QLatin1StringView("lighten"))
        return cli::runLighten(line, out, err);
    if (line.command == QLatin1StringView("duplicates"))
        return cli::runDuplicates(line, out, err);
    if (line.command == QLatin1StringView("vault"))
        return cli::runVault(line, out, err);
    if (line.command == QLatin1StringView("serve"))
        return cli::runServe(line, out, err);
    if (line.command == QLatin1StringView("photo-import"))
        return cli::runPhotoImport(line, out, err);
    if (line.command == QLatin1StringView("photos-library"))
        return cli::runPhotosLibrary(line, out, err);

    if (line.command.isEmpty())
        cli::printHelp(err, program);
    else
        err << L("Commande inconnue : %@", (QStringList{line.command} + line.arguments).join(u' ')) << '\n';
    return cli::BadUsage;
}
