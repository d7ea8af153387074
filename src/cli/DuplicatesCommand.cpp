#include "cli/DuplicatesCommand.h"

#include "cli/TextTable.h"
#include "engines/duplicates/DuplicateScanner.h"
#include "l10n/L.h"
#include "platform/system/SystemTrash.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSettings>

namespace nuvrel::cli {

namespace {

QString shownPath(const QString& path)
{
    return escapedControls(QDir::toNativeSeparators(path));
}

qint64 extraBytes(const QList<QList<DupFile>>& groups)
{
    qint64 total = 0;
    for (const QList<DupFile>& group : groups)
        total += group.constFirst().size * (group.size() - 1);
    return total;
}

void printGroups(QTextStream& out, const QString& title, const QList<QList<DupFile>>& groups)
{
    out << title << '\n';
    for (const QList<DupFile>& group : groups) {
        TextTable table;
        for (qsizetype i = 0; i < group.size(); ++i) {
            const DupFile& file = group[i];
            table.addRow({i == 0 ? L("à garder") : QString(), Localizer::formatByteCount(file.size),
                          Localizer::formatDateTime(file.created), shownPath(file.path)});
        }
        out << '\n';
        table.print(out);
    }
}

void printJsonGroups(QTextStream& out, const char* name, const QList<QList<DupFile>>& groups)
{
    out << "  \"" << name << "\": [";
    for (qsizetype g = 0; g < groups.size(); ++g) {
        out << (g == 0 ? "\n    [" : ",\n    [");
        for (qsizetype i = 0; i < groups[g].size(); ++i) {
            const DupFile& file = groups[g][i];
            out << (i == 0 ? "\n      {" : ",\n      {") << "\"path\": " << jsonQuoted(file.path)
                << ", \"size\": " << file.size
                << ", \"created\": " << jsonQuoted(file.created.toUTC().toString(Qt::ISODate));
            if (!file.fingerprint.isEmpty())
                out << ", \"sha256\": " << jsonQuoted(file.fingerprint);
            out << '}';
        }
        out << "\n    ]";
    }
    out << (groups.isEmpty() ? "]" : "\n  ]");
}

} // namespace

int runDuplicates(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    QSettings settings;
    QString folder = line.arguments.value(0);
    if (folder.isEmpty())
        folder = settings.value(QLatin1StringView(DuplicateScanner::folderSettingsKey)).toString();
    if (folder.isEmpty()) {
        err << L("Précise le dossier où chercher les doublons.") << '\n';
        return BadUsage;
    }
    if (line.trash && !line.yes) {
        err << L("Ajoute %@ pour confirmer la mise à la Corbeille.", QStringLiteral("--yes")) << '\n';
        return BadUsage;
    }
    folder = QFileInfo(folder).absoluteFilePath();
    if (!QFileInfo(folder).isDir()) {
        err << L("Dossier introuvable : %@", shownPath(folder)) << '\n';
        return BackupUnreadable;
    }
    settings.setValue(QLatin1StringView(DuplicateScanner::folderSettingsKey), QDir::cleanPath(folder));

    const bool showProgress = stderrIsTerminal();
    QElapsedTimer clock;
    clock.start();
    qsizetype lastWidth = 0;
    const DupScan scan = DuplicateScanner::scan(folder, line.similar, [&](const QString& text, double) {
        if (!showProgress || clock.elapsed() < 200)
            return;
        clock.restart();
        err << '\r' << text << QString(std::max<qsizetype>(0, lastWidth - text.size()), u' ');
        lastWidth = text.size();
        err.flush();
    });
    if (showProgress && lastWidth > 0)
        err << '\r' << QString(lastWidth, u' ') << '\r';

    if (line.json) {
        out << "{\n  \"folder\": " << jsonQuoted(folder) << ",\n";
        printJsonGroups(out, "identical", scan.exact);
        out << ",\n";
        if (line.similar) {
            printJsonGroups(out, "similar", scan.similar);
            out << ",\n";
        }
        out << "  \"recoverable\": " << extraBytes(scan.exact) << ",\n  \"skippedBundles\": " << scan.skippedBundles
            << ",\n  \"unreadable\": " << scan.unreadable << "\n}\n";
    } else {
        if (!scan.exact.isEmpty())
            printGroups(out, L("Fichiers identiques"), scan.exact);
        if (!scan.similar.isEmpty()) {
            if (!scan.exact.isEmpty())
                out << '\n';
            printGroups(out, L("Photos qui se ressemblent"), scan.similar);
        }
        if (!scan.exact.isEmpty() || !scan.similar.isEmpty())
            out << '\n';
        out << LN("%@ groupe(s) de fichiers identiques, %@ à récupérer", scan.exact.size(),
                  Localizer::locale().toString(scan.exact.size()), Localizer::formatByteCount(extraBytes(scan.exact)))
            << '\n';
        if (line.similar)
            out << LN("%@ groupe(s) de photos qui se ressemblent", scan.similar.size(),
                      Localizer::locale().toString(scan.similar.size()))
                << '\n';
    }
    if (scan.unreadable > 0)
        err << LN("%@ élément(s) illisible(s) laissé(s) de côté", scan.unreadable,
                  Localizer::locale().toString(scan.unreadable))
            << '\n';
    out.flush();

    if (!line.trash)
        return scan.exact.isEmpty() && scan.similar.isEmpty() ? NothingFound : Found;

    // Only the extra copies of identical files: similar photos are not copies.
    QList<DupGroup> groups;
    for (const QList<DupFile>& files : scan.exact) {
        DupGroup group;
        for (qsizetype i = 0; i < files.size(); ++i)
            group.items.append({files[i], i > 0});
        groups.append(group);
    }
    SystemTrash trash;
    const DupTrashReport report = DuplicateScanner::moveMarkedToTrash(groups, trash);
    for (const QString& path : report.keptMissing)
        err << L("Le fichier à garder a changé ou disparu : rien n'est mis à la Corbeille dans son groupe (%@).",
                 shownPath(path))
            << '\n';
    for (const QString& path : report.changed)
        err << L("Modifié depuis la recherche, laissé en place : %@", shownPath(path)) << '\n';
    for (const QString& path : report.differing)
        err << L("Pas tout à fait identique au fichier gardé, laissé en place : %@", shownPath(path)) << '\n';
    for (const QString& path : report.failed)
        err << L("Impossible de mettre à la Corbeille : %@", shownPath(path)) << '\n';
    // The JSON document stays whole on standard output.
    (line.json ? err : out) << LN("%@ fichier(s) envoyé(s) à la Corbeille (%@ libérés).", report.trashed.size(),
                                  Localizer::locale().toString(report.trashed.size()),
                                  Localizer::formatByteCount(report.freed))
                            << '\n';
    const bool complete = report.changed.isEmpty() && report.failed.isEmpty() && report.keptMissing.isEmpty() &&
                          report.differing.isEmpty();
    if (!complete)
        return SomeFilesFailed;
    return scan.exact.isEmpty() && scan.similar.isEmpty() ? NothingFound : Found;
}

} // namespace nuvrel::cli
