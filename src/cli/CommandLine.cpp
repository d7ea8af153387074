#include "cli/CommandLine.h"

#include "cli/TextTable.h"
#include "engines/conversations/ChatRecords.h"
#include "engines/lighten/LightenTarget.h"
#include "l10n/L.h"

#include <QCommandLineParser>

#include <algorithm>

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

QString lightenTargetChoices()
{
    QStringList names;
    for (LightenTarget target : allLightenTargets)
        names.append(rawValue(target));
    return names.join(u'|');
}

CommandLine CommandLine::parse(const QStringList& arguments, QString& error)
{
    error.clear();
    // parse(), not process(): the latter exits on its own and prints Qt's texts, which are English (or
    // missing, in Serbian). Our texts are said from what the parser found.
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const auto valued = [](const QStringList& names) { return QCommandLineOption(names, {}, QStringLiteral("value")); };
    const QCommandLineOption root = valued({QStringLiteral("root")});
    const QCommandLineOption lang = valued({QStringLiteral("lang")});
    const QCommandLineOption domain = valued({QStringLiteral("domain")});
    const QCommandLineOption path = valued({QStringLiteral("path")});
    const QCommandLineOption to = valued({QStringLiteral("to")});
    const QCommandLineOption from = valued({QStringLiteral("from")});
    const QCommandLineOption owner = valued({QStringLiteral("owner")});
    const QCommandLineOption output = valued({QStringLiteral("o"), QStringLiteral("output")});
    const QCommandLineOption exportFile = valued({QStringLiteral("export")});
    const QCommandLineOption source = valued({QStringLiteral("source")});
    const QCommandLineOption format = valued({QStringLiteral("format")});
    const QCommandLineOption target = valued({QStringLiteral("target")});
    const QCommandLineOption address = valued({QStringLiteral("address")});
    const QCommandLineOption port = valued({QStringLiteral("port")});
    const QCommandLineOption since = valued({QStringLiteral("since")});
    const QCommandLineOption until = valued({QStringLiteral("until")});
    const QCommandLineOption videos(QStringLiteral("videos"));
    const QCommandLineOption device(QStringLiteral("device"));
    const QCommandLineOption photos(QStringLiteral("photos"));
    const QCommandLineOption passwordStdin(QStringLiteral("password-stdin"));
    const QCommandLineOption remember(QStringLiteral("remember"));
    const QCommandLineOption json(QStringLiteral("json"));
    const QCommandLineOption force(QStringLiteral("force"));
    const QCommandLineOption keepLocation(QStringLiteral("keep-location"));
    const QCommandLineOption keepHeic(QStringLiteral("keep-heic"));
    const QCommandLineOption similar(QStringLiteral("similar"));
    const QCommandLineOption trash(QStringLiteral("trash"));
    const QCommandLineOption yes(QStringLiteral("yes"));
    const QCommandLineOption help(QStringList{QStringLiteral("h"), QStringLiteral("help")});
    const QCommandLineOption version(QStringLiteral("version"));
    parser.addOptions({root,   lang,   domain, path,          to,       from, owner, output,       exportFile, source,
                       format, target, photos, passwordStdin, remember, json, force, keepLocation, keepHeic,   similar,
                       trash,  yes,    help,   version,       address,  port, since, until,        videos,     device});
    const bool parsed = parser.parse(QStringList{QStringLiteral("nuvrel-cli")} + arguments);

    CommandLine line;
    const auto optional = [&parser](const QCommandLineOption& option) -> std::optional<QString> {
        if (!parser.isSet(option))
            return std::nullopt;
        return parser.value(option);
    };
    line.root = optional(root);
    line.language = optional(lang);
    line.domain = optional(domain);
    line.pathPrefix = optional(path);
    line.destination = optional(to);
    line.from = optional(from);
    line.owner = optional(owner);
    line.output = optional(output);
    line.exportFile = optional(exportFile);
    line.source = optional(source);
    line.format = optional(format);
    line.target = optional(target);
    line.address = optional(address);
    line.port = optional(port);
    line.since = optional(since);
    line.until = optional(until);
    line.videos = parser.isSet(videos);
    line.device = parser.isSet(device);
    line.photos = parser.isSet(photos);
    line.passwordFromStdin = parser.isSet(passwordStdin);
    line.remember = parser.isSet(remember);
    line.json = parser.isSet(json);
    line.force = parser.isSet(force);
    line.keepLocation = parser.isSet(keepLocation);
    line.keepHeic = parser.isSet(keepHeic);
    line.similar = parser.isSet(similar);
    line.trash = parser.isSet(trash);
    line.yes = parser.isSet(yes);
    line.help = parser.isSet(help);
    line.version = parser.isSet(version);
    line.arguments = parser.positionalArguments();
    if (!line.arguments.isEmpty())
        line.command = line.arguments.takeFirst();

    if (!parsed) {
        // The parser's own text is not for the user: tell its finding in our words.
        const QStringList unknown = parser.unknownOptionNames();
        const auto flagWithValue = std::find_if(arguments.cbegin(), arguments.cend(), [](const QString& word) {
            static const QStringList flags{
                QStringLiteral("--photos"),  QStringLiteral("--password-stdin"), QStringLiteral("--remember"),
                QStringLiteral("--json"),    QStringLiteral("--force"),          QStringLiteral("--help"),
                QStringLiteral("--version"), QStringLiteral("--keep-location"),  QStringLiteral("--keep-heic"),
                QStringLiteral("--similar"), QStringLiteral("--trash"),          QStringLiteral("--yes"),
                QStringLiteral("--videos"),  QStringLiteral("--device")};
            return word.contains(u'=') && flags.contains(word.section(u'=', 0, 0));
        });
        if (!unknown.isEmpty())
            error = L("Option inconnue : %@",
                      (unknown.first().size() == 1 ? QStringLiteral("-") : QStringLiteral("--")) + unknown.first());
        else if (flagWithValue != arguments.cend())
            error = L("Option inconnue : %@", *flagWithValue);
        else // the only other finding: an option that takes a value ends the line
            error = L("L'option %@ attend une valeur.", arguments.isEmpty() ? QString() : arguments.constLast());
    }
    if (error.isEmpty() && line.language && !appLanguageFromIdentifier(*line.language))
        error = L("Langue inconnue : %@. Choix possibles : %@.", *line.language, languageCodes());
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
         {QStringLiteral("chats ") + file,
          L("Liste les conversations d'un export : WhatsApp (%@), Telegram (%@) ou texte collé (%@).",
            QStringLiteral(".txt, .zip"), QStringLiteral("result.json"), QStringLiteral("--source pasted"))},
         {QStringLiteral("chat ") + base + u' ' + number,
          L("Affiche une conversation de la base, par son numéro dans la liste.")},
         {QStringLiteral("chat-pdf ") + base + u' ' + number + QStringLiteral(" -o ") + file,
          L("Enregistre une conversation en PDF, avec son fichier d'empreinte (ou %@ pour un export WhatsApp).",
            QStringLiteral("--export <.txt>"))},
         {QStringLiteral("verify ") + file, L("Vérifie qu'un PDF de conversation n'a pas été modifié.")},
         {QStringLiteral("chat-export ") + file,
          L("Affiche une conversation exportée de WhatsApp (fichier %@).", QStringLiteral(".txt"))},
         {QStringLiteral("lighten ") + file + QStringLiteral("… --target <%1> --to ").arg(L("destination")) + folder,
          L("Fait une copie plus légère de chaque fichier pour WhatsApp, Telegram, Mail ou Messages.")},
         {QStringLiteral("duplicates ") + folder,
          L("Cherche les fichiers identiques d'un dossier, la copie à garder en premier.")},
         {QStringLiteral("vault list | add ") + file +
              QStringLiteral("… | open <%1> | restore <%1> | delete <%1> --yes | lock").arg(L("nom")),
          L("Le coffre : la liste, y mettre des fichiers, en ouvrir ou en sortir un, en supprimer un, le "
            "verrouiller.")},
         {QStringLiteral("serve ") + file +
              QStringLiteral("… [--address <%1>] [--port <%2>]").arg(L("adresse"), L("port")),
          L("Envoie des fichiers à un téléphone sur le même réseau : il ouvre l'adresse ou le code QR affichés dans "
            "son "
            "navigateur.")},
         {QStringLiteral("photo-import --device | --from ") + folder +
              QStringLiteral(" [--photos] [--videos] [--since <%1>] [--until <%1>]").arg(L("AAAA-MM-JJ")),
          L("Copie les photos et vidéos de l'iPhone branché par câble, d'un iPhone monté comme dossier ou d'une carte "
            "d'appareil photo dans des dossiers par mois, une seule fois chacune.")},
         {QStringLiteral("photos-library <%1>").arg(QStringLiteral(".photoslibrary")),
          L("Copie toutes les photos et vidéos d'une photothèque Photos dans des dossiers par mois, une seule fois "
            "chacune.")}});
    section(
        L("Options :"),
        {{QStringLiteral("--root ") + folder, L("Lit les sauvegardes de ce dossier plutôt que celui des réglages.")},
         {QStringLiteral("--domain <%1>").arg(L("domaine")),
          L("Ne garde que les fichiers de ce domaine (par exemple %@).", QStringLiteral("HomeDomain"))},
         {QStringLiteral("--path <%1>").arg(L("chemin")),
          L("Ne garde que les fichiers dont le chemin commence ainsi.")},
         {QStringLiteral("--photos"), L("Ne garde que les photos et vidéos de la pellicule.")},
         {QStringLiteral("--photos, --videos"),
          L("Ne copie que les photos, ou que les vidéos (commande %@ ; sans elles : les deux).",
            QStringLiteral("photo-import"))},
         {QStringLiteral("--to ") + folder, L("Dossier où copier les fichiers (commandes %@).",
                                              QStringLiteral("extract, lighten, photo-import, photos-library"))},
         {QStringLiteral("--target <%1>").arg(lightenTargetChoices()),
          L("Destination des fichiers allégés, qui fixe la taille à respecter (commande %@).",
            QStringLiteral("lighten"))},
         {QStringLiteral("--keep-location"), L("Garde la position des photos et vidéos allégées.")},
         {QStringLiteral("--keep-heic"), L("Garde les photos HEIC en HEIC (sinon : JPEG).")},
         {QStringLiteral("--similar"),
          L("Cherche aussi les photos qui se ressemblent (commande %@).", QStringLiteral("duplicates"))},
         {QStringLiteral("--trash --yes"),
          L("Met à la Corbeille les copies en trop des fichiers identiques, jamais les photos qui se ressemblent.")},
         {QStringLiteral("--password-stdin"),
          L("Lit le mot de passe d'une sauvegarde chiffrée sur l'entrée standard.")},
         {QStringLiteral("--source <%1>").arg(QStringLiteral("messages|whatsapp|telegram|whatsapp-export|pasted")),
          L("Type de base ou d'export (sinon d'après le fichier) ; %@ lit le texte collé d'un fichier ou de l'entrée "
            "standard (%@).",
            QStringLiteral("pasted"), QStringLiteral("-"))},
         {QStringLiteral("--from <%1> --to <%1>").arg(L("AAAA-MM-JJ")),
          L("Ne garde que les messages de ces jours (commandes %@).", QStringLiteral("chats, chat, chat-pdf"))},
         {QStringLiteral("--since <%1> --until <%1>").arg(L("AAAA-MM-JJ")),
          L("Ne copie que les photos et vidéos prises entre ces jours, inclus (commande %@).",
            QStringLiteral("photo-import"))},
         {QStringLiteral("--owner <%1>").arg(L("nom")),
          L("Les messages de ce nom sont les tiens : ils s'affichent comme « %@ ».", ownerName())},
         {QStringLiteral("--format text|json"), L("Présentation d'une conversation.")},
         {QStringLiteral("--address <%1>").arg(L("adresse")),
          L("Adresse de cet ordinateur où attendre le téléphone (sinon : celle du Wi-Fi ou de l'Ethernet) (commande "
            "%@).",
            QStringLiteral("serve"))},
         {QStringLiteral("--port <%1>").arg(L("port")),
          L("Port où attendre le téléphone (sinon : un port libre choisi par le système).")},
         {QStringLiteral("--json"), L("Affiche le résultat au format %@.", QStringLiteral("JSON"))},
         {QStringLiteral("--force"), L("Remplace le fichier de sortie s'il existe (sinon : « nom (2) »).")},
         {QStringLiteral("--lang <%1>").arg(L("code")),
          L("Langue des textes : %@ (sinon celle choisie dans Nuvrel).", languageCodes())},
         {QStringLiteral("-h, --help"), L("Affiche cette aide.")},
         {QStringLiteral("--version"), L("Affiche la version.")}});
    section(L("Code de sortie :"), {{L("0 : terminé")},
                                    {L("1 : rien trouvé (aucune sauvegarde, ou aucun fichier ne correspond)")},
                                    {L("2 : accès refusé (au dossier des sauvegardes, ou par l'iPhone)")},
                                    {L("3 : commande mal formée")},
                                    {L("4 : sauvegarde introuvable")},
                                    {L("5 : mot de passe absent ou faux")},
                                    {L("6 : sauvegarde ou fichier illisible ou introuvable")},
                                    {L("7 : des fichiers n'ont pas pu être extraits ou allégés")},
                                    {L("8 : le PDF a été modifié depuis sa création")},
                                    {L("9 : l'envoi n'a pas pu démarrer à cette adresse ou sur ce port")},
                                    {L("10 : la copie s'est arrêtée avant la fin")}});
}

} // namespace nuvrel::cli
