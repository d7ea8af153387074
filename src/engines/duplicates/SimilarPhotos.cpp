// The photo phase of a scan: a difference hash of each picture, then the pairs close enough linked
// into groups.

#include "engines/duplicates/DuplicateScanner.h"
#include "engines/duplicates/TwoCores.h"

#include "media/PhotoEncoder.h"
#include "media/PhotoFile.h"

#include <QFileInfo>

#include <algorithm>
#include <array>
#include <bit>
#include <mutex>
#include <numeric>

namespace nuvrel {

namespace {

// Decoded this small, a JPEG is read at an eighth of its size and a HEIF from its stored thumbnail;
// the hash needs only 9 × 8 pixels.
constexpr int hashThumbnailSide = 64;

// A 64-bit hash cut into seven blocks: two hashes at most six bits apart agree on at least one
// block whole (pigeonhole), so only hashes sharing a block value are ever compared.
struct HashBlock
{
    int shift;
    int width;
};
constexpr std::array<HashBlock, 7> hashBlocks{{{0, 10}, {10, 9}, {19, 9}, {28, 9}, {37, 9}, {46, 9}, {55, 9}}};
static_assert(hashBlocks.size() > DuplicateScanner::similarDistance);

quint64 blockValue(quint64 hash, const HashBlock& block)
{
    return (hash >> block.shift) & ((quint64(1) << block.width) - 1);
}

class UnionFind
{
public:
    explicit UnionFind(size_t count)
        : m_parent(count)
    {
        std::iota(m_parent.begin(), m_parent.end(), size_t(0));
    }

    size_t root(size_t node)
    {
        while (m_parent[node] != node) {
            m_parent[node] = m_parent[m_parent[node]];
            node = m_parent[node];
        }
        return node;
    }

