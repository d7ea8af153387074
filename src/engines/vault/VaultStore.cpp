#include "engines/vault/VaultStore.h"

#include "formats/crypto/AesGcm.h"
#include "ground/FileScan.h"
#include "l10n/L.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStandardPaths>

#include <openssl/crypto.h>

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

namespace nuvrel {

namespace {

QByteArray readSmallFile(const QString& path, bool& exists)
{
    QFile file(path);
    exists = file.exists();
    // An index lists names and sizes: a few megabytes at the very most.
    if (!exists || !file.open(QIODevice::ReadOnly) || file.size() > qint64(256) * 1024 * 1024)
        return {};
    return file.readAll();
}

bool renameDurably(const QString& from, const QString& to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0 &&
           VaultCrypto::syncFolder(QFileInfo(to).absolutePath());
}

} // namespace

VaultStore::VaultStore(const QString& folder, const QByteArray& key)
    : m_folder(QDir(folder).absolutePath())
    , m_key(key)
{}

VaultStore::~VaultStore()
{
    // Only the last holder of the shared bytes wipes them: data() would copy them otherwise.
    if (!m_key.isEmpty() && !m_key.isDetached())
        return;
    if (!m_key.isEmpty())
        OPENSSL_cleanse(m_key.data(), size_t(m_key.size()));
}

QString VaultStore::defaultFolder()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation))
        .filePath(QStringLiteral("Nuvrel/Coffre"));
}

bool VaultStore::makePrivateFolder(const QString& folder)
{
    const QString absolute = QDir(folder).absolutePath();
    if (QFileInfo(absolute).isDir())
        return ::chmod(QFile::encodeName(absolute).constData(), 0700) == 0;
    const QString parent = QFileInfo(absolute).absolutePath();
    if (parent != absolute && !QFileInfo(parent).isDir() && !makePrivateFolder(parent))
        return false;
    return ::mkdir(QFile::encodeName(absolute).constData(), 0700) == 0 || errno == EEXIST;
}

bool VaultStore::hasEncryptedFiles(const QString& folder)
{
    return !QDir(folder).entryList({QStringLiteral("*.nvv")}, QDir::Files | QDir::Hidden).isEmpty();
}

QString VaultStore::pathOf(const VaultEntry& entry) const
{
    return QDir(m_folder).filePath(entry.fileName());
}

std::optional<QList<VaultEntry>> VaultStore::readIndex(bool* fromPrevious) const
{
    bool exists = false;
    const QByteArray sealed = readSmallFile(QDir(m_folder).filePath(QLatin1StringView(indexName)), exists);
    if (exists) {
        if (std::optional<QList<VaultEntry>> entries = VaultCrypto::openIndex(sealed, m_key))
            return entries;
    }
    bool previousExists = false;
    const QByteArray previous =
        readSmallFile(QDir(m_folder).filePath(QLatin1StringView(previousIndexName)), previousExists);
    if (!previousExists) // a vault that never recorded anything, or a damaged index with nothing before it
        return exists ? std::nullopt : std::optional<QList<VaultEntry>>(QList<VaultEntry>());
    // No index but the previous one: a commit stopped between its two renames. Its files are found
    // again as unnamed ones.
    std::optional<QList<VaultEntry>> entries = VaultCrypto::openIndex(previous, m_key);
    if (entries && exists && fromPrevious)
        *fromPrevious = true;
    return entries;
}

