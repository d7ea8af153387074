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

EntryFilter filterOf(const CommandLine& line)
{
    EntryFilter filter;
    filter.domain = line.domain;
    filter.pathPrefix = line.pathPrefix;
    filter.photos = line.photos;
    return filter;
}

// "2024-03-05T14:07:09Z", as Qt::ISODate writes a UTC date, by arithmetic on the seconds: a calendar
// object per line would cost more than the rest of the line.
void appendIsoDate(QByteArray& out, const QDateTime& date)
{
    const qint64 seconds = date.toSecsSinceEpoch();
    qint64 days = seconds / 86400;
    qint64 rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    // Days since 1970 to a civil date (Howard Hinnant's algorithm).
    const qint64 z = days + 719468;
    const qint64 era = (z >= 0 ? z : z - 146096) / 146097;
    const qint64 dayOfEra = z - era * 146097;
    const qint64 yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const qint64 dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const qint64 mp = (5 * dayOfYear + 2) / 153;
    const qint64 day = dayOfYear - (153 * mp + 2) / 5 + 1;
    const qint64 month = mp < 10 ? mp + 3 : mp - 9;
    const qint64 year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
    if (year < 1 || year > 9999) {
        out.append(date.toUTC().toString(Qt::ISODate).toUtf8());
        return;
    }
    const auto two = [&out](qint64 value) { out.append(char('0' + value / 10)).append(char('0' + value % 10)); };
    two(year / 100);
    two(year % 100);
    out.append('-');
    two(month);
    out.append('-');
    two(day);
    out.append('T');
    two(rest / 3600);
    out.append(':');
    two(rest / 60 % 60);
    out.append(':');
    two(rest % 60);
    out.append('Z');
}

// The listing as a JSON array, one file per line, written as it is read: a whole document in memory
// would cost several times the index.
bool printJson(const IPhoneBackupReader& reader, const EntryFilter& filter, QTextStream& out)
{
    Utf8Output output(out);
    QByteArray& line = output.buffer();
    bool any = false;
    reader.forEachRow(filter, [&](const EntryRow& row) {
        const MBFileInfo meta = row.meta();
        line.append(any ? ",\n  {\"fileID\": " : "[\n  {\"fileID\": ");
        any = true;
        output.appendJson(row.fileID);
        line.append(", \"domain\": ");
        output.appendJson(row.domain);
        line.append(", \"path\": ");
        output.appendJson(row.path);
        line.append(", \"size\": ").append(QByteArray::number(meta.size)).append(", \"modified\": ");
        if (meta.mtime) {
            line.append('"');
            appendIsoDate(line, *meta.mtime);
            line.append('"');
        } else {
            line.append("null");
        }
        line.append(", \"protectionClass\": ").append(QByteArray::number(meta.protectionClass)).append('}');
        output.lineDone();
    });
    line.append(any ? "\n]\n" : "[]\n");
    return any;
}

// The listing as aligned columns, written as it is read. The path comes last, so that no column waits
// for the longest path of the backup; the domain column is as wide as the longest domain the index
// names, which its index on domains gives at once.
bool printTable(const IPhoneBackupReader& reader, const EntryFilter& filter, QTextStream& out)
{
    const QLocale locale = Localizer::locale();
    const QString domainTitle = L("Domaine");
    const QString sizeTitle = L("Taille");
    qsizetype domainWidth = displayWidth(domainTitle);
    const QStringList domains = filter.domain   ? QStringList{*filter.domain}
                                : filter.photos ? QStringList{BackupCatalogue::cameraRollDomain}
                                                : reader.knownDomains();
    for (const QString& domain : domains)
        domainWidth = std::max(domainWidth, displayWidth(escapedControls(domain)));
    // The widest sizes: four digits before the unit changes ("1023.99 KiB", "1 023,99 Kio").
    qsizetype sizeWidth = displayWidth(sizeTitle);
    for (const qint64 widest : {qint64(1024) * 1024 - 1, (qint64(1) << 40) - 1})
        sizeWidth = std::max(sizeWidth, displayWidth(locale.formattedDataSize(widest)));
    const auto padded = [](const QString& text, qsizetype width, bool right) -> QByteArray {
        const QByteArray spaces(std::max<qsizetype>(0, width - displayWidth(text)), ' ');
        return right ? spaces + text.toUtf8() : text.toUtf8() + spaces;
    };

    Utf8Output output(out);
    QByteArray& line = output.buffer();
    bool any = false;
    QByteArray domainBytes;
    QByteArray domainCell;
    reader.forEachRow(filter, [&](const EntryRow& row) {
        if (!any) {
            line.append(padded(domainTitle, domainWidth, false) + "  " + padded(sizeTitle, sizeWidth, true) + "  " +
                        L("Chemin").toUtf8() + '\n');
            any = true;
        }
        if (row.domain != domainBytes) { // rows come in runs of one domain
            domainBytes = row.domain.toByteArray();
            domainCell = padded(escapedControls(QString::fromUtf8(row.domain)), domainWidth, false);
        }
        line.append(domainCell).append("  ");
        line.append(padded(locale.formattedDataSize(row.meta().size), sizeWidth, true)).append("  ");
        output.appendEscaped(row.path);
        line.append('\n');
        output.lineDone();
    });
    return any;
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
    bool any = false;
    try {
        any = line.json ? printJson(*opened.reader, filterOf(line), out)
                        : printTable(*opened.reader, filterOf(line), out);
    } catch (const BackupReadError& error) {
        err << escapedControls(error.message()) << '\n';
        return exitCodeFor(error);
    }
    opened.reader->cleanup();
    if (!any && !line.json)
        err << L("Aucun fichier ne correspond.") << '\n';
    return any ? Found : NothingFound;
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
        entries = reader.loadEntries(filterOf(line));
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
