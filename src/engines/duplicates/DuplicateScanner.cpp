#include "engines/duplicates/DuplicateScanner.h"

#include "engines/duplicates/SameContents.h"
#include "engines/duplicates/TwoCores.h"
#include "ground/BundleFolders.h"
#include "ground/DirectoryListing.h"
#include "ground/FileScan.h"
#include "l10n/L.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <openssl/evp.h>

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace nuvrel {

namespace {

constexpr qint64 readBlock = qint64(4) * 1024 * 1024;
constexpr qint64 edgeBytes = 4096;

struct DigestDeleter
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

// Feeds exactly `length` bytes at `offset` to the digest; false on a short read.
bool feed(const FileReader& file, EVP_MD_CTX* context, qint64 offset, qint64 length, QByteArray& buffer)
{
    while (length > 0) {
        const qint64 piece = std::min(length, qint64(buffer.size()));
        if (!file.readAt(offset, buffer.data(), piece))
            return false;
        EVP_DigestUpdate(context, buffer.constData(), size_t(piece));
        offset += piece;
        length -= piece;
    }
    return true;
}

// A digest of the first and last 4 KiB (of the whole file when it is smaller): files that differ
// there need not be read through. Kept as a number, not as bytes, so that a million files cost
// megabytes; files with equal digests are compared byte for byte afterwards. Nothing when the file
// cannot be read.
std::optional<size_t> edges(const QString& path, qint64 size)
{
    const FileReader file(path);
    if (!file.isOpen())
        return std::nullopt;
    std::array<char, 2 * edgeBytes> bytes{};
    const qint64 length = std::min(size, qint64(bytes.size()));
    const qint64 head = std::min(size, edgeBytes);
    if (!file.readAt(0, bytes.data(), head) ||
        (length > head && !file.readAt(size - (length - head), bytes.data() + head, length - head)))
        return std::nullopt;
    return qHashBits(bytes.data(), size_t(length));
}

// How many files of one set are compared side by side, each held open: two sets go at a time, and
// the rest of the application keeps its own files open. Larger sets are hashed file by file.
qsizetype filesComparedAtOnce()
{
    static const qsizetype limit = [] {
        rlimit limits{};
        if (::getrlimit(RLIMIT_NOFILE, &limits) != 0 || limits.rlim_cur == RLIM_INFINITY)
            return qsizetype(256);
        return std::clamp<qsizetype>(qsizetype(limits.rlim_cur / 8), 2, 256);
    }();
    return limit;
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
        const QString path = folder.endsWith(u'/') ? QString(folder + name) : QString(folder + u'/' + name);
        const std::optional<EntryStatus> status = entryStatus(path);
        if (!status) {
            ++listing.unreadable;
            continue;
        }
        if (status->type == EntryStatus::Type::Folder) {
            if (isBundleFolder(name))
                ++listing.skippedBundles;
            else
                walk(path, listing, seen, cancel);
            continue;
        }
        if (status->type != EntryStatus::Type::File || status->size <= 0)
            continue; // links, devices, sockets; empty files
        // Hard links are one file under several names: never a copy of itself.
        const QPair<quint64, quint64> identity(status->device, status->inode);
        if (seen.contains(identity))
            continue;
        seen.insert(identity);
        listing.files.append({path, status->size, status->born, status->modified, {}});
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
    const FileReader file(path);
    if (size < 0 || !file.isOpen())
        return std::nullopt;
    const std::unique_ptr<EVP_MD_CTX, DigestDeleter> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        return std::nullopt;
    QByteArray buffer(std::min(readBlock, std::max<qint64>(size, 1)), Qt::Uninitialized);
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
                                                    const std::atomic<bool>* cancel, int* unreadable)
{
    std::atomic<int> failures{0};

    // Only sizes shared by several files go on; their edges are read two files at a time.
    QHash<qint64, QList<qsizetype>> bySize;
    for (qsizetype i = 0; i < files.size(); ++i)
        bySize[files[i].size].append(i);
    std::vector<qsizetype> shared;
    for (auto it = bySize.cbegin(); it != bySize.cend(); ++it) {
        if (it.value().size() > 1)
            shared.insert(shared.end(), it.value().cbegin(), it.value().cend());
    }
    std::sort(shared.begin(), shared.end());
    std::vector<std::optional<size_t>> keys(size_t(files.size()));
    onTwoCores(shared.size(), cancel, [&](size_t i) {
        const DupFile& file = files[shared[i]];
        keys[size_t(shared[i])] = edges(file.path, file.size);
        if (!keys[size_t(shared[i])])
            ++failures;
    });
    if (cancelled(cancel))
        return {};

    // Sets of files with one size and the same edges, in the listing's order.
    QHash<QPair<qint64, size_t>, QList<qsizetype>> byEdges;
    for (qsizetype index : shared) {
        if (keys[size_t(index)])
            byEdges[{files[index].size, *keys[size_t(index)]}].append(index);
    }
    QList<QList<qsizetype>> candidates;
    for (const QList<qsizetype>& same : std::as_const(byEdges)) {
        if (same.size() > 1)
            candidates.append(same);
    }
    std::sort(candidates.begin(), candidates.end(),
              [](const QList<qsizetype>& a, const QList<qsizetype>& b) { return a.constFirst() < b.constFirst(); });
    qint64 total = 0;
    for (const QList<qsizetype>& candidate : std::as_const(candidates))
        total += candidate.size();

    // Each set split by its bytes, two sets at a time, each class hashed as it is read.
    std::vector<QList<QPair<QString, QList<qsizetype>>>> found(size_t(candidates.size()));
    std::atomic<qint64> done{0};
    std::mutex reporting;
    const auto advance = [&](qint64 count) {
        const qint64 finished = done += count;
        if (progress) {
            const std::lock_guard guard(reporting);
            progress(finished, total);
        }
    };
    onTwoCores(size_t(candidates.size()), cancel, [&](size_t c) {
        const QList<qsizetype>& candidate = candidates[qsizetype(c)];
        const qint64 size = files[candidate.constFirst()].size;
        int failed = 0;
        if (candidate.size() > filesComparedAtOnce()) {
            // Too many to hold open side by side: each hashed on its own.
            QHash<QString, QList<qsizetype>> byPrint;
            QStringList order;
            for (qsizetype index : candidate) {
                if (cancelled(cancel))
                    return;
                const std::optional<QString> print = fingerprint(files[index].path, size);
                advance(1);
                if (!print) {
                    ++failed;
                    continue;
                }
                if (!byPrint.contains(*print))
                    order.append(*print);
                byPrint[*print].append(index);
            }
            for (const QString& print : std::as_const(order)) {
                if (byPrint[print].size() > 1)
                    found[c].append({print, byPrint[print]});
            }
        } else {
            QStringList paths;
            for (qsizetype index : candidate)
                paths.append(files[index].path);
            for (const SameContent& same : sameContents(paths, size, failed, cancel)) {
                QList<qsizetype> members;
                for (qsizetype position : same.members)
                    members.append(candidate[position]);
                found[c].append({same.fingerprint, members});
            }
            advance(candidate.size());
        }
        failures += failed;
    });
    if (cancelled(cancel))
        return {};

    QList<QList<DupFile>> groups;
    for (const auto& classes : found) {
        for (const auto& [print, members] : classes) {
            QList<DupFile> group;
            for (qsizetype index : members) {
                DupFile member = files[index];
                member.fingerprint = print;
                group.append(member);
            }
            groups.append(group);
        }
    }
    sortGroups(groups);
    if (unreadable)
        *unreadable += failures;
    return groups;
}

DupScan DuplicateScanner::scan(const QString& folder, bool withSimilar, const ScanProgress& progress,
                               const std::atomic<bool>* cancel)
{
    const auto report = [&progress](const QString& text, double fraction) {
        if (progress)
            progress(text, std::clamp(fraction, 0.0, 1.0));
    };
    const auto count = [](qint64 value) { return Localizer::locale().toString(value); };

    report(L("Recherche des fichiers…"), 0);
    DupListing listing = listFiles(folder, cancel);
    DupScan result;
    result.skippedBundles = listing.skippedBundles;
    result.unreadable = listing.unreadable;
    if (cancelled(cancel))
        return result;

    const double exactEnd = withSimilar ? photoPhaseStart : 1.0;
    result.exact = exactGroups(
        listing.files,
        [&](qint64 done, qint64 total) {
            report(L("Comparaison exacte : %@ sur %@", count(done), count(total)),
                   exactEnd * double(done) / double(total));
        },
        cancel, &result.unreadable);
    if (!withSimilar || cancelled(cancel))
        return result;

    // A photo with an identical copy is handled there: in two groups, both copies could be ticked.
    QSet<QString> inExactGroups;
    for (const QList<DupFile>& group : std::as_const(result.exact)) {
        for (const DupFile& file : group)
            inExactGroups.insert(file.path);
    }
    QList<DupFile> photos;
    for (const DupFile& file : std::as_const(listing.files)) {
        if (isImage(file.path) && !inExactGroups.contains(file.path))
            photos.append(file);
    }
    report(L("Comparaison des photos : %@ sur %@", count(0), count(photos.size())), photoPhaseStart);
    result.similar = similarGroups(
        photos,
        [&](qint64 done, qint64 total) {
            report(L("Comparaison des photos : %@ sur %@", count(done), count(total)),
                   photoPhaseStart + (1 - photoPhaseStart) * double(done) / double(total));
        },
        cancel);
    return result;
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
