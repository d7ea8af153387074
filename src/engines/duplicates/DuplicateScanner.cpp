#include "engines/duplicates/DuplicateScanner.h"

#include "ground/BundleFolders.h"
#include "ground/DirectoryListing.h"
#include "ground/RegularFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace nuvrel {

namespace {

constexpr qint64 readBlock = qint64(4) * 1024 * 1024;
constexpr qint64 edgeBytes = 4096;

bool cancelled(const std::atomic<bool>* cancel)
{
    return cancel && cancel->load(std::memory_order_relaxed);
}

struct DigestDeleter
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

// Reads exactly `length` bytes at `offset` into the digest; false on a short read.
bool feed(QFile& file, EVP_MD_CTX* context, qint64 offset, qint64 length, QByteArray& buffer)
{
    if (!file.seek(offset))
        return false;
    while (length > 0) {
        const qint64 read = file.read(buffer.data(), std::min(length, qint64(buffer.size())));
        if (read <= 0)
            return false;
        EVP_DigestUpdate(context, buffer.constData(), size_t(read));
        length -= read;
    }
    return true;
}

// The first and last 4 KiB (the whole file when it is smaller): files that differ there need not be
// read through. Empty when the file cannot be read.
QByteArray edges(const QString& path, qint64 size)
{
    QFile file;
    if (!openRegularFile(file, path, {std::nullopt, true}))
        return {};
    if (size <= 2 * edgeBytes) {
        QByteArray all = file.read(size);
        return all.size() == size ? all : QByteArray();
    }
    QByteArray both = file.read(edgeBytes);
    if (both.size() != edgeBytes || !file.seek(size - edgeBytes))
        return {};
    const QByteArray last = file.read(edgeBytes);
    if (last.size() != edgeBytes)
        return {};
    return both + last;
}

void walk(const QString& folder, DupListing& listing, QSet<QPair<quint64, quint64>>& seen,
          const std::atomic<bool>* cancel)
{
    const DirectoryListing names = listDirectory(folder);
    if (names.error != 0) {
        ++listing.unreadable;
        return;
    }
    QStringList sorted = names.names;
    sorted.sort(Qt::CaseInsensitive);
    for (const QString& name : std::as_const(sorted)) {
        if (cancelled(cancel))
            return;
        if (name.startsWith(u'.'))
            continue;
        const QString path = QDir(folder).filePath(name);
        struct stat status
        {};
        if (::lstat(QFile::encodeName(path).constData(), &status) != 0) {
            ++listing.unreadable;
            continue;
        }
        if (S_ISDIR(status.st_mode)) {
            if (isBundleFolder(name))
                ++listing.skippedBundles;
            else
                walk(path, listing, seen, cancel);
            continue;
        }
        if (!S_ISREG(status.st_mode) || status.st_size <= 0)
            continue; // links, devices, sockets; empty files
        // Hard links are one file under several names: never a copy of itself.
        const QPair<quint64, quint64> identity(quint64(status.st_dev), quint64(status.st_ino));
        if (seen.contains(identity))
            continue;
        seen.insert(identity);
        const QFileInfo info(path);
        QDateTime created = info.birthTime();
        if (!created.isValid())
            created = info.lastModified();
        listing.files.append({path, qint64(status.st_size), created});
    }
}

} // namespace

DupListing DuplicateScanner::listFiles(const QString& folder, const std::atomic<bool>* cancel)
{
    DupListing listing;
    QSet<QPair<quint64, quint64>> seen;
    walk(QDir(folder).absolutePath(), listing, seen, cancel);
    return listing;
}

