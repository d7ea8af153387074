#include "cli/FilesCommand.h"

#include "cli/PasswordPrompt.h"
#include "cli/TextTable.h"
#include "engines/backup/BackupCatalogue.h"
#include "engines/backup/BackupLocator.h"
#include "engines/backup/BackupPasswordStore.h"
#include "engines/backup/Extraction.h"
#include "engines/backup/IPhoneBackupReader.h"
#include "l10n/L.h"
#include "platform/system/SystemServices.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <memory>

namespace nuvrel::cli {

namespace {

// The folder a backup named on the command line is in: the name as a folder, or its name in the
// backups folder.
QString backupFolder(const QString& name, const QString& root)
{
    if ((QFileInfo(name).isDir() && BackupLocator::looksLikeBackup(name)) || name.contains(u'/'))
        return name;
    return QDir(root).filePath(name);
}

int exitCodeFor(const BackupReadError& error)
{
    switch (error.kind()) {
    case BackupReadError::Kind::NeedsPassword:
    case BackupReadError::Kind::WrongPassword: return PasswordProblem;
    case BackupReadError::Kind::WriteFailed:
    case BackupReadError::Kind::Cancelled: return SomeFilesFailed;
    case BackupReadError::Kind::Unreadable:
        return error.systemKind() == SystemErrorKind::NoPermission ? AccessRefused : BackupUnreadable;
    case BackupReadError::Kind::Unsupported:
    case BackupReadError::Kind::Damaged: return BackupUnreadable;
    }
    return BackupUnreadable;
}

struct Opened
{
    std::unique_ptr<IPhoneBackupReader> reader;
    int exitCode = Found;
};

// Resolves, asks for the password when needed, and opens the backup; reports problems on `err`.
Opened open(const CommandLine& line, QTextStream& err)
{
    if (line.arguments.size() != 1) {
        err << L("Précise une sauvegarde : son dossier, ou son nom dans le dossier des sauvegardes.") << '\n';
        return {nullptr, BadUsage};
    }
    const QString folder = backupFolder(line.arguments.front(), line.root.value_or(BackupLocator::root()));
    // A folder that holds none of a backup's files is no backup; one that does but whose Info.plist
    // cannot be read is a backup with a problem, which is told as such.
    if (!QFileInfo(folder).isDir() || !BackupLocator::looksLikeBackup(folder)) {
        err << L("Sauvegarde introuvable : %@", escapedControls(line.arguments.front())) << '\n';
        return {nullptr, NoSuchBackup};
    }
    const std::optional<PhoneBackup> backup = BackupLocator::read(folder);
    if (!backup) {
        const BackupReadError error = BackupLocator::readFailure(folder);
        err << escapedControls(error.message()) << '\n';
        return {nullptr, exitCodeFor(error)};
    }
    QString password;
    if (backup->isEncrypted) {
        // A password given now wins over the kept one, which may be out of date.
        if (line.passwordFromStdin) {
            password = readPasswordFromStdin(err);
        } else if (std::optional<QString> kept = BackupPasswordStore(systemSecretStore()).load(backup->id)) {
            password = *kept;
        } else {
            err << BackupReadError::needsPassword().message() << ' '
                << L("Donne-le avec %@.", QStringLiteral("--password-stdin")) << '\n';
            return {nullptr, PasswordProblem};
        }
    }
    if (backup->isEncrypted && stderrIsTerminal()) {
        err << L("Lecture de la sauvegarde… une grosse sauvegarde peut prendre une minute.") << '\n';
        err.flush();
    }
    try {
        auto reader = std::make_unique<IPhoneBackupReader>(*backup, password);
        if (line.remember && line.passwordFromStdin) {
            if (BackupPasswordStore(systemSecretStore()).save(password, backup->id))
                err << L("Mot de passe gardé dans le trousseau de cet ordinateur.") << '\n';
            else
                err << L("Le trousseau n'a pas pu garder le mot de passe.") << '\n';
        }
        return {std::move(reader), Found};
    } catch (const BackupReadError& error) {
        err << escapedControls(error.message()) << '\n';
        return {nullptr, exitCodeFor(error)};
    }
}

QList<BackupEntry> selected(const IPhoneBackupReader& reader, const CommandLine& line)
{
    QList<BackupEntry> entries = reader.loadEntries();
    entries.removeIf([&line](const BackupEntry& entry) {
        if (line.photos && !BackupCatalogue::isPhoto(entry))
            return true;
        if (line.domain && entry.domain != *line.domain)
            return true;
        return line.pathPrefix && !entry.path.startsWith(*line.pathPrefix);
    });
    return entries;
}

// One line redrawn in place on a terminal; nothing at all when the output goes to a file.
class ProgressBar
{
public:
    ProgressBar(QTextStream& err, qsizetype total)
        : m_err(err)
        , m_total(total)
        , m_enabled(stderrIsTerminal())
    {
        m_clock.start();
    }
    void update(qsizetype done, bool force = false)
    {
        if (!m_enabled || (!force && m_clock.elapsed() < 100))
            return;
        m_clock.restart();
        constexpr int width = 30;
        const int filled = m_total > 0 ? static_cast<int>(width * done / m_total) : width;
        m_err << '\r' << '[' << QString(filled, u'#') << QString(width - filled, u'.') << "] "
              << L("Extraction %@ sur %@…", done, m_total) << "   ";
        m_err.flush();
    }
    void finish()
    {
        update(m_total, true);
        if (m_enabled)
            m_err << '\n';
    }

private:
    QTextStream& m_err;
    qsizetype m_total;
    bool m_enabled;
    QElapsedTimer m_clock;
};

} // namespace

int runFiles(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    Opened opened = open(line, err);
    if (!opened.reader)
        return opened.exitCode;
    QList<BackupEntry> entries;
    try {
        entries = selected(*opened.reader, line);
    } catch (const BackupReadError& error) {
        err << escapedControls(error.message()) << '\n';
        return exitCodeFor(error);
    }
    opened.reader->cleanup();

    if (line.json) {
        QJsonArray files;
        for (const BackupEntry& entry : entries) {
            const MBFileInfo meta = entry.meta();
            files.append(QJsonObject{
                {QStringLiteral("fileID"), entry.fileID},
                {QStringLiteral("domain"), entry.domain},
                {QStringLiteral("path"), entry.path},
                {QStringLiteral("size"), meta.size},
                {QStringLiteral("modified"), meta.mtime ? QJsonValue(meta.mtime->toString(Qt::ISODate)) : QJsonValue()},
                {QStringLiteral("protectionClass"), meta.protectionClass},
            });
        }
        out << QString::fromUtf8(QJsonDocument(files).toJson(QJsonDocument::Indented));
        return entries.isEmpty() ? NothingFound : Found;
    }
    if (entries.isEmpty()) {
        err << L("Aucun fichier ne correspond.") << '\n';
        return NothingFound;
    }
    TextTable table;
    table.addRow({L("Domaine"), L("Chemin"), L("Taille")});
    const QLocale locale = Localizer::locale();
    for (const BackupEntry& entry : entries)
        table.addRow({entry.domain, entry.path, locale.formattedDataSize(entry.meta().size)});
    table.print(out);
    return Found;
}

int runExtract(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    if (!line.destination) {
        err << L("L'option %@ attend une valeur.", QStringLiteral("--to")) << '\n';
        return BadUsage;
    }
    Opened opened = open(line, err);
    if (!opened.reader)
        return opened.exitCode;
    IPhoneBackupReader& reader = *opened.reader;
    QList<BackupEntry> entries;
    try {
        entries = selected(reader, line);
    } catch (const BackupReadError& error) {
        err << escapedControls(error.message()) << '\n';
        return exitCodeFor(error);
    }
    if (entries.isEmpty()) {
        err << L("Aucun fichier ne correspond.") << '\n';
        return NothingFound;
    }

    if (Extraction::isForbiddenDestination(*line.destination, reader.backup(),
                                           line.root.value_or(BackupLocator::root()))) {
        err << L("Choisis un autre dossier : Nuvrel n'écrit jamais dans une sauvegarde.") << '\n';
        return BadUsage;
    }

    QList<Extraction::Item> items;
    items.reserve(entries.size());
    for (const BackupEntry& entry : std::as_const(entries))
        items.append(line.photos ? Extraction::photo(entry) : Extraction::byDomain(entry));
    ProgressBar progress(err, items.size());
    Extraction::Options options;
    options.progress = [&progress](qsizetype done, qsizetype) { progress.update(done); };
    const Extraction::Report report = Extraction::run(reader, items, *line.destination, options);
    progress.finish();
    reader.cleanup();

    if (line.json) {
        QJsonArray refused;
        for (const QString& name : report.refused)
            refused.append(name);
        const QJsonObject failed{
            {QStringLiteral("missing"), report.failures(Extraction::Failure::Missing)},
            {QStringLiteral("undecryptable"), report.failures(Extraction::Failure::Undecryptable)},
            {QStringLiteral("unwritable"), report.failures(Extraction::Failure::Unwritable)},
            {QStringLiteral("refused"), report.failures(Extraction::Failure::Refused)},
        };
        out << QString::fromUtf8(
            QJsonDocument(QJsonObject{
                              {QStringLiteral("destination"), report.destination},
                              {QStringLiteral("extracted"), report.done},
                              {QStringLiteral("failed"), failed},
                              {QStringLiteral("refusedPaths"), refused},
                              {QStringLiteral("writeError"),
                               report.firstWriteError ? QJsonValue(*report.firstWriteError) : QJsonValue()},
                          })
                .toJson(QJsonDocument::Indented));
        return report.totalFailed() == 0 ? Found : SomeFilesFailed;
    }
    const QLocale locale = Localizer::locale();
    out << LN("%@ fichier(s) extraits", report.done, locale.toString(report.done)) << " → "
        << escapedControls(report.destination) << '\n';
    if (report.totalFailed() == 0)
        return Found;
    const auto count = [&](Extraction::Failure why) { return locale.toString(report.failures(why)); };
    if (const int missing = report.failures(Extraction::Failure::Missing); missing > 0)
        err << LN("%@ fichier(s) absents de la sauvegarde", missing, count(Extraction::Failure::Missing)) << '\n';
    if (const int undecryptable = report.failures(Extraction::Failure::Undecryptable); undecryptable > 0)
        err << LN("%@ fichier(s) impossibles à déchiffrer", undecryptable, count(Extraction::Failure::Undecryptable))
            << '\n';
    if (const int unwritable = report.failures(Extraction::Failure::Unwritable); unwritable > 0)
        err << LN("%@ fichier(s) impossibles à écrire : %@", unwritable, count(Extraction::Failure::Unwritable),
                  report.firstWriteError.value_or(QString()))
            << '\n';
    if (const int refused = report.failures(Extraction::Failure::Refused); refused > 0) {
        err << LN("%@ fichier(s) refusés : leur nom les placerait hors du dossier choisi", refused,
                  count(Extraction::Failure::Refused))
            << '\n';
        for (const QString& name : report.refused)
            err << "  " << escapedControls(name) << '\n';
    }
    return SomeFilesFailed;
}

} // namespace nuvrel::cli
