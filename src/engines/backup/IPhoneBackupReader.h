#pragma once

#include "engines/backup/BackupEntry.h"
#include "engines/backup/BackupKeyBag.h"
#include "engines/backup/BackupReadError.h"
#include "engines/backup/PhoneBackup.h"

#include <QFile>
#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace nuvrel {

class ImmutableDatabase;
class WorkFolder;

/// Which files a listing keeps; each member that is set narrows it. Comparisons are case-sensitive,
/// as the phone's paths are: "media/dcim/" is not "Media/DCIM/".
struct EntryFilter
{
    std::optional<QString> domain;     ///< exactly this domain
    std::optional<QString> pathPrefix; ///< paths that start with this text
    bool photos = false;               ///< camera-roll photos and videos only (BackupCatalogue::isPhoto)

    bool keeps(const BackupEntry& entry) const;
};

/// One file of the index as it is read, without a copy: the views are valid only during the call
/// that passes the row. A listing of hundreds of thousands of files streams these rather than
/// building a BackupEntry for each.
struct EntryRow
{
    QByteArrayView fileID; ///< UTF-8, as the index stores it
    QByteArrayView domain;
    QByteArrayView path;
    QByteArrayView blob;               ///< the keyed archive; empty when the row has none
    const MBFileInfo* known = nullptr; ///< the oldest layout's facts, given instead of a blob

    /// The file's facts, as BackupEntry::meta() reads them.
    MBFileInfo meta() const;
};

/// Opens one backup folder, lists its files and copies (or decrypts) any of them out.
/// Nothing in the backup folder is ever written: the index is opened read-only and immutable, and an
/// encrypted index is decrypted into the reader's own temporary folder. Errors are BackupReadError.
/// Use one reader from one thread at a time; create it off the GUI thread (unlocking is slow).
class IPhoneBackupReader final
{
public:
    /// Opens the backup; `password` is empty when none was given. `cancel` stops a slow unlock, which
    /// then reports a wrong password; the caller knows it cancelled.
    IPhoneBackupReader(PhoneBackup backup, const QString& password, const std::atomic<bool>* cancel = nullptr);
    ~IPhoneBackupReader();
    Q_DISABLE_COPY_MOVE(IPhoneBackupReader)

    const PhoneBackup& backup() const { return m_backup; }
    bool isEncrypted() const { return m_keybag.has_value(); }

    /// Every file of the backup that `filter` keeps, in the order of forEachRow(), each with its facts
    /// already read (preMeta). Folders and links are not listed.
    QList<BackupEntry> loadEntries(const EntryFilter& filter = {}) const;

    /// Passes each file that `filter` keeps to `visit`, holding none of them: memory stays flat whatever
    /// the backup's size. The filters run inside the index query, through the index's own indexes, so
    /// that rows they leave out are never read. Files come in index order, except with a path prefix:
    /// then in the order of their paths. Throws BackupReadError when the index cannot be queried.
    void forEachRow(const EntryFilter& filter, const std::function<void(const EntryRow&)>& visit) const;

    /// Every domain the index names (for files, folders or links), each once, in no particular order:
    /// read from the index on domains alone, in a few milliseconds.
    QStringList knownDomains() const;

    /// Where the stored copy of a file lies (two-level layout first, then flat); nothing when absent or
    /// when the identifier is not 40 lowercase hexadecimal digits.
    std::optional<QString> storedURL(const QString& fileID) const;

    /// Copies or decrypts the entry to `destination`, or to "name (2).ext", "name (3).ext"… when taken;
    /// returns the path written. The file is written under a temporary name and named when complete,
    /// with its modification time: a failed or cancelled copy leaves nothing behind.
    QString extract(const BackupEntry& entry, const QString& destination,
                    const std::atomic<bool>* cancel = nullptr) const;

    /// A readable plain copy of the entry under the temporary folder, keeping `name` and its extension.
    QString openableURL(const BackupEntry& entry, const QString& name) const;

    /// The unwrapped AES key of an encrypted file.
    QByteArray fileKey(const MBFileInfo& meta) const;

    /// Writes the plain contents of an encrypted entry to `output`, exactly meta.size bytes.
    void decrypt(const BackupEntry& entry, QIODevice& output, const std::atomic<bool>* cancel = nullptr) const;

    /// The plain contents of a file that fits in memory, for a preview; throws when it is larger than
    /// `maxBytes` or cannot be read. Safe to call from several threads once the index is closed.
    QByteArray contents(const BackupEntry& entry, qint64 maxBytes) const;

    /// The reader's temporary folder: <data>/Nuvrel/Temp/<id>/<reader>, owner-only (see WorkFolder).
    QString tempDir() const;

    /// Closes the index and deletes its decrypted copy, if one was made.
    void closeDatabase();
    /// Deletes the whole temporary folder.
    void cleanup();

private:
    void openEncrypted(const QString& password, const std::atomic<bool>* cancel, const QString& manifest);
    void openDatabase(const QString& path);
    void decryptIndex(const QString& manifest, const QByteArray& key);
    void openPlainIndex(const QString& manifest);
    /// storedURL, or the error that says why there is none: missing, or not a regular file of the backup.
    QString requireStored(const QString& fileID) const;

    PhoneBackup m_backup;
    std::unique_ptr<WorkFolder> m_work;
    std::unique_ptr<ImmutableDatabase> m_db;
    std::optional<BackupKeyBag> m_keybag;
    std::optional<QString> m_tempDB;
    std::optional<QList<BackupEntry>> m_legacyEntries;
};

} // namespace nuvrel