    void join(size_t a, size_t b)
    {
        a = root(a);
        b = root(b);
        if (a != b)
            m_parent[std::max(a, b)] = std::min(a, b);
    }

private:
    std::vector<size_t> m_parent;
};

bool usable(quint64 hash)
{
    const int bits = std::popcount(hash);
    return bits >= DuplicateScanner::minHashBits && bits <= DuplicateScanner::maxHashBits;
}

} // namespace

bool DuplicateScanner::isImage(const QString& path)
{
    return PhotoFile::isDecodable(QFileInfo(path).suffix().toLower());
}

quint64 DuplicateScanner::dHash(const QImage& image)
{
    const QImage grey = image.convertToFormat(QImage::Format_RGB32)
                            .scaled(9, 8, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                            .convertToFormat(QImage::Format_Grayscale8);
    quint64 hash = 0;
    int bit = 0;
    for (int y = 0; y < 8; ++y) {
        const uchar* row = grey.constScanLine(y);
        for (int x = 0; x < 8; ++x, ++bit) {
            if (row[x] > row[x + 1])
                hash |= quint64(1) << bit;
        }
    }
    return hash;
}

std::optional<quint64> DuplicateScanner::dHash(const QString& path)
{
    PhotoFile photo(path);
    const QImage image = photo.decode(hashThumbnailSide);
    if (image.isNull())
        return std::nullopt;
    return dHash(image);
}

bool DuplicateScanner::areSimilar(const PhotoPrint& a, const PhotoPrint& b)
{
    const int distance = std::popcount(a.hash ^ b.hash);
    if (distance <= alwaysSimilarDistance)
        return true;
    if (distance > similarDistance || !a.taken.isValid() || !b.taken.isValid())
        return false;
    return std::abs(a.taken.secsTo(b.taken)) < similarSeconds;
}

QList<QList<qsizetype>> DuplicateScanner::linkSimilar(const std::vector<PhotoPrint>& photos,
                                                      const std::atomic<bool>* cancel)
{
    UnionFind groups(photos.size());
    std::vector<std::pair<quint64, size_t>> keyed;
    keyed.reserve(photos.size());
    for (size_t b = 0; b < hashBlocks.size(); ++b) {
        keyed.clear();
        for (size_t i = 0; i < photos.size(); ++i) {
            if (usable(photos[i].hash))
                keyed.emplace_back(blockValue(photos[i].hash, hashBlocks[b]), i);
        }
        std::sort(keyed.begin(), keyed.end());
        for (size_t start = 0; start < keyed.size();) {
            if (cancelled(cancel))
                return {};
            size_t end = start + 1;
            while (end < keyed.size() && keyed[end].first == keyed[start].first)
                ++end;
            for (size_t i = start; i < end && !cancelled(cancel); ++i) {
                for (size_t j = i + 1; j < end; ++j) {
                    if (groups.root(keyed[i].second) == groups.root(keyed[j].second))
                        continue; // linked already
                    const PhotoPrint& a = photos[keyed[i].second];
                    const PhotoPrint& c = photos[keyed[j].second];
                    // A pair that agrees on an earlier block was weighed there.
                    const quint64 difference = a.hash ^ c.hash;
                    const bool seenBefore = std::any_of(
                        hashBlocks.begin(), hashBlocks.begin() + qsizetype(b),
                        [difference](const HashBlock& earlier) { return blockValue(difference, earlier) == 0; });
                    if (!seenBefore && areSimilar(a, c))
                        groups.join(keyed[i].second, keyed[j].second);
                }
            }
            start = end;
        }
    }

    if (cancelled(cancel))
        return {};

    // The root of each set is its smallest index, so sets come out in the order of their first.
    std::vector<size_t> sizes(photos.size(), 0);
    for (size_t i = 0; i < photos.size(); ++i)
        ++sizes[groups.root(i)];
    std::vector<qsizetype> slot(photos.size(), -1);
    QList<QList<qsizetype>> linked;
    for (size_t i = 0; i < photos.size(); ++i) {
        const size_t root = groups.root(i);
        if (sizes[root] < 2)
            continue;
        if (slot[root] < 0) {
            slot[root] = linked.size();
            linked.append(QList<qsizetype>());
        }
        linked[slot[root]].append(qsizetype(i));
    }
    return linked;
}

QList<QList<DupFile>> DuplicateScanner::similarGroups(const QList<DupFile>& files, const Progress& progress,
                                                      const std::atomic<bool>* cancel)
{
    std::vector<PhotoPrint> prints(size_t(files.size()));
    std::vector<char> hashed(size_t(files.size()), 0); // one byte each: written from two threads
    std::atomic<qint64> done{0};
    std::mutex reporting;
    onTwoCores(size_t(files.size()), cancel, [&](size_t i) {
        const DupFile& file = files[qsizetype(i)];
        PhotoFile photo(file.path);
        const QImage image = photo.decode(hashThumbnailSide);
        if (!image.isNull()) {
            PhotoPrint& print = prints[i];
            print.hash = dHash(image);
            // The moment the picture was taken survives copies; the file's birth does not.
            const PhotoMetadata metadata = photo.format() == PhotoFile::Format::Heif
                                               ? PhotoMetadata::fromHeif(photo.heifExif(), {})
                                               : PhotoMetadata::fromFile(file.path);
            print.taken = metadata.takenAt();
            if (!print.taken.isValid())
                print.taken = file.created;
            hashed[i] = 1;
        }
        const qint64 finished = ++done;
        if (progress) {
            const std::lock_guard guard(reporting);
            progress(finished, files.size());
        }
    });
    if (cancelled(cancel))
        return {};

    // Photos that could not be decoded take no part.
    std::vector<PhotoPrint> decoded;
    QList<qsizetype> fileOf;
    for (size_t i = 0; i < prints.size(); ++i) {
        if (hashed[i]) {
            decoded.push_back(prints[i]);
            fileOf.append(qsizetype(i));
        }
    }
    QList<QList<DupFile>> groups;
    for (const QList<qsizetype>& linked : linkSimilar(decoded, cancel)) {
        QList<DupFile> group;
        for (qsizetype index : linked)
            group.append(files[fileOf[index]]);
        groups.append(group);
    }
    sortGroups(groups);
    return groups;
}

} // namespace nuvrel
