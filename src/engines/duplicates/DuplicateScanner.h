#pragma once

#include <QDateTime>
#include <QImage>
#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <optional>
#include <vector>

namespace nuvrel {

class Trash;

/// One file met by a scan.
struct DupFile
{
    QString path;
    qint64 size = 0;
    QDateTime created;   ///< the file system's creation date, or its modification date where it keeps none
    QDateTime modified;  ///< to tell, before it goes to the trash, that it has not changed since the scan
    QString fingerprint; ///< for members of identical groups: their contents at the scan
};

/// A file of a group and whether the user sends it to the trash.
struct DupItem
{
    DupFile file;
    bool marked = false;
};

/// Files that belong together: copies of one content, or photos that look alike.
struct DupGroup
{
    enum class Kind { Identical, Similar };

    Kind kind = Kind::Identical;
    QList<DupItem> items; ///< the oldest first: the one kept unless the user says otherwise

    /// The bytes freed by trashing the marked items.
    qint64 recoverable() const;
};

/// What a scan found.
struct DupScan
{
    QList<QList<DupFile>> exact;
    QList<QList<DupFile>> similar;
    int skippedBundles = 0;
    int unreadable = 0; ///< entries or files that could not be read: in no group
};

/// What sending the marked files of some groups to the trash did.
struct DupTrashReport
{
    QStringList trashed;
    qint64 freed = 0;
    QStringList changed;     ///< changed or gone since the scan: left where they are
    QStringList failed;      ///< the trash refused them: left where they are
    QStringList keptMissing; ///< kept files gone or changed: their groups trashed nothing
    QStringList differing;   ///< large files alike in their samples, not in full: left where they are
};

/// What a listing met besides the files it kept.
struct DupListing
{
    QList<DupFile> files;
    int skippedBundles = 0; ///< applications, Photos libraries… not entered
    int unreadable = 0;     ///< entries the system refused to tell or to open
};

/// Finds the files of a folder whose contents are the same, and the photos that look alike. Never
/// writes anything; sends to the trash only what the user marked and what has not changed since.
class DuplicateScanner final
{
public:
    DuplicateScanner() = delete;

    /// The setting that remembers the folder last searched.
    static constexpr char folderSettingsKey[] = "duplicatesFolder";

    /// Files are hashed whole up to this size, and sampled above it.
    static constexpr qint64 wholeHashLimit = 300'000'000;
    static constexpr qint64 sampleBytes = qint64(8) * 1024 * 1024;

    /// `done` of `total` files compared, for a progress line.
    using Progress = std::function<void(qint64 done, qint64 total)>;
    /// A line of text and the fraction done, from 0 to 1.
    using ScanProgress = std::function<void(const QString& text, double fraction)>;

    /// Hashes with fewer or more bits set than these belong to nearly uniform pictures, which would
    /// match one another falsely.
    static constexpr int minHashBits = 6;
    static constexpr int maxHashBits = 58;
    /// Hashes this close are similar photos whatever their dates…
    static constexpr int alwaysSimilarDistance = 2;
    /// …and up to this one, when taken less than an hour apart.
    static constexpr int similarDistance = 6;
    static constexpr qint64 similarSeconds = 3600;
    /// Where the photo phase starts in a scan's progress.
    static constexpr double photoPhaseStart = 0.46;

    /// The exact groups and, `withSimilar`, the groups of photos that look alike, with the progress
    /// lines "Comparaison exacte : …" and "Comparaison des photos : …". Photos already in an exact
    /// group take no part in the photo phase. Cancelled, it returns what it has: check `cancel`.
    static DupScan scan(const QString& folder, bool withSimilar, const ScanProgress& progress = {},
                        const std::atomic<bool>* cancel = nullptr);

    /// Every regular file under `folder`, at any depth: hidden files and folders skipped, bundles
    /// counted but not entered, links never followed, a file reached by several hard links listed
    /// once (they are one file, not copies), empty files left out (there is nothing to recover).
    static DupListing listFiles(const QString& folder, const std::atomic<bool>* cancel = nullptr);

    /// SHA-256 of the file in lower-case hexadecimal: of its whole contents up to wholeHashLimit
    /// bytes; above it, of three 8 MiB samples (the start, the middle, the end), so that two files
    /// of one size that agree there count as the same. Nothing when the file cannot be read whole.
    static std::optional<QString> fingerprint(const QString& path, qint64 size);

    /// Groups of files with the same contents, each with at least two members: members oldest first
    /// (the first is the one to keep), groups by the room they take, largest first; each member carries
    /// its fingerprint. Only files that share their size are read, first their first and last 4 KiB;
    /// files whose edges agree are then read side by side and compared, each group hashed as it is
    /// read, two sets of files at a time. Progress counts the files of the sets compared.
    /// `unreadable`, when given, counts the files that could not be read through.
    static QList<QList<DupFile>> exactGroups(const QList<DupFile>& files, const Progress& progress = {},
                                             const std::atomic<bool>* cancel = nullptr, int* unreadable = nullptr);

    /// The order of both kinds of groups: members by creation date, groups by size × count.
    static void sortGroups(QList<QList<DupFile>>& groups);

    /// Whether the photo phase looks at this file: by its extension, among the pictures we decode.
    static bool isImage(const QString& path);

    /// The difference hash of a picture: a thumbnail decoded at a fraction of its size and turned
    /// upright, reduced to 9 × 8 grey pixels; a bit is set where a pixel is brighter than its right
    /// neighbour. Nothing when it cannot be decoded.
    static std::optional<quint64> dHash(const QString& path);
    /// The same, of a picture already decoded.
    static quint64 dHash(const QImage& image);

    /// A photo for the photo phase: its hash and when it was taken.
    struct PhotoPrint
    {
        quint64 hash = 0;
        QDateTime taken;
    };
    /// Whether two photos look alike: at most 2 bits apart, or at most 6 and taken within the hour.
    static bool areSimilar(const PhotoPrint& a, const PhotoPrint& b);
    /// The photos linked into groups through their similar pairs (a burst is one group, even where its
    /// first and last shots differ more): lists of indexes, each sorted, in the order of their first.
    /// Hashes that are nearly uniform take no part. Indexed by hash blocks, not compared in pairs.
    static QList<QList<qsizetype>> linkSimilar(const std::vector<PhotoPrint>& photos,
                                               const std::atomic<bool>* cancel = nullptr);
    /// The groups of similar photos among `files`: hashed two at a time (progress as files done),
    /// dated by their Exif capture date, else by their creation date.
    static QList<QList<DupFile>> similarGroups(const QList<DupFile>& files, const Progress& progress = {},
                                               const std::atomic<bool>* cancel = nullptr);

    /// Whether a file is still what the scan saw: same size and modification time, and for identical
    /// files the same fingerprint (an identical file without one is never taken as unchanged).
    static bool isUnchanged(const DupFile& file, DupGroup::Kind kind);

    /// Sends the marked files of each group to the trash, after checking that the group still keeps an
    /// unchanged file and that each marked file is unchanged; a marked file of an identical group too
    /// large to be hashed whole is first compared in full with the kept one. Nothing that changed
    /// since the scan goes, a group never loses every member, and nothing is ever deleted.
    static DupTrashReport moveMarkedToTrash(const QList<DupGroup>& groups, Trash& trash, const Progress& progress = {},
                                            const std::atomic<bool>* cancel = nullptr);
};

} // namespace nuvrel
