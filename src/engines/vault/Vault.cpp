#include "engines/vault/Vault.h"

#include "engines/vault/VaultKey.h"
#include "ground/FileScan.h"
#include "platform/Trash.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QStandardPaths>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nuvrel {

namespace {

using Kind = VaultFailure::Kind;

/// What a file was when it was read: it goes to the trash only if it is still that.
struct Snapshot
{
    qint64 size = -1;
    qint64 modifiedNs = -1;
    friend bool operator==(const Snapshot&, const Snapshot&) = default;
};

std::optional<Snapshot> snapshotOf(const QString& path)
{
    struct stat status
    {};
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    return Snapshot{qint64(status.st_size), qint64(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec};
}

/// A folder that is ours alone: made 0700 when missing, refused when it is a link, another user's, or
/// open to others.
bool isPrivateFolder(const QString& path)
{
    const QByteArray native = QFile::encodeName(path);
    if (::mkdir(native.constData(), 0700) != 0 && errno != EEXIST)
        return false;
    struct stat status
    {};
    return ::lstat(native.constData(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::getuid() &&
           (status.st_mode & 077) == 0;
}

/// The vault changed by one process at a time: the window and the command line may both hold it
/// unlocked. Released when the process dies, however it dies.
class ChangeLock
{
public:
    explicit ChangeLock(const QString& folder)
    {
        const QString work = QDir(folder).filePath(QLatin1StringView(VaultStore::workFolderName));
        if (!VaultStore::makePrivateFolder(work))
            return;
        m_fd = ::open(QFile::encodeName(QDir(work).filePath(QStringLiteral("verrou"))).constData(),
                      O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        while (m_fd >= 0 && ::flock(m_fd, LOCK_EX) != 0) {
            if (errno != EINTR) {
                ::close(std::exchange(m_fd, -1));
            }
        }
    }
    ~ChangeLock()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    ChangeLock(const ChangeLock&) = delete;
    ChangeLock& operator=(const ChangeLock&) = delete;
    bool held() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

bool removeTree(const QString& path)
{
    QDir folder(path);
    return !folder.exists() || folder.removeRecursively();
}

} // namespace

Vault::Vault(const QString& folder, const QByteArray& key, QList<VaultEntry> entries)
    : m_store(folder, key)
    , m_entries(std::move(entries))
{}

Vault::Opening Vault::open(const QString& folder, SecretStore& secrets, Trash& trash, const std::atomic<bool>* cancel)
{
    Opening opening;
    if (!VaultStore::makePrivateFolder(folder)) {
        opening.error = VaultOpenError::CannotCreateFolder;
        return opening;
    }
    const VaultKey::Result key = VaultKey::obtain(secrets, folder);
    switch (key.status) {
    case VaultKey::Result::Status::Loaded:
    case VaultKey::Result::Status::Created: break;
    case VaultKey::Result::Status::Missing: opening.error = VaultOpenError::KeyMissing; return opening;
    case VaultKey::Result::Status::CannotCreate: opening.error = VaultOpenError::CannotCreateKey; return opening;
    }
    const VaultStore store(folder, key.key);
    std::optional<VaultStore::Contents> contents = store.load(cancel);
    if (!contents) {
        opening.error = VaultOpenError::UnreadableIndex;
        return opening;
    }
    std::unique_ptr<Vault> vault(new Vault(folder, key.key, contents->entries));
    opening.fromPreviousIndex = contents->fromPreviousIndex;
    // Recovered files are listed again, and the list that names them recorded; a failure to record
    // it only means they are found again next time.
    if (!contents->recovered.isEmpty() || contents->fromPreviousIndex) {
        const QList<VaultEntry> recovered = contents->recovered;
        const bool recorded = vault->update([&recovered, fromPrevious = contents->fromPreviousIndex,
                                             &listed = contents->entries](QList<VaultEntry>& entries) {
            if (fromPrevious)
                entries = listed; // the damaged index is replaced by the one that opened
            for (const VaultEntry& found : recovered) {
                // Named meanwhile by the process that was writing it: its own entry stands.
                if (std::none_of(entries.cbegin(), entries.cend(),
                                 [&found](const VaultEntry& entry) { return entry.id == found.id; }))
                    entries.append(found);
            }
        });
        if (recorded)
            opening.recovered = int(contents->recovered.size());
    }
    opening.migrationFailed = !vault->migrateLegacy(trash, opening.migrated, cancel);
    opening.vault = std::move(vault);
    return opening;
}

bool Vault::update(const std::function<void(QList<VaultEntry>&)>& change)
{
    // Changed from the list on the disk, not the one in memory: another process may have recorded
    // files since this one read it.
    const ChangeLock lock(m_store.folder());
    std::optional<QList<VaultEntry>> entries = lock.held() ? m_store.readIndex() : std::nullopt;
    if (!entries)
        return false;
    change(*entries);
    if (!m_store.commit(*entries))
        return false;
    m_entries = *entries;
    return true;
}

const VaultEntry* Vault::find(const QUuid& id) const
{
    const int at = indexOf(id);
    return at < 0 ? nullptr : &m_entries.at(at);
}

int Vault::indexOf(const QUuid& id) const
{
    for (int i = 0; i < m_entries.size(); ++i) {
        if (m_entries.at(i).id == id)
            return i;
    }
    return -1;
}

VaultAddReport Vault::add(const QStringList& files, Trash& trash, const Progress& progress,
                          const std::atomic<bool>* cancel)
{
    return addFiles(files, trash, progress, cancel, {});
}

VaultAddReport Vault::addFiles(const QStringList& files, Trash& trash, const Progress& progress,
                               const std::atomic<bool>* cancel, const std::function<QString(const QString&)>& originOf)
{
    VaultAddReport report;
    qint64 total = 0;
    for (const QString& file : files)
        total += std::max<qint64>(QFileInfo(file).size(), 0);
    qint64 before = 0;

    // 1. Each file encrypted and on the disk, with what it was when read.
    QList<QPair<QString, Snapshot>> sealed;
    QList<VaultEntry> fresh;
    for (const QString& file : files) {
        if (cancel && cancel->load(std::memory_order_relaxed)) {
            report.cancelled = true;
            break;
        }
        const std::optional<Snapshot> was = snapshotOf(file);
        if (!was) { // a folder, a link, a device, or gone
            report.failed.append(file);
            continue;
        }
        try {
            VaultEntry entry = m_store.add(
                file,
                [&](qint64 done) {
                    if (progress)
                        progress(before + done, total);
                },
                cancel);
            if (originOf)
                entry.origin = originOf(file);
            sealed.append({file, *was});
            fresh.append(entry);
        } catch (const VaultFailure& failure) {
            if (failure.kind == Kind::Cancelled) {
                report.cancelled = true;
                break;
            }
            report.failed.append(file);
        }
        before += was->size;
    }
    if (fresh.isEmpty())
        return report;

    // 2. The batch recorded once. Without it, the encrypted copies are unnamed: they go, the
    // originals stay. An unlock elsewhere may have listed one as recovered meanwhile: ours replaces it.
    const auto ids = [](const QList<VaultEntry>& list) {
        QSet<QUuid> set;
        for (const VaultEntry& entry : list)
            set.insert(entry.id);
        return set;
    };
    const QSet<QUuid> freshIds = ids(fresh);
    const bool recorded = update([&](QList<VaultEntry>& entries) {
        entries.removeIf([&](const VaultEntry& entry) { return freshIds.contains(entry.id); });
        entries.append(fresh);
    });
    if (!recorded) {
        for (const VaultEntry& entry : std::as_const(fresh))
            m_store.removeFile(entry);
        for (const auto& [file, was] : std::as_const(sealed))
            report.failed.append(file);
        return report;
    }

    // 3. Only now may the originals go, each only if it is still what was encrypted.
    QList<VaultEntry> discarded;
    for (int i = 0; i < sealed.size(); ++i) {
        const auto& [file, was] = sealed.at(i);
        if (snapshotOf(file) != was || !trash.moveToTrash(file)) {
            report.notMoved.append(file);
            discarded.append(fresh.at(i));
        } else {
            report.added.append(fresh.at(i));
        }
    }
    // 4. An encrypted copy whose original stayed is not kept: the list without it first, then the file.
    // Should the list not be recorded, the copy stays named by it: listed, not hidden.
    const QSet<QUuid> discardedIds = ids(discarded);
    if (!discarded.isEmpty() && update([&](QList<VaultEntry>& entries) {
            entries.removeIf([&](const VaultEntry& entry) { return discardedIds.contains(entry.id); });
        })) {
        for (const VaultEntry& entry : std::as_const(discarded))
            m_store.removeFile(entry);
    }
    return report;
}

QString Vault::restore(const QUuid& id, const VaultCrypto::Progress& progress, const std::atomic<bool>* cancel)
{
    const VaultEntry* entry = find(id);
    if (!entry)
        throw VaultFailure{Kind::CannotRead};
    // The recorded origin, relative to the home folder when it is not absolute; the Documents folder
    // when it is gone or cannot take a file.
    QString folder = entry->origin;
    if (!folder.isEmpty() && QDir::isRelativePath(folder))
        folder = QDir::home().filePath(folder);
    const QFileInfo origin(folder);
    if (folder.isEmpty() || !origin.isDir() || !origin.isWritable()) {
        folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
        QDir().mkpath(folder);
    }
    return restoreTo(id, folder, progress, cancel);
}

QString Vault::restoreTo(const QUuid& id, const QString& folder, const VaultCrypto::Progress& progress,
                         const std::atomic<bool>* cancel)
{
    const int at = indexOf(id);
    if (at < 0)
        throw VaultFailure{Kind::CannotRead};
    const VaultEntry entry = m_entries.at(at);
    if (!QFileInfo(folder).isDir())
        throw VaultFailure{Kind::CannotCreate};
    QString destination = QDir(folder).filePath(VaultCrypto::uniqueName(folder, entry.name));
    m_store.extract(entry, destination, progress, cancel); // flushed under its name, or thrown

    // The file is out and whole: the list without it, then its encrypted copy. Should the list not be
    // recorded, the vault keeps it, and the copy just written is a second one, which the user may keep.
    if (update([&id](QList<VaultEntry>& entries) {
            entries.removeIf([&id](const VaultEntry& listed) { return listed.id == id; });
        }))
        m_store.removeFile(entry);
    return destination;
}

bool Vault::remove(const QUuid& id)
{
    // Found in the list on the disk: another process may have added it after this one read its own.
    std::optional<VaultEntry> removed;
    if (!update([&id, &removed](QList<VaultEntry>& entries) {
            for (qsizetype i = 0; i < entries.size(); ++i) {
                if (entries.at(i).id == id)
                    removed = entries.takeAt(i--);
            }
        }))
        return false;
    if (removed)
        m_store.removeFile(*removed);
    return true;
}

QString Vault::openCopy(const QUuid& id, const VaultCrypto::Progress& progress, const std::atomic<bool>* cancel)
{
    const VaultEntry* entry = find(id);
    const std::optional<QString> opened = openedCopiesFolder();
    if (!entry || !opened)
        throw VaultFailure{entry ? Kind::CannotCreate : Kind::CannotRead};
    // A folder per entry keeps its own name free, whatever else is open.
    const QString folder = QDir(*opened).filePath(entry->id.toString(QUuid::WithoutBraces));
    if (!isPrivateFolder(folder))
        throw VaultFailure{Kind::CannotCreate};
    QString destination = QDir(folder).filePath(entry->name);
    if (QFileInfo::exists(destination))
        return destination; // opened before, while unlocked: the same bytes
    m_store.extract(*entry, destination, progress, cancel);
    return destination;
}

std::optional<QString> Vault::openedCopiesFolder()
{
    // The runtime folder is the user's own, in memory, and emptied at logout; the shared temporary
    // folder, with a name per user, where there is none.
    QString base = qEnvironmentVariable("XDG_RUNTIME_DIR");
    QString name = QString::fromLatin1(openedFolderName);
    struct stat runtime
    {};
    if (base.isEmpty() || ::lstat(QFile::encodeName(base).constData(), &runtime) != 0 || !S_ISDIR(runtime.st_mode) ||
        runtime.st_uid != ::getuid() || (runtime.st_mode & 077) != 0) {
        base = QDir::tempPath();
        name += u'-' + QString::number(::getuid());
    }
    const QString folder = QDir(base).filePath(name);
    if (!isPrivateFolder(folder))
        return std::nullopt;
    return folder;
}

bool Vault::removeOpenedCopies()
{
    const std::optional<QString> folder = openedCopiesFolder();
    return !folder || removeTree(*folder);
}

bool Vault::migrateLegacy(Trash& trash, int& migrated, const std::atomic<bool>* cancel)
{
    const QDir folder(m_store.folder());
    QStringList plain;
    const QStringList names = folder.entryList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name);
    for (const QString& name : names) {
        if (name.endsWith(QLatin1String(".nvv"), Qt::CaseInsensitive) || name == QLatin1String(legacyOriginsName) ||
            name.startsWith(QLatin1String(".nuvrel-")) || name == QLatin1String(".DS_Store"))
            continue;
        plain.append(folder.filePath(name));
    }
    if (plain.isEmpty())
        return true;

    QFile originsFile(folder.filePath(QLatin1String(legacyOriginsName)));
    QJsonObject origins;
    if (originsFile.size() < qint64(16) * 1024 * 1024 && originsFile.open(QIODevice::ReadOnly))
        origins = QJsonDocument::fromJson(originsFile.readAll()).object();
    originsFile.close();
    // Their origin is where they came from before the old vault, not the vault folder.
    const VaultAddReport report = addFiles(plain, trash, {}, cancel, [&origins](const QString& file) {
        return origins.value(QFileInfo(file).fileName()).toString();
    });
    migrated = int(report.added.size());
    const bool complete = report.failed.isEmpty() && report.notMoved.isEmpty() && !report.cancelled;
    // The names of private files: they follow the files once every one is in.
    if (complete && originsFile.exists())
        trash.moveToTrash(originsFile.fileName());
    return complete;
}

} // namespace nuvrel
