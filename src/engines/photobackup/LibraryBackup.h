#pragma once

#include "engines/photobackup/PhotosLibrary.h"

#include <QStringList>

#include <chrono>
#include <functional>
#include <optional>

namespace nuvrel {

struct LibraryProgress
{
    int done = 0; ///< resources handled before the one in hand
    int total = 0;
    QString item; ///< the name of the file in hand
};

struct LibraryOutcome
{
    enum class End {
        Finished,
        Stopped,
        NotEnoughSpace,    ///< refused before a file was copied; endMessage says how much is free
        DestinationFailed, ///< the destination refused a write
        SourceGone,        ///< the library's disk went away
    };
    End end = End::Finished;
    int copied = 0;
    int skipped = 0;
    int failed = 0;
    QStringList failLog;
    QString lastError;
    QString endMessage;
};

/// How a library backup runs; tests shorten the watchdog and say how much room there is.
struct LibraryBackupOptions
{
    std::chrono::milliseconds watchdog{std::chrono::seconds(900)};
    QDateTime now = QDateTime::currentDateTime();
    const std::atomic<bool>* abort = nullptr;
    /// The destination volume's free bytes; read from the system when not given.
    std::optional<qint64> availableBytes;
};

/// The backup of a Photos library: every resource of every asset, oldest first, into the month folders
/// of the destination, each once. What was saved is recorded in the destination itself
/// (".Nuvrel-ignores.json"), so a library backed up to two disks is backed up whole on each.
class LibraryBackup final
{
public:
    using Progress = std::function<void(const LibraryProgress&)>;

    /// 15 GB, decimal: the room a backup must find before it starts.
    static constexpr qint64 minimumFreeBytes = 15'000'000'000;

    static QString recordName() { return QStringLiteral(".Nuvrel-ignores.json"); }
    static QString failListName() { return QStringLiteral("Nuvrel-echecs-photos.txt"); }

    /// The refusal for `availableBytes` free, or nothing when that is enough.
    static std::optional<QString> spaceProblem(qint64 availableBytes);

    /// Copies what the record does not hold yet. Blocks: call it off the GUI thread.
    static LibraryOutcome run(const QString& package, const QList<LibraryAsset>& assets, const QString& destination,
                              const Progress& progress = {}, const std::atomic<bool>* stop = nullptr,
                              const LibraryBackupOptions& options = {});
};

} // namespace nuvrel