std::optional<QString> DuplicateScanner::fingerprint(const QString& path, qint64 size)
{
    QFile file;
    if (size < 0 || !openRegularFile(file, path, {std::nullopt, true}))
        return std::nullopt;
    const std::unique_ptr<EVP_MD_CTX, DigestDeleter> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        return std::nullopt;
    QByteArray buffer(readBlock, Qt::Uninitialized);
    if (size <= wholeHashLimit) {
        if (!feed(file, context.get(), 0, size, buffer))
            return std::nullopt;
    } else {
        for (const qint64 offset : {qint64(0), size / 2, size - sampleBytes}) {
            if (!feed(file, context.get(), offset, sampleBytes, buffer))
                return std::nullopt;
        }
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), digest, &length) != 1)
        return std::nullopt;
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex());
}

QList<QList<DupFile>> DuplicateScanner::exactGroups(const QList<DupFile>& files, const Progress& progress,
                                                    const std::atomic<bool>* cancel)
{
    // Only sizes shared by several files, and among those only files whose edges agree.
    QHash<qint64, QList<qsizetype>> bySize;
    for (qsizetype i = 0; i < files.size(); ++i)
        bySize[files[i].size].append(i);
    QList<QList<qsizetype>> candidates;
    for (auto it = bySize.cbegin(); it != bySize.cend(); ++it) {
        if (it.value().size() < 2)
            continue;
        QHash<QByteArray, QList<qsizetype>> byEdges;
        for (qsizetype index : it.value()) {
            if (cancelled(cancel))
                return {};
            const QByteArray key = edges(files[index].path, it.key());
            if (!key.isEmpty())
                byEdges[key].append(index);
        }
        for (const QList<qsizetype>& same : std::as_const(byEdges)) {
            if (same.size() > 1)
                candidates.append(same);
        }
    }
    // In the listing's order, whatever the hash tables' order: groups of equal weight keep it.
    for (QList<qsizetype>& candidate : candidates)
        std::sort(candidate.begin(), candidate.end());
    std::sort(candidates.begin(), candidates.end(),
              [](const QList<qsizetype>& a, const QList<qsizetype>& b) { return a.constFirst() < b.constFirst(); });
    std::vector<qsizetype> toHash;
    for (const QList<qsizetype>& candidate : std::as_const(candidates))
        toHash.insert(toHash.end(), candidate.cbegin(), candidate.cend());

    // Two files at a time: one core reads while the other hashes.
    std::vector<std::optional<QString>> prints(size_t(files.size()));
    std::atomic<size_t> next{0};
    std::atomic<qint64> done{0};
    std::mutex reporting;
    const auto worker = [&] {
        for (;;) {
            if (cancelled(cancel))
                return;
            const size_t i = next++;
            if (i >= toHash.size())
                return;
            const DupFile& file = files[toHash[i]];
            prints[size_t(toHash[i])] = fingerprint(file.path, file.size);
            const qint64 finished = ++done;
            if (progress) {
                const std::lock_guard guard(reporting);
                progress(finished, qint64(toHash.size()));
            }
        }
    };
    std::thread helper(worker);
    worker();
    helper.join();
    if (cancelled(cancel))
        return {};

    QList<QList<DupFile>> groups;
    for (const QList<qsizetype>& candidate : std::as_const(candidates)) {
        QHash<QString, QList<DupFile>> byPrint;
        QStringList order;
        for (qsizetype index : candidate) {
            const std::optional<QString>& print = prints[size_t(index)];
            if (!print)
                continue; // unreadable now: in no group
            if (!byPrint.contains(*print))
                order.append(*print);
            byPrint[*print].append(files[index]);
        }
        for (const QString& print : std::as_const(order)) {
            if (byPrint[print].size() > 1)
                groups.append(byPrint[print]);
        }
    }
    sortGroups(groups);
    return groups;
}

void DuplicateScanner::sortGroups(QList<QList<DupFile>>& groups)
{
    for (QList<DupFile>& group : groups)
        std::stable_sort(group.begin(), group.end(),
                         [](const DupFile& a, const DupFile& b) { return a.created < b.created; });
    std::stable_sort(groups.begin(), groups.end(), [](const QList<DupFile>& a, const QList<DupFile>& b) {
        return a.constFirst().size * a.size() > b.constFirst().size * b.size();
    });
}

} // namespace nuvrel
