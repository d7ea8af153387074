#include "cli/VaultCommand.h"

#include "cli/TextTable.h"
#include "engines/vault/Vault.h"
#include "l10n/L.h"
#include "platform/OwnerCheck.h"
#include "platform/Workspace.h"
#include "platform/system/SystemServices.h"
#include "platform/system/SystemTrash.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QGuiApplication>
#include <QUuid>

namespace nuvrel::cli {

namespace {

QString shownPath(const QString& path)
{
    return escapedControls(QDir::toNativeSeparators(path));
}

QString count(qint64 value)
{
    return Localizer::locale().toString(value);
}

QString idText(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

/// The entry a word names: its name when only one entry has it, else its id. Nothing, said on `err`,
/// when none or several do.
const VaultEntry* entryNamed(const Vault& vault, const QString& word, QTextStream& err, int& status)
{
    QList<const VaultEntry*> named;
    for (const VaultEntry& entry : vault.entries()) {
        if (entry.name == word)
            named.append(&entry);
    }
    if (named.size() == 1)
        return named.constFirst();
    if (named.size() > 1) {
        err << L("Plusieurs fichiers du coffre s'appellent « %@ » : désigne-le par son identifiant.",
                 escapedControls(word))
            << '\n';
        for (const VaultEntry* entry : std::as_const(named))
            err << "  " << idText(entry->id) << "  " << Localizer::formatDateTime(entry->added.toLocalTime()) << '\n';
        status = BadUsage;
        return nullptr;
    }
    const QUuid id = QUuid::fromString(word.trimmed());
    if (const VaultEntry* entry = id.isNull() ? nullptr : vault.find(id))
        return entry;
    err << L("Aucun fichier du coffre ne s'appelle « %@ ».", escapedControls(word)) << '\n';
    status = NothingFound;
    return nullptr;
}

void printEntries(const Vault& vault, bool json, QTextStream& out)
{
    QList<VaultEntry> entries = vault.entries();
    std::stable_sort(entries.begin(), entries.end(),
                     [](const VaultEntry& a, const VaultEntry& b) { return a.added > b.added; });
    if (json) {
        out << '[';
        for (qsizetype i = 0; i < entries.size(); ++i) {
            const VaultEntry& entry = entries[i];
            out << (i == 0 ? "\n  {" : ",\n  {") << "\"id\": " << jsonQuoted(idText(entry.id))
                << ", \"name\": " << jsonQuoted(entry.name) << ", \"size\": " << entry.size
                << ", \"added\": " << jsonQuoted(entry.added.toUTC().toString(Qt::ISODate))
                << ", \"origin\": " << jsonQuoted(entry.origin) << '}';
        }
        out << (entries.isEmpty() ? "]\n" : "\n]\n");
        return;
    }
    TextTable table;
    for (const VaultEntry& entry : std::as_const(entries))
        table.addRow({escapedControls(entry.name), Localizer::formatByteCount(entry.size),
                      Localizer::formatDateTime(entry.added.toLocalTime()), idText(entry.id)});
    table.print(out);
    out << LN("%@ fichier(s) dans le coffre", entries.size(), count(entries.size())) << '\n';
}

int addFiles(Vault& vault, Trash& trash, const QStringList& files, bool json, QTextStream& out, QTextStream& err)
{
    QStringList absolute;
    for (const QString& file : files)
        absolute.append(QFileInfo(file).absoluteFilePath());
    const bool showProgress = stderrIsTerminal() && !json;
    QElapsedTimer clock;
    clock.start();
    const VaultAddReport report = vault.add(absolute, trash, [&](qint64 done, qint64 total) {
        if (!showProgress || total == 0 || clock.elapsed() < 200)
            return;
        clock.restart();
        err << '\r' << L("Chiffrement en cours…") << ' ' << count(done * 100 / total) << " %";
        err.flush();
    });
    if (showProgress)
        err << "\r\033[K";
    if (json) {
        const auto list = [](const QStringList& paths) {
            QStringList quoted;
            for (const QString& path : paths)
                quoted.append(jsonQuoted(path));
            return u'[' + quoted.join(QStringLiteral(", ")) + u']';
        };
        QStringList added;
        for (const VaultEntry& entry : report.added)
            added.append(QStringLiteral("{\"id\": %1, \"name\": %2, \"size\": %3}")
                             .arg(jsonQuoted(idText(entry.id)), jsonQuoted(entry.name), QString::number(entry.size)));
        out << "{\n  \"added\": [" << added.join(QStringLiteral(", ")) << "],\n  \"failed\": " << list(report.failed)
            << ",\n  \"notMoved\": " << list(report.notMoved) << "\n}\n";
    } else {
        if (!report.added.isEmpty()) {
            out << LN("%@ fichier(s) mis dans le coffre.", report.added.size(), count(report.added.size())) << '\n'
                << L("Les originaux sont à la Corbeille : vide-la pour qu'ils disparaissent vraiment.") << '\n';
        }
        for (const QString& file : report.failed + report.notMoved)
            err << shownPath(file) << '\n';
        if (report.added.isEmpty() && !report.notMoved.isEmpty() && report.failed.isEmpty())
            err << L("Impossible de déplacer ces fichiers.") << '\n';
        else if (!report.failed.isEmpty() || !report.notMoved.isEmpty())
            err << L("Certains fichiers n'ont pas pu être protégés : ils sont restés à leur place.") << '\n';
    }
    return report.failed.isEmpty() && report.notMoved.isEmpty() ? Found : SomeFilesFailed;
}

QString failureText(const VaultFailure& failure, const char* otherwise)
{
    if (failure.kind == VaultFailure::Kind::DigestMismatch)
        return L("Ce fichier du coffre ne correspond pas à sa fiche : il a été déplacé ou échangé. Rien n'a été "
                 "modifié.");
    if (failure.kind == VaultFailure::Kind::WriteFailed)
        return L("%@ Le disque a refusé l'écriture (il est peut-être plein).", L(otherwise));
    return L(otherwise);
}

} // namespace

int runVault(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    const QString action = line.arguments.value(0);
    const QStringList rest = line.arguments.mid(1);
    static const QStringList actions{QStringLiteral("list"),    QStringLiteral("add"),    QStringLiteral("open"),
                                     QStringLiteral("restore"), QStringLiteral("delete"), QStringLiteral("lock")};
    if (!actions.contains(action)) {
        err << L("Précise ce que tu veux faire du coffre : %@.", actions.join(QStringLiteral(", "))) << '\n';
        return BadUsage;
    }
    if (action == QLatin1String("lock")) {
        if (!Vault::removeOpenedCopies()) {
            err << L("Certaines copies ouvertes n'ont pas pu être effacées.") << '\n';
            return SomeFilesFailed;
        }
        out << L("Coffre verrouillé : les copies ouvertes ont été effacées.") << '\n';
        return Found;
    }
    if ((action == QLatin1String("add") && rest.isEmpty()) ||
        (action != QLatin1String("add") && action != QLatin1String("list") && rest.size() != 1)) {
        err << L("Précise le fichier du coffre, par son nom ou son identifiant.") << '\n';
        return BadUsage;
    }
    if (action == QLatin1String("delete") && !line.yes) {
        err << L("Ajoute %@ pour confirmer la suppression définitive.", QStringLiteral("--yes")) << '\n';
        return BadUsage;
    }

    switch (terminalOwnerCheck().confirmOwner(L("Déverrouiller le coffre de Nuvrel"))) {
    case OwnerCheck::Outcome::Confirmed: break;
    case OwnerCheck::Outcome::Refused: err << L("Authentification annulée ou échouée.") << '\n'; return AccessRefused;
    case OwnerCheck::Outcome::Unavailable:
        err << L("Impossible de vérifier ton identité sur cet ordinateur : le coffre reste verrouillé.") << '\n';
        return AccessRefused;
    }
    SystemTrash trash;
    Vault::Opening opening = Vault::open(VaultStore::defaultFolder(), systemSecretStore(), trash);
    if (!opening.vault) {
        switch (opening.error) {
        case VaultOpenError::CannotCreateFolder: err << L("Impossible de créer le dossier du coffre.") << '\n'; break;
        case VaultOpenError::CannotCreateKey: err << L("Impossible de créer la clé du coffre.") << '\n'; break;
        case VaultOpenError::KeyMissing:
            err << L("La clé du coffre est introuvable sur ce Mac : les fichiers ne peuvent pas être ouverts.") << '\n';
            break;
        case VaultOpenError::UnreadableIndex: err << L("La liste du coffre est illisible.") << '\n'; break;
        }
        return BackupUnreadable;
    }
    Vault& vault = *opening.vault;
    if (opening.fromPreviousIndex)
        err << L("La liste du coffre était abîmée : le coffre s'est ouvert avec sa version précédente.") << '\n';
    if (opening.recovered > 0)
        err << LN("%@ fichier(s) retrouvé(s) après une interruption : ils s'appellent « Fichier récupéré ».",
                  opening.recovered, count(opening.recovered))
            << '\n';
    if (opening.migrationFailed)
        err << L("Impossible de protéger les anciens fichiers du coffre.") << '\n';

    if (action == QLatin1String("list")) {
        printEntries(vault, line.json, out);
        return Found;
    }
    if (action == QLatin1String("add"))
        return addFiles(vault, trash, rest, line.json, out, err);

    int status = Found;
    const VaultEntry* entry = entryNamed(vault, rest.constFirst(), err, status);
    if (!entry)
        return status;
    const QUuid id = entry->id;
    if (action == QLatin1String("delete")) {
        if (!vault.remove(id)) {
            err << L("Impossible de supprimer ce fichier du coffre.") << '\n';
            return SomeFilesFailed;
        }
        out << L("Fichier supprimé du coffre.") << '\n';
        return Found;
    }
    try {
        if (action == QLatin1String("open")) {
            const QString copy = vault.openCopy(id);
            out << (line.json ? jsonQuoted(copy) : shownPath(copy)) << '\n';
            if (!line.json)
                err << L("Cette copie déchiffrée est effacée par « %@ ».", QStringLiteral("nuvrel-cli vault lock"))
                    << '\n';
            // On a desktop, main() made the application that can hand the copy to its viewer.
            if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) && !systemWorkspace().open(copy))
                err << L("Impossible d'ouvrir ce fichier.") << '\n';
            return Found;
        }
        const QString restored =
            line.destination ? vault.restoreTo(id, QFileInfo(*line.destination).absoluteFilePath()) : vault.restore(id);
        out << (line.json ? jsonQuoted(restored) : shownPath(restored)) << '\n';
        if (!line.json)
            err << L("Fichier sorti du coffre.") << '\n';
        return Found;
    } catch (const VaultFailure& failure) {
        err << failureText(failure, action == QLatin1String("open") ? "Impossible d'ouvrir ce fichier."
                                                                    : "Impossible de sortir ce fichier du coffre.")
            << '\n';
        return SomeFilesFailed;
    }
}

} // namespace nuvrel::cli
