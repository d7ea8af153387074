#include "engines/photobackup/LibraryBackup.h"

#include "engines/photobackup/CopyHistory.h"
#include "engines/photobackup/FileCopy.h"
#include "engines/photobackup/FolderSource.h"
#include "engines/photobackup/ImportRules.h"
#include "ground/ExistingFolder.h"
#include "ground/FileScan.h"
#include "ground/FreeName.h"
#include "ground/NewFile.h"
#include "l10n/L.h"

#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>

namespace nuvrel {

namespace {

bool isSet(const std::atomic<bool>* flag)
{
    return flag && flag->load(std::memory_order_relaxed);
}

void writeFailList(const QString& destination, const QStringList& lines)
{
    try {
        NewFile out(QDir(destination).filePath(LibraryBackup::failListName()), FreeNameStyle::Hyphenated);
        const QByteArray bytes = lines.join(u'\n').toUtf8();
        if (out.device().write(bytes) == bytes.size())
            out.commitReplacing();
    } catch (const LocalizedError&) {
        // The run already reported each failure; a destination that refuses the list refused them too.
    }
}

} // namespace

std::optional<QString> LibraryBackup::spaceProblem(qint64 availableBytes)
{
    if (availableBytes < 0 || availableBytes >= minimumFreeBytes)
        return std::nullopt;
    return L("Il ne reste que %@ Go libres sur ton Mac. Libère de la place (au moins 15 Go) avant de copier.",
             availableBytes / 1'000'000'000);
}

LibraryOutcome LibraryBackup::run(const QString& package, const QList<LibraryAsset>& assets, const QString& destination,
                                  const Progress& progress, const std::atomic<bool>* stop,
                                  const LibraryBackupOptions& options)
{
    LibraryOutcome outcome;
    qint64 available = -1;
    if (options.availableBytes) {
        available = *options.availableBytes;
    } else if (const QString existing = nearestExistingPath(destination); !existing.isEmpty()) {
        const QStorageInfo volume(existing);
        available = volume.isValid() ? volume.bytesAvailable() : -1;
    }
    if (const std::optional<QString> problem = spaceProblem(available)) {
        outcome.end = LibraryOutcome::End::NotEnoughSpace;
        outcome.endMessage = *problem;
        return outcome;
    }
    if (!QDir().mkpath(destination)) {
        outcome.end = LibraryOutcome::End::DestinationFailed;
        outcome.endMessage = L("Impossible de créer le dossier de destination.");
        return outcome;
    }
    CopyHistory record(QDir(destination).filePath(recordName()));
    record.load();
    // The package read as a folder: only the paths the database gave, cleaned, inside it.
    const auto source = std::make_shared<FolderSource>(package, QString());
    LibraryProgress state;
    for (const LibraryAsset& asset : assets)
        state.total += int(asset.resources.size());
    for (const LibraryAsset& asset : assets) {
        for (const LibraryResource& resource : asset.resources) {
            if (isSet(stop) || isSet(options.abort)) {
                outcome.end = LibraryOutcome::End::Stopped;
                break;
            }
            state.item = resource.displayName;
            if (progress)
                progress(state);
            ++state.done;
            const QString key = asset.key(resource);
            if (record.contains(key)) {
                ++outcome.skipped;
                continue;
            }
            const auto fail = [&](const QString& reason) {
                ++outcome.failed;
                outcome.failLog.append(resource.displayName + QStringLiteral(" : ") + reason);
                outcome.lastError = reason;
            };
            // A file that is missing from a library still there is kept in iCloud only; when the
            // library itself is gone (its disk unplugged), the run stops instead of failing the rest.
            const auto libraryGone = [&] {
                if (source->isPresent())
                    return false;
                outcome.end = LibraryOutcome::End::SourceGone;
                outcome.endMessage = L("« %@ » n'est plus accessible : la copie s'est arrêtée. Rebranche-le, puis "
                                       "réessaie : ce qui est déjà copié sera ignoré.",
                                       QFileInfo(package).fileName());
                return true;
            };
            const std::optional<EntryStatus> status = entryStatus(resource.path);
            if (!status || status->type != EntryStatus::Type::File) {
                if (libraryGone())
                    break;
                fail(L("l'original n'est pas dans la photothèque (il est peut-être seulement dans iCloud)"));
                continue;
            }
            CameraFile file;
            file.path = resource.path;
            file.name = resource.displayName;
            file.size = status->size;
            file.created = asset.created;
            FileCopy copy;
            copy.watchdog = options.watchdog;
            copy.abort = options.abort;
            copy.emptyReason = L("fichier vide");
            const QString folder = QDir(destination).filePath(monthFolderName(asset.created, options.now));
            const QString name = resource.displayName;
            const FileCopyResult result = copy.run(source, file, folder, name, [&name](int n) {
                return numberedName(name, n, FreeNameStyle::Hyphenated);
            });
            if (result.kind == FileCopyResult::Kind::Copied) {
                record.record(key);
                ++outcome.copied;
            } else if (result.kind == FileCopyResult::Kind::Aborted) {
                outcome.end = LibraryOutcome::End::Stopped;
                break;
            } else if (result.kind == FileCopyResult::Kind::DestinationFailed) {
                outcome.end = LibraryOutcome::End::DestinationFailed;
                outcome.endMessage = result.reason;
                break;
            } else {
                if (libraryGone())
                    break;
                fail(result.reason);
            }
        }
        if (outcome.end != LibraryOutcome::End::Finished)
            break;
    }
    record.save();
    if (!outcome.failLog.isEmpty())
        writeFailList(destination, outcome.failLog);
    return outcome;
}

} // namespace nuvrel
