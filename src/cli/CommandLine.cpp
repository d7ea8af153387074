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
            fail(L("Commande inconnue : %@", argument));
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
    out << L("Utilisation : %@ <commande> [options]", program) << '\n';
    section(L("Commandes :"), {{QStringLiteral("backups"), L("Liste les sauvegardes iPhone de cet ordinateur.")}});
    section(L("Options :"), {{QStringLiteral("--root <%1>").arg(L("dossier")),
                              L("Lit les sauvegardes de ce dossier plutôt que celui des réglages.")},
                             {QStringLiteral("--json"), L("Affiche le résultat au format %@.", QStringLiteral("JSON"))},
                             {QStringLiteral("--lang <%1>").arg(L("code")),
                              L("Langue des textes : %@ (sinon celle choisie dans Nuvrel).", languageCodes())},
                             {QStringLiteral("-h, --help"), L("Affiche cette aide.")},
                             {QStringLiteral("--version"), L("Affiche la version.")}});
    section(L("Code de sortie :"), {{L("0 : au moins une sauvegarde trouvée")},
                                    {L("1 : aucune sauvegarde")},
                                    {L("2 : accès refusé au dossier des sauvegardes")},
                                    {L("3 : commande mal formée")}});
}

} // namespace nuvrel::cli
