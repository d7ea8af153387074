#include "engines/backup/IPhoneBackupReader.h"

#include "engines/backup/BackupCatalogue.h"
#include "engines/backup/BackupLocator.h"
#include "engines/backup/ManifestMbdb.h"
#include "formats/crypto/AesCbcDecryptor.h"
#include "formats/plist/PropertyList.h"
#include "formats/sqlite/ImmutableDatabase.h"
#include "formats/sqlite/PrivateDatabase.h"
#include "formats/sqlite/SqlError.h"
#include "formats/sqlite/SqlStatement.h"
#include "ground/NewFile.h"
#include "ground/RegularFile.h"
#include "ground/WorkFolder.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QSaveFile>
#include <QSet>

#include <algorithm>
#include <cerrno>

namespace nuvrel {

namespace {

constexpr qint64 chunkSize = 1 << 20;
constexpr qint64 smallestPlainIndex = 101; // a real index database is never this small
// The oldest index is read whole; a phone of that time never had one near this size.
constexpr qint64 maxOldIndexSize = qint64(512) * 1024 * 1024;
// Stored copies are regular files of the backup folder: never a link out of it, a FIFO or a device.
const RegularFileRules storedCopy{std::nullopt, true};

QString deviceName(const QIODevice& device)
{
    const auto* file = qobject_cast<const QFileDevice*>(&device);
    return file ? file->fileName() : QString();
}

// Decrypts `input` into `output` in 1 MiB pieces and returns the bytes written. With `limit` set, the
// output stops at that many bytes: the recorded size, which drops the cipher's padding without reading it.
qint64 decryptStream(QIODevice& input, AesCbcDecryptor& decryptor, QIODevice& output, std::optional<qint64> limit,
                     BackupReadError::Subject readFailure, const std::atomic<bool>* cancel = nullptr)
{
    QByteArray in(chunkSize, Qt::Uninitialized);
    QByteArray out(chunkSize + 64, Qt::Uninitialized);
    qint64 written = 0;
    while (!limit || written < *limit) {
        if (cancel && cancel->load(std::memory_order_relaxed))
            throw BackupReadError::cancelled();
        const qint64 read = input.read(in.data(), chunkSize);
        if (read < 0)
            throw BackupReadError::openFailed(readFailure, errno);
        if (read == 0)
            break;
        const qsizetype produced = decryptor.update(QByteArrayView(in.constData(), read), out.data());
        if (produced < 0)
            throw BackupReadError::damaged(BackupReadError::Subject::Decryption);
        const qint64 take = limit ? std::min<qint64>(produced, *limit - written) : produced;
        if (output.write(out.constData(), take) != take)
            throw BackupReadError::writeFailed(deviceName(output), systemErrorKind(errno));
        written += take;
    }
    return written;
}

// Copies a plain stored file in 1 MiB pieces, so that a cancel is seen inside a large video.
void copyStream(QIODevice& input, QIODevice& output, const std::atomic<bool>* cancel)
{
    QByteArray buffer(chunkSize, Qt::Uninitialized);
    while (true) {
        if (cancel && cancel->load(std::memory_order_relaxed))
            throw BackupReadError::cancelled();
        const qint64 read = input.read(buffer.data(), chunkSize);
        if (read < 0)
            throw BackupReadError::openFailed(BackupReadError::Subject::MissingFile, errno);
        if (read == 0)
            return;
        if (output.write(buffer.constData(), read) != read)
            throw BackupReadError::writeFailed(deviceName(output), systemErrorKind(errno));
    }
}

// A stored encrypted copy is whole only when it is made of whole cipher blocks and holds the recorded
// size plus at most one block of padding; anything else is damage, which must not pass for a file.
void checkEncryptedLength(const QFile& stored, qint64 recordedSize)
{
    const qint64 length = stored.size();
    if (recordedSize < 0 || length % 16 != 0 || length < recordedSize || length > recordedSize + 16)
        throw BackupReadError::damaged(BackupReadError::Subject::EncryptedLength);
}

} // namespace

IPhoneBackupReader::IPhoneBackupReader(PhoneBackup backup, const QString& password, const std::atomic<bool>* cancel)
    : m_backup(std::move(backup))
{
    // A folder of this reader's own, for the decrypted index and decrypted files: a reader closing late
    // (its last work ending on a worker) must not delete the copies of a newer reader of the same backup.
    try {
        m_work = std::make_unique<WorkFolder>(m_backup.id);
    } catch (const FileError& error) {
        throw BackupReadError::writeFailed(error);
    }

    const QDir folder(m_backup.url);
    const QString manifest = folder.filePath(QStringLiteral("Manifest.db"));
    const bool hasDatabase = QFileInfo(manifest).isFile();
    try {
        if (m_backup.isEncrypted)
            openEncrypted(password, cancel, hasDatabase ? manifest : QString());
        else if (hasDatabase)
            openPlainIndex(manifest);
        if (!hasDatabase) {
            // Neither index: the backup is incomplete, and it is the newer one that it lacks.
            const QString mbdbPath = folder.filePath(QStringLiteral("Manifest.mbdb"));
            if (!QFileInfo::exists(mbdbPath) && !QFileInfo(mbdbPath).isSymLink())
                throw BackupReadError::unreadable(BackupReadError::Subject::Index, SystemErrorKind::Missing);
            QFile mbdb;
            if (!openRegularFile(mbdb, mbdbPath, {maxOldIndexSize, true}))
                throw BackupReadError::openFailed(BackupReadError::Subject::ManifestMbdb, errno);
            QList<BackupEntry> entries = ManifestMbdb::parse(mbdb.readAll());
            if (entries.isEmpty())
                throw BackupReadError::unsupported();
            m_legacyEntries = std::move(entries);
        }
    } catch (...) {
        closeDatabase();
        cleanup(); // a reader that never opened leaves no folder behind
        throw;
    }
}

IPhoneBackupReader::~IPhoneBackupReader()
{
    closeDatabase();
}

void IPhoneBackupReader::openEncrypted(const QString& password, const std::atomic<bool>* cancel,
                                       const QString& manifest)
{
    if (password.isEmpty())
        throw BackupReadError::needsPassword();
    const QVariantMap plist = BackupLocator::readPlist(QDir(m_backup.url).filePath(QStringLiteral("Manifest.plist")),
                                                       BackupReadError::Subject::EncryptionRecord);
    const QVariant bagValue = plist.value(QStringLiteral("BackupKeyBag"));
    if (bagValue.typeId() != QMetaType::QByteArray)
        throw BackupReadError::damaged(BackupReadError::Subject::EncryptionRecord);
    m_keybag = BackupKeyBag::parse(bagValue.toByteArray());
    if (!m_keybag)
        throw BackupReadError::damaged(BackupReadError::Subject::KeyBag);
    // A password typed on one system may reach us composed (é) or decomposed (e + ´), while the phone
    // derived its key from the other form: each is tried before the password is called wrong.
    QStringList forms{password};
    for (const QString& form :
         {password.normalized(QString::NormalizationForm_C), password.normalized(QString::NormalizationForm_D)}) {
        if (!forms.contains(form))
            forms.append(form);
    }
    const bool unlocked = std::any_of(forms.cbegin(), forms.cend(), [&](const QString& form) {
        return !(cancel && cancel->load()) && m_keybag->unlock(form, cancel);
    });
    if (!unlocked)
        throw BackupReadError::wrongPassword();
    if (manifest.isEmpty())
        return; // the oldest layout: its index is not encrypted

    const QVariant manifestKey = plist.value(QStringLiteral("ManifestKey"));
    const std::optional<BackupKeyBag::WrappedKey> wrapped =
        manifestKey.typeId() == QMetaType::QByteArray ? BackupKeyBag::WrappedKey::split(manifestKey.toByteArray())
                                                      : std::nullopt;
    // The key bag opened, so the password is right: a key that does not unwrap is damage.
    if (!wrapped || !m_keybag->classKeys().contains(wrapped->protectionClass))
        throw BackupReadError::damaged(BackupReadError::Subject::ManifestKey);
    const std::optional<QByteArray> key = m_keybag->unwrap(*wrapped);
    if (!key)
        throw BackupReadError::damaged(BackupReadError::Subject::ManifestKey);
    decryptIndex(manifest, *key);
    openDatabase(*m_tempDB);
}

void IPhoneBackupReader::decryptIndex(const QString& manifest, const QByteArray& key)
{
    // Streamed rather than decrypted whole: an index of a large phone runs to hundreds of megabytes.
    QFile input;
    if (!openRegularFile(input, manifest, {std::nullopt, true}))
        throw BackupReadError::openFailed(BackupReadError::Subject::ManifestDb, errno);
    AesCbcDecryptor decryptor(key);
    if (!decryptor.isValid())
        throw BackupReadError::damaged(BackupReadError::Subject::ManifestKey);
    const QString plainPath = QDir(tempDir()).filePath(QStringLiteral("manifest.db"));
    QSaveFile output(plainPath);
    if (!output.open(QIODevice::WriteOnly))
        throw BackupReadError::writeFailed(plainPath, systemErrorKind(errno));
    const qint64 total = decryptStream(input, decryptor, output, std::nullopt, BackupReadError::Subject::ManifestDb);
    if (total < smallestPlainIndex)
        throw BackupReadError::damaged(BackupReadError::Subject::Decryption);
    if (!output.commit())
        throw BackupReadError::writeFailed(plainPath, systemErrorKind(errno));
    m_tempDB = plainPath;
}

void IPhoneBackupReader::openPlainIndex(const QString& manifest)
{
    if (!hasCompanions(manifest)) {
        openDatabase(manifest);
        return;
    }
    // A log or a journal beside the index (a backup copied while it was being written): an immutable
    // open would ignore them, so a private copy of the three files is settled and read instead.
    const QString copy = QDir(tempDir()).filePath(QStringLiteral("manifest.db"));
    try {
        copyWithCompanions(manifest, copy);
        m_tempDB = copy;
        settleCopy(copy);
    } catch (const SqlError& error) {
        if (error.kind() == SqlError::Kind::Unreadable)
            throw BackupReadError::damaged(BackupReadError::Subject::ManifestDb);
        const FileError& why = *error.fileError();
        if (why.operation() == FileError::Operation::Write)
            throw BackupReadError::writeFailed(why);
        throw BackupReadError::unreadable(BackupReadError::Subject::ManifestDb, why.kind());
    }
    openDatabase(copy);
}

void IPhoneBackupReader::openDatabase(const QString& path)
{
    // Opened by us first, so that a refused or missing index is told apart from a damaged one.
    if (QFile probe; !openRegularFile(probe, path, {std::nullopt, true}))
        throw BackupReadError::openFailed(BackupReadError::Subject::ManifestDb, errno);
    try {
        m_db = std::make_unique<ImmutableDatabase>(path);
    } catch (const SqlError&) {
        throw BackupReadError::damaged(BackupReadError::Subject::ManifestDb);
    }
}

namespace {

// A GLOB pattern for the texts that start with `prefix`: its own wildcards are bracketed so that they
// stand for themselves. GLOB, unlike LIKE, compares case-sensitively, as the phone's paths are.
QByteArray globPrefix(QByteArrayView prefix)
{
    QByteArray pattern;
    pattern.reserve(prefix.size() + 8);
    for (const char c : prefix) {
        if (c == '*' || c == '?' || c == '[')
            pattern.append('[').append(c).append(']');
        else
            pattern.append(c);
    }
    return pattern.append('*');
}

// The index query for the files `filter` keeps, its parameters bound. "+flags" keeps SQLite off the
// index on flags, which every file shares, so that a filter's own index (domain, path) finds its rows.
SqlStatement filteredQuery(sqlite3* db, const EntryFilter& filter)
{
    QByteArray sql = "SELECT fileID, domain, relativePath, file FROM Files WHERE +flags = 1";
    if (filter.domain)
        sql += " AND domain = ?1";
    if (filter.pathPrefix)
        sql += " AND relativePath GLOB ?2";
    if (filter.photos)
        sql += " AND domain = 'CameraRollDomain' AND relativePath GLOB 'Media/DCIM/*'";
    std::optional<SqlStatement> statement = SqlStatement::tryPrepare(db, sql.constData());
    if (!statement)
        throw BackupReadError::damaged(BackupReadError::Subject::FileList);
    try {
        if (filter.domain)
            statement->bind(1, filter.domain->toUtf8());
        if (filter.pathPrefix)
            statement->bind(2, globPrefix(filter.pathPrefix->toUtf8()));
    } catch (const SqlError&) {
        throw BackupReadError::damaged(BackupReadError::Subject::FileList);
    }
    return std::move(*statement);
}

} // namespace

bool EntryFilter::keeps(const BackupEntry& entry) const
{
    if (domain && entry.domain != *domain)
        return false;
    if (pathPrefix && !entry.path.startsWith(*pathPrefix))
        return false;
    return !photos || BackupCatalogue::isPhoto(entry);
}

MBFileInfo EntryRow::meta() const
{
    if (known)
        return *known;
    if (!blob.isEmpty()) {
        // Parsed in place: the bytes are SQLite's until the next row.
        if (std::optional<MBFileInfo> parsed = MBFileInfo::parse(QByteArray::fromRawData(blob.data(), blob.size())))
            return *parsed;
    }
    return {};
}

void IPhoneBackupReader::forEachRow(const EntryFilter& filter, const std::function<void(const EntryRow&)>& visit) const
{
    if (m_legacyEntries) {
        for (const BackupEntry& entry : *m_legacyEntries) {
            if (!filter.keeps(entry))
                continue;
            const QByteArray fileID = entry.fileID.toUtf8();
            const QByteArray domain = entry.domain.toUtf8();
            const QByteArray path = entry.path.toUtf8();
            const std::optional<MBFileInfo> known =
                entry.preMeta ? std::optional<MBFileInfo>(entry.preMeta->value) : std::nullopt;
            visit(EntryRow{fileID, domain, path, entry.blob.value_or(QByteArray()), known ? &*known : nullptr});
        }
        return;
    }
    if (!m_db)
        return;
    SqlStatement statement = filteredQuery(m_db->handle(), filter);
    const QByteArray domain = filter.domain ? filter.domain->toUtf8() : QByteArray();
    const QByteArray prefix = filter.pathPrefix ? filter.pathPrefix->toUtf8() : QByteArray();
    const QByteArray cameraRoll = BackupCatalogue::cameraRollDomain.toUtf8();
    try {
        while (statement.next()) {
            if (!statement.isText(0) || !statement.isText(1) || !statement.isText(2))
                continue;
            const EntryRow row{statement.textBytes(0), statement.textBytes(1), statement.textBytes(2),
                               statement.blobBytes(3)};
            // The query's verdict, checked again on the bytes themselves: what is listed never depends on
            // how SQLite matched a pattern.
            if ((filter.domain && row.domain != domain) || (filter.pathPrefix && !row.path.startsWith(prefix)))
                continue;
            if (filter.photos &&
                (row.domain != cameraRoll || !BackupCatalogue::isPhotoPath(QString::fromUtf8(row.path))))
                continue;
            visit(row);
        }
    } catch (const SqlError&) {
        // A damaged index can fail half-way; what was read before stays usable, as with a truncated old index.
    }
}

QStringList IPhoneBackupReader::knownDomains() const
{
    QSet<QString> found;
    if (m_legacyEntries) {
        for (const BackupEntry& entry : *m_legacyEntries)
            found.insert(entry.domain);
        return found.values();
    }
    if (!m_db)
        return {};
    std::optional<SqlStatement> statement =
        SqlStatement::tryPrepare(m_db->handle(), "SELECT DISTINCT domain FROM Files");
    if (!statement)
        throw BackupReadError::damaged(BackupReadError::Subject::FileList);
    try {
        while (statement->next()) {
            if (statement->isText(0))
                found.insert(QString::fromUtf8(statement->textBytes(0)));
        }
    } catch (const SqlError&) {
        // A damaged index: the domains read so far, as the listing itself stops there.
    }
    return found.values();
}

QList<BackupEntry> IPhoneBackupReader::loadEntries(const EntryFilter& filter) const
{
    QList<BackupEntry> entries;
    // A few dozen domains are shared by hundreds of thousands of rows: keep one copy of each.
    QHash<QByteArray, QString> domains;
    forEachRow(filter, [&](const EntryRow& row) {
        BackupEntry entry;
        entry.fileID = QString::fromUtf8(row.fileID);
        auto domain = domains.find(row.domain.toByteArray());
        if (domain == domains.end())
            domain = domains.insert(row.domain.toByteArray(), QString::fromUtf8(row.domain));
        entry.domain = *domain;
        entry.path = QString::fromUtf8(row.path);
        // The facts, read now, take a tenth of the record they come from: a 300,000-file list is held
        // in half the memory, and no listing parses a record twice.
        entry.preMeta = MBFileInfoBox{row.meta()};
        entries.append(std::move(entry));
    });
    return entries;
}

std::optional<QString> IPhoneBackupReader::storedURL(const QString& fileID) const
{
    if (!BackupEntry::isValidFileID(fileID))
        return std::nullopt;
    // A link, or a copy below a linked folder, would lead outside the backup: neither is one of its copies.
    const QDir folder(m_backup.url);
    const QString subfolder = folder.filePath(fileID.left(2));
    const QString nested = subfolder + u'/' + fileID;
    if (!QFileInfo(subfolder).isSymLink() && !QFileInfo(nested).isSymLink() && QFileInfo(nested).isFile())
        return nested;
    const QString flat = folder.filePath(fileID);
    if (!QFileInfo(flat).isSymLink() && QFileInfo(flat).isFile())
        return flat;
    return std::nullopt;
}

QString IPhoneBackupReader::requireStored(const QString& fileID) const
{
    if (std::optional<QString> stored = storedURL(fileID))
        return *stored;
    // Something is there, but a link, a FIFO or a folder is no copy of a file.
    const QDir folder(m_backup.url);
    const bool present = BackupEntry::isValidFileID(fileID) &&
                         (QFileInfo(folder.filePath(fileID.left(2) + u'/' + fileID)).isSymLink() ||
                          QFileInfo::exists(folder.filePath(fileID.left(2) + u'/' + fileID)) ||
                          QFileInfo(folder.filePath(fileID)).isSymLink() || QFileInfo::exists(folder.filePath(fileID)));
    if (present)
        throw BackupReadError::damaged(BackupReadError::Subject::MissingFile);
    throw BackupReadError::unreadable(BackupReadError::Subject::MissingFile, SystemErrorKind::Missing);
}

QString IPhoneBackupReader::extract(const BackupEntry& entry, const QString& destination,
                                    const std::atomic<bool>* cancel) const
{
    const MBFileInfo meta = entry.meta();
    const QString stored = requireStored(entry.fileID);
    // Written under a temporary name and named when whole: a failure or a cancel leaves nothing.
    try {
        NewFile output(destination, FreeNameStyle::Parenthesised);
        if (m_keybag) {
            decrypt(entry, output.device(), cancel);
        } else {
            QFile input;
            if (!openRegularFile(input, stored, storedCopy))
                throw BackupReadError::openFailed(BackupReadError::Subject::MissingFile, errno);
            copyStream(input, output.device(), cancel);
        }
        return output.commit(meta.mtime);
    } catch (const FileError& error) {
        throw BackupReadError::writeFailed(error);
    } catch (const BackupReadError& error) {
        if (error.kind() != BackupReadError::Kind::WriteFailed)
            throw;
        throw BackupReadError::writeFailed(destination, error.systemKind()); // not the temporary name
    }
}

QString IPhoneBackupReader::openableURL(const BackupEntry& entry, const QString& name) const
{
    // One folder per entry keeps the file's own name while two entries may share it.
    QString fileName = QFileInfo(name).fileName();
    if (fileName.isEmpty() || fileName == u"." || fileName == u"..")
        fileName = entry.fileName().isEmpty() ? QStringLiteral("fichier") : entry.fileName();
    const QString folder = QDir(tempDir()).filePath(
        QStringLiteral("ouvrir/") + (BackupEntry::isValidFileID(entry.fileID) ? entry.fileID : QStringLiteral("x")));
    QString target = QDir(folder).filePath(fileName);
    if (QFileInfo(target).isFile())
        return target; // made before, and whole: a copy only ever appears there complete
    return extract(entry, target);
}

QByteArray IPhoneBackupReader::fileKey(const MBFileInfo& meta) const
{
    if (!m_keybag || !meta.encKey)
        throw BackupReadError::damaged(BackupReadError::Subject::MissingFileKey);
    const std::optional<BackupKeyBag::WrappedKey> wrapped = BackupKeyBag::WrappedKey::split(*meta.encKey);
    const std::optional<QByteArray> key = wrapped ? m_keybag->unwrap(*wrapped) : std::nullopt;
    if (!key)
        throw BackupReadError::damaged(BackupReadError::Subject::FileKey);
    return *key;
}

void IPhoneBackupReader::decrypt(const BackupEntry& entry, QIODevice& output, const std::atomic<bool>* cancel) const
{
    const MBFileInfo meta = entry.meta();
    const QByteArray key = fileKey(meta);
    const QString stored = requireStored(entry.fileID);
    AesCbcDecryptor decryptor(key);
    if (!decryptor.isValid())
        throw BackupReadError::damaged(BackupReadError::Subject::FileKey);
    QFile input;
    if (!openRegularFile(input, stored, storedCopy))
        throw BackupReadError::openFailed(BackupReadError::Subject::MissingFile, errno);
    checkEncryptedLength(input, meta.size);

    if (decryptStream(input, decryptor, output, meta.size, BackupReadError::Subject::MissingFile, cancel) != meta.size)
        throw BackupReadError::damaged(BackupReadError::Subject::EncryptedLength); // it shrank while read
    if (auto* file = qobject_cast<QFileDevice*>(&output); file && !file->flush())
        throw BackupReadError::writeFailed(file->fileName(), systemErrorKind(errno));
}

QByteArray IPhoneBackupReader::contents(const BackupEntry& entry, qint64 maxBytes) const
{
    const MBFileInfo meta = entry.meta();
    if (meta.size > maxBytes)
        throw BackupReadError::unreadable(BackupReadError::Subject::MissingFile);
    if (m_keybag) {
        QBuffer buffer;
        buffer.open(QIODevice::WriteOnly);
        decrypt(entry, buffer);
        return buffer.data();
    }
    const QString stored = requireStored(entry.fileID);
    QFile input;
    if (!openRegularFile(input, stored, storedCopy))
        throw BackupReadError::openFailed(BackupReadError::Subject::MissingFile, errno);
    // The index may understate the size; the cap holds whatever it says.
    QByteArray data = input.read(maxBytes + 1);
    if (data.size() > maxBytes)
        throw BackupReadError::unreadable(BackupReadError::Subject::MissingFile);
    return data;
}

QString IPhoneBackupReader::tempDir() const
{
    return m_work->path();
}

void IPhoneBackupReader::closeDatabase()
{
    m_db.reset();
    if (m_tempDB) {
        QFile::remove(*m_tempDB);
        m_tempDB.reset();
    }
}

void IPhoneBackupReader::cleanup()
{
    m_work->remove();
}

} // namespace nuvrel
