#include "engines/photobackup/PhotoImport.h"

#include "engines/photobackup/CopyHistory.h"
#include "engines/photobackup/FileCopy.h"
#include "engines/photobackup/ImportRules.h"
#include "ground/FreeName.h"
#include "ground/NewFile.h"
#include "ground/SystemError.h"
#include "l10n/L.h"

#include <QDir>

namespace nuvrel {

namespace {

bool isSet(const std::atomic<bool>* flag)
{
    return flag && flag->load(std::memory_order_relaxed);
}

void writeFailLog(const QString& destination, const QStringList& lines)
{
    try {
        NewFile out(QDir(destination).filePath(PhotoImport::failLogName()), FreeNameStyle::Hyphenated);
        const QByteArray bytes = lines.join(u'\n').toUtf8();
        if (out.device().write(bytes) == bytes.size())
            out.commitReplacing();
    } catch (const LocalizedError&) {
        // The log only lists what the run already reported; a destination that refuses it refused
        // the files first.
    }
}

} // namespace

QString ImportOutcome::summary() const
{
    return L("%@ copiés, %@ déjà présents, %@ échecs.", copied, skipped, failed);
}

QString PhotoImport::failLogName()
{
    return QStringLiteral("Nuvrel-echecs.txt");
}

ImportOutcome PhotoImport::run(const std::shared_ptr<CameraSource>& source, const QList<CameraFile>& queue,
                               const QString& destination, CopyHistory& history, const Progress& progress,
                               const std::atomic<bool>* stop, const PhotoImportOptions& options)
{
    ImportOutcome outcome;
    if (!QDir().mkpath(destination)) {
        outcome.end = ImportOutcome::End::DestinationFailed;
        outcome.endMessage = L("Impossible de créer le dossier de destination.");
        return outcome;
    }
    const QString device = source->deviceName();
    ImportProgress state;
    state.total = int(queue.size());
    int inARow = 0;
    for (int i = 0; i < queue.size(); ++i) {
        if (isSet(stop) || isSet(options.abort)) {
            outcome.end = ImportOutcome::End::Stopped;
            break;
        }
        const CameraFile& file = queue.at(i);
        state.position = i + 1;
        state.fileName = file.name;
        state.fileBytes = file.size;
        state.fileBytesDone = 0;
        if (progress)
            progress(state);
        const QString key = CopyHistory::key(device, file.name, file.size, file.created);
        if (history.contains(key)) {
            state.skipped = ++outcome.skipped;
            continue;
        }
        QString name = cleanFileName(file.name);
        if (name.isEmpty())
            name = QStringLiteral("sans-nom");
        const QString folder = QDir(destination).filePath(monthFolderName(file.created, options.now));
        FileCopy copy;
        copy.watchdog = options.watchdog;
        copy.abort = options.abort;
        copy.emptyReason = L("fichier reçu vide (") + L("vide") + u')';
        copy.bytesDone = [&](qint64 done) {
            state.fileBytesDone = done;
            if (progress)
                progress(state);
        };
        const QString indexed = runIndexedName(name, state.position);
        const FileCopyResult result = copy.run(source, file, folder, name, [&indexed](int n) {
            return n == 2 ? indexed : numberedName(indexed, n - 1, FreeNameStyle::Hyphenated);
        });
        if (result.kind == FileCopyResult::Kind::Copied) {
            history.record(key);
            state.copied = ++outcome.copied;
            inARow = 0;
            continue;
        }
        if (result.kind == FileCopyResult::Kind::Aborted) {
            outcome.end = ImportOutcome::End::Stopped;
            break;
        }
        if (result.kind == FileCopyResult::Kind::DestinationFailed) {
            outcome.end = ImportOutcome::End::DestinationFailed;
            outcome.endMessage = result.reason;
            break;
        }
        state.failed = ++outcome.failed;
        outcome.refusedBySource += result.bySource ? 1 : 0;
        outcome.failLog.append(file.name + QStringLiteral(" : ") + result.reason);
        outcome.lastError = result.reason;
        if (!source->isPresent()) {
            outcome.end = ImportOutcome::End::SourceGone;
            outcome.endMessage = L("« %@ » n'est plus accessible : la copie s'est arrêtée. Rebranche-le, puis "
                                   "réessaie : ce qui est déjà copié sera ignoré.",
                                   device);
            break;
        }
        if (++inARow >= options.maxConsecutiveFailures) {
            outcome.end = ImportOutcome::End::SourceSilent;
            outcome.endMessage =
                L("L'iPhone a arrêté de répondre après %@ fichiers copiés. Déverrouille-le, garde l'écran allumé "
                  "(Réglages > Luminosité et affichage > Verrouillage automatique > Jamais), puis clique sur "
                  "Réessayer : ce qui est déjà copié sera ignoré.",
                  outcome.copied);
            break;
        }
    }
    history.save();
    if (!outcome.failLog.isEmpty())
        writeFailLog(destination, outcome.failLog);
    return outcome;
}

} // namespace nuvrel
