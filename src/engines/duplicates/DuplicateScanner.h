#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

#include <atomic>
#include <functional>
#include <optional>

namespace nuvrel {

/// One file met by a scan.
struct DupFile
{
    QString path;
    qint64 size = 0;
    QDateTime created; ///< the file system's creation date, or its modification date where it keeps none
};

/// What a listing met besides the files it kept.
struct DupListing
{
    QList<DupFile> files;
    int skippedBundles = 0; ///< applications, Photos libraries… not entered
    int unreadable = 0;     ///< entries the system refused to tell or to open
};

/// Finds the files of a folder whose contents are the same. Never writes anything.
class DuplicateScanner final
{
public:
    DuplicateScanner() = delete;

    /// Files are hashed whole up to this size, and sampled above it.
    static constexpr qint64 wholeHashLimit = 300'000'000;
    static constexpr qint64 sampleBytes = qint64(8) * 1024 * 1024;

    /// `done` of `total` files compared, for a progress line.
    using Progress = std::function<void(qint64 done, qint64 total)>;

    /// Every regular file under `folder`, at any depth: hidden files and folders skipped, bundles
    /// counted but not entered, links never followed, a file reached by several hard links listed
    /// once (they are one file, not copies), empty files left out (there is nothing to recover).
    static DupListing listFiles(const QString& folder, const std::atomic<bool>* cancel = nullptr);

    /// SHA-256 of the file in lower-case hexadecimal: of its whole contents up to wholeHashLimit
    /// bytes; above it, of three 8 MiB samples (the start, the middle, the end), so that two files
    /// of one size that agree there count as the same. Nothing when the file cannot be read whole.
    static std::optional<QString> fingerprint(const QString& path, qint64 size);

    /// Groups of files with the same contents, each with at least two members: members oldest first
    /// (the first is the one to keep), groups by the room they take, largest first. Only files that
    /// share their size are read, first their first and last 4 KiB, and in full only when those agree;
    /// two files are read at a time.
    static QList<QList<DupFile>> exactGroups(const QList<DupFile>& files, const Progress& progress = {},
                                             const std::atomic<bool>* cancel = nullptr);

    /// The order of both kinds of groups: members by creation date, groups by size × count.
    static void sortGroups(QList<QList<DupFile>>& groups);
};

} // namespace nuvrel
