#include "cli/CommandLine.h"

#include "cli/TextTable.h"
#include "l10n/L.h"

namespace nuvrel::cli {

namespace {

QString languageCodes()
{
    QStringList codes;
    for (AppLanguage language : allAppLanguages)
        codes.append(identifier(language));
    return codes.join(QLatin1StringView(", "));
}

} // namespace

CommandLine CommandLine::parse(const QStringList& arguments, QString& error)
{
    CommandLine line;
    error.clear();
    // The first mistake is the one told, but parsing goes on so that a later --lang still applies to it.
    const auto fail = [&error](const QString& message) {
        if (error.isEmpty())
            error = message;
    };
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        QString argument = arguments[i];
        std::optional<QString> inlineValue;
        if (argument.startsWith(QLatin1StringView("--")) && argument.contains(u'=')) {
            const qsizetype equals = argument.indexOf(u'=');
            inlineValue = argument.mid(equals + 1);
            argument.truncate(equals);
        }
        const auto value = [&]() -> std::optional<QString> {
            if (inlineValue)
                return inlineValue;
            if (i + 1 < arguments.size())
                return arguments[++i];
            fail(L("L'option %@ attend une valeur.", argument));
            return std::nullopt;
        };
        if (argument == QLatin1StringView("--root")) {
            line.root = value();
        } else if (argument == QLatin1StringView("--lang")) {
            line.language = value();
        } else if (argument == QLatin1StringView("--domain")) {
            line.domain = value();
        } else if (argument == QLatin1StringView("--path")) {
            line.pathPrefix = value();
        } else if (argument == QLatin1StringView("--to")) {
            line.destination = value();
        } else if (argument == QLatin1StringView("-o") || argument == QLatin1StringView("--output")) {
            line.output = value();
        } else if (argument == QLatin1StringView("--export")) {
            line.exportFile = value();
        } else if (argument == QLatin1StringView("--source")) {
            line.source = value();
        } else if (argument == QLatin1StringView("--format")) {
            line.format = value();
        } else if (argument == QLatin1StringView("--photos") && !inlineValue) {
            line.photos = true;
        } else if (argument == QLatin1StringView("--password-stdin") && !inlineValue) {
            line.passwordFromStdin = true;
        } else if (argument == QLatin1StringView("--remember") && !inlineValue) {
            line.remember = true;
        } else if (argument == QLatin1StringView("--json") && !inlineValue) {
            line.json = true;
        } else if ((argument == QLatin1StringView("--help") || argument == QLatin1StringView("-h")) && !inlineValue) {
            line.help = true;
        } else if (argument == QLatin1StringView("--version") && !inlineValue) {
            line.version = true;
        } else if (argument.startsWith(u'-')) {
            fail(L("Option inconnue : %@", arguments[i]));
        } else if (line.command.isEmpty()) {
            line.command = argument;
        } else {
            line.arguments.append(argument);
        }
    }
    if (line.language && !appLanguageFromIdentifier(*line.language))
        fail(L("Langue inconnue : %@. Choix possibles : %@.", *line.language, languageCodes()));
    return line;
}

void printHelp(QTextStream& out, const QString& program)
{
    const auto section = [&out](const QString& title, const QList<QStringList>& rows) {
        out << '\n' << title << '\n';
        TextTable table;
        for (const QStringList& row : rows)
            table.addRow(QStringList{QString()} + row);
        table.print(out);
    };
    const QString backup = u'<' + L("sauvegarde") + u'>';
    const QString folder = u'<' + L("dossier") + u'>';
    const QString base = u'<' + L("base") + u'>';
    const QString number = u'<' + L("numéro") + u'>';
    const QString file = u'<' + L("fichier") + u'>';
    out << L("Utilisation : %@ <commande> [options]", program) << '\n';
    section(
        L("Commandes :"),
        {{QStringLiteral("backups"), L("Liste les sauvegardes iPhone de cet ordinateur.")},
         {QStringLiteral("files ") + backup,
          L("Liste les fichiers d'une sauvegarde (son dossier, ou son nom dans le dossier des sauvegardes).")},
         {QStringLiteral("extract ") + backup, L("Copie des fichiers d'une sauvegarde dans un dossier.")},
         {QStringLiteral("chats ") + base, L("Liste les conversations d'une base Messages (%@) ou WhatsApp (%@).",
                                             QStringLiteral("sms.db, chat.db"), QStringLiteral("ChatStorage.sqlite"))},
         {QStringLiteral("chat ") + base + u' ' + number,
          L("Affiche une conversation de la base, par son numéro dans la liste.")},
         {QStringLiteral("chat-pdf ") + base + u' ' + number + QStringLiteral(" -o ") + file,
          L("Enregistre une conversation en PDF, avec son fichier d'empreinte (ou %@ pour un export WhatsApp).",
            QStringLiteral("--export <.txt>"))},
         {QStringLiteral("verify ") + file, L("Vérifie qu'un PDF de conversation n'a pas été modifié.")},
         {QStringLiteral("chat-export ") + file,
          L("Affiche une conversation exportée de WhatsApp (fichier %@).", QStringLiteral(".txt"))}});
    section(
        L("Options :"),
        {{QStringLiteral("--root ") + folder, L("Lit les sauvegardes de ce dossier plutôt que celui des réglages.")},
         {QStringLiteral("--domain <%1>").arg(L("domaine")),
          L("Ne garde que les fichiers de ce domaine (par exemple %@).", QStringLiteral("HomeDomain"))},
         {QStringLiteral("--path <%1>").arg(L("chemin")),
          L("Ne garde que les fichiers dont le chemin commence ainsi.")},
         {QStringLiteral("--photos"), L("Ne garde que les photos et vidéos de la pellicule.")},
         {QStringLiteral("--to ") + folder,
          L("Dossier où copier les fichiers (commande %@).", QStringLiteral("extract"))},
         {QStringLiteral("--password-stdin"),
          L("Lit le mot de passe d'une sauvegarde chiffrée sur l'entrée standard.")},
         {QStringLiteral("--source messages|whatsapp"), L("Type de base (sinon d'après le nom du fichier).")},
         {QStringLiteral("--format text|json"), L("Présentation d'une conversation.")},
         {QStringLiteral("--json"), L("Affiche le résultat au format %@.", QStringLiteral("JSON"))},
         {QStringLiteral("--lang <%1>").arg(L("code")),
          L("Langue des textes : %@ (sinon celle choisie dans Nuvrel).", languageCodes())},
         {QStringLiteral("-h, --help"), L("Affiche cette aide.")},
         {QStringLiteral("--version"), L("Affiche la version.")}});
    section(L("Code de sortie :"), {{L("0 : terminé")},
                                    {L("1 : rien trouvé (aucune sauvegarde, ou aucun fichier ne correspond)")},
                                    {L("2 : accès refusé au dossier des sauvegardes")},
                                    {L("3 : commande mal formée")},
                                    {L("4 : sauvegarde introuvable")},
                                    {L("5 : mot de passe absent ou faux")},
                                    {L("6 : sauvegarde illisible")},
                                    {L("7 : des fichiers n'ont pas pu être extraits")},
                                    {L("8 : le PDF a été modifié depuis sa création")}});
}

} // namespace nuvrel::cli
