#pragma once

#include "engines/backup/BackupEntry.h"
#include "engines/backup/PhoneBackup.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <array>
#include <atomic>
#include <functional>
#include <optional>

namespace nuvrel {

class IPhoneBackupReader;

/// Getting a batch of files out of a backup into a folder: the one routine, with its safety rules, for
/// the window and the CLI. Everything in a backup's index is untrusted: no domain or path it holds can
/// place a file outside the destination, and nothing is ever written inside a backup or the backups folder.
class Extraction final
{
public:
    /// One file to get out, and where below the destination it goes, as raw components (a domain, the
    /// parts of a path); they are cleaned before use.
    struct Item
    {
        BackupEntry entry;
        QStringList place;
    };

    enum class Failure { Missing, Undecryptable, Unwritable, Refused };
    static constexpr int failureKinds = 4;

    struct Report
    {
        int done = 0;
        std::array<int, failureKinds> failed{};
        QStringList refused;                    ///< the index's own paths of refused entries, made printable
        std::optional<QString> firstWriteError; ///< its message, for a report that says why
        bool stopped = false;                   ///< asked to stop before the end
        QString destination;                    ///< cleaned and absolute

        int failures(Failure why) const { return failed[size_t(why)]; }
        int totalFailed() const;
    };

    struct Options
    {
        /// Stops between two files; the file in hand is finished.
        const std::atomic<bool>* stop = nullptr;
        /// Stops at once, even inside a file, whose partial copy is removed (quitting).
        const std::atomic<bool>* abort = nullptr;
        /// Before each file and at the end: files handled so far, and the total.
        std::function<void(qsizetype done, qsizetype total)> progress;
    };

    /// The place of each kind of batch: photos side by side; a folder keeping its own name and its
    /// inside; anything else under its domain and path.
    static Item photo(const BackupEntry& entry);
    static Item belowFolder(const BackupEntry& entry, const QString& folderName, const QString& pathBelow);
    static Item byDomain(const BackupEntry& entry);

    /// A component made safe for a file name: NUL, "/" and control characters become "_", and it is cut
    /// to 255 bytes of UTF-8, keeping its extension. Empty, "." and ".." come back empty: they are dropped.
    static QString cleanComponent(const QString& component);
    /// The cleaned relative path of `place`, or nothing when nothing is left of it.
    static std::optional<QString> cleanPath(const QStringList& place);

    /// Whether `destination` lies in `backup`'s folder or in the folder of backups `backupsRoot`, where
    /// nothing may be written; symbolic links and folders still to be created are resolved.
    static bool isForbiddenDestination(const QString& destination, const PhoneBackup& backup,
                                       const QString& backupsRoot);

    /// Extracts every item in order; a failing file is counted by its reason and the batch goes on.
    static Report run(const IPhoneBackupReader& reader, const QList<Item>& items, const QString& destination,
                      const Options& options);
};

} // namespace nuvrel
