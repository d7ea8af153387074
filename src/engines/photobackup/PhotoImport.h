#pragma once

#include "platform/PhoneCamera.h"

#include <QStringList>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

namespace nuvrel {

class CopyHistory;

/// Where a run of the import stands, for its progress.
struct ImportProgress
{
    int position = 0; ///< of the file in hand, from 1
    int total = 0;
    QString fileName;
    qint64 fileBytesDone = 0;
    qint64 fileBytes = 0;
    int copied = 0;
    int skipped = 0; ///< already copied by an earlier run
    int failed = 0;
};

/// How a run ended, and what it did.
struct ImportOutcome
{
    enum class End {
        Finished,          ///< every file was tried
        Stopped,           ///< the user stopped it, after the file in hand
        SourceSilent,      ///< too many failures in a row: the phone stopped answering
        SourceGone,        ///< the phone or the folder went away
        DestinationFailed, ///< the destination cannot be written to (missing, full, read-only)
    };
    End end = End::Finished;
    int copied = 0;
    int skipped = 0;
    int failed = 0;
    int refusedBySource = 0; ///< failures the source itself reported while reading
    QStringList failLog;     ///< "name : reason", one per failed file
    QString lastError;       ///< the last failure's reason
    QString endMessage;      ///< why the run stopped early; empty when it finished or was stopped

    /// "%@ copiés, %@ déjà présents, %@ échecs.", in the language in force.
    QString summary() const;
};

struct PhotoImportOptions
{
    /// A file whose bytes have not all arrived by then fails, and the run goes on.
    std::chrono::milliseconds watchdog{std::chrono::seconds(120)};
    /// Failures in a row after which the source is taken to have stopped answering.
    int maxConsecutiveFailures = 300;
    /// "Now", for the month folders' sanity check of dates.
    QDateTime now = QDateTime::currentDateTime();
    /// Set by a quitting program: the file in hand is dropped instead of finished.
    const std::atomic<bool>* abort = nullptr;
};

/// The copy loop of the photo import: one file at a time into month folders under `destination`,
/// each written under a temporary name, dated, and then named, so that a pulled cable never leaves a
/// truncated photo under a real name; each file copied is recorded in the history at once.
class PhotoImport final
{
public:
    using Progress = std::function<void(const ImportProgress&)>;

    /// "Nuvrel-echecs.txt".
    static QString failLogName();

    /// Copies `queue` (in its order). `stop` ends the run after the file in hand. Blocks: call it off
    /// the GUI thread. The history is saved and the failure log written at the end.
    static ImportOutcome run(const std::shared_ptr<CameraSource>& source, const QList<CameraFile>& queue,
                             const QString& destination, CopyHistory& history, const Progress& progress = {},
                             const std::atomic<bool>* stop = nullptr, const PhotoImportOptions& options = {});
};

} // namespace nuvrel