std::optional<VaultStore::Contents> VaultStore::load(const std::atomic<bool>* cancel) const
{
    Contents contents;
    const std::optional<QList<VaultEntry>> entries = readIndex(&contents.fromPreviousIndex);
    if (!entries)
        return std::nullopt;
    contents.entries = *entries;

    // Files a crash left unnamed: offered back once they decrypt whole.
    QSet<QString> named;
    for (const VaultEntry& entry : std::as_const(contents.entries))
        named.insert(entry.fileName().toUpper());
    const QStringList files = QDir(m_folder).entryList({QStringLiteral("*.nvv")}, QDir::Files, QDir::Name);
    for (const QString& name : files) {
        const QUuid id = QUuid::fromString(name.chopped(4));
        if (id.isNull() || named.contains(name.toUpper()))
            continue;
        const QString path = QDir(m_folder).filePath(name);
        try {
            const auto [size, digest] = VaultCrypto::verifyFile(path, m_key, cancel);
            VaultEntry found;
            found.id = id;
            found.name = L("Fichier récupéré");
            found.size = size;
            found.added = QFileInfo(path).lastModified().toUTC();
            found.sha256 = digest;
            contents.recovered.append(found);
        } catch (const VaultFailure&) {
            // Not ours, or damaged: left as it is, never deleted.
        }
    }
    return contents;
}

bool VaultStore::commit(const QList<VaultEntry>& entries) const
{
    const QString work = QDir(m_folder).filePath(QLatin1StringView(workFolderName));
    if (!makePrivateFolder(work))
        return false;
    const QByteArray sealed = VaultCrypto::sealIndex(entries, m_key);
    const QString fresh =
        QDir(work).filePath(QStringLiteral("index-%1.nvv").arg(QUuid::createUuid().toString(QUuid::Id128)));
    if (sealed.isEmpty() || !VaultCrypto::writeDurably(fresh, sealed))
        return false;
    const QString index = QDir(m_folder).filePath(QLatin1StringView(indexName));
    const QString previous = QDir(m_folder).filePath(QLatin1StringView(previousIndexName));
    // The index in place becomes the previous one; at every moment one of the two is whole.
    if (QFileInfo::exists(index) && !renameDurably(index, previous)) {
        QFile::remove(fresh);
        return false;
    }
    if (!renameDurably(fresh, index)) {
        QFile::remove(fresh);
        return false;
    }
    return true;
}

VaultEntry VaultStore::add(const QString& source, const VaultCrypto::Progress& progress,
                           const std::atomic<bool>* cancel) const
{
    const QString work = QDir(m_folder).filePath(QLatin1StringView(workFolderName));
    if (!makePrivateFolder(work))
        throw VaultFailure{VaultFailure::Kind::CannotCreate};
    VaultEntry entry;
    entry.id = QUuid::createUuid();
    const QFileInfo info(source);
    entry.name = info.fileName();
    entry.origin = info.absolutePath();
    entry.added = QDateTime::currentDateTimeUtc();
    const QString partial = QDir(work).filePath(entry.fileName() + QStringLiteral(".part"));
    entry.sha256 = VaultCrypto::encryptFile(source, partial, m_key, progress, cancel); // flushed, or thrown
    // The plaintext size, from what was written: the header's chunk count and the file's length.
    const FileReader sealed(partial);
    QByteArray count(8, Qt::Uninitialized);
    if (!sealed.isOpen() || !sealed.readAt(4, count.data(), 8)) {
        QFile::remove(partial);
        throw VaultFailure{VaultFailure::Kind::WriteFailed};
    }
    entry.size = QFileInfo(partial).size() - VaultCrypto::headerSize -
                 qint64(VaultCrypto::number(count)) * (4 + AesGcm::overhead);
    if (!renameDurably(partial, pathOf(entry))) {
        QFile::remove(partial);
        throw VaultFailure{VaultFailure::Kind::WriteFailed};
    }
    return entry;
}

void VaultStore::extract(const VaultEntry& entry, const QString& destination, const VaultCrypto::Progress& progress,
                         const std::atomic<bool>* cancel) const
{
    // The format binds a chunk to its place in a file, not to the file: the digest binds the file to
    // its entry. Older entries carry none, and open as they are.
    VaultCrypto::decryptFile(pathOf(entry), destination, m_key, progress, cancel, entry.sha256);
}

bool VaultStore::removeFile(const VaultEntry& entry) const
{
    const QString path = pathOf(entry);
    if (QFile::exists(path) && !QFile::remove(path))
        return false;
    return VaultCrypto::syncFolder(m_folder);
}

} // namespace nuvrel
