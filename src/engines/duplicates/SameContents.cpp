#include "engines/duplicates/SameContents.h"

#include "engines/duplicates/DuplicateScanner.h"
#include "ground/FileScan.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace nuvrel {

namespace {

// What one pass keeps in memory, however many files it compares: the reads shrink as files grow many.
constexpr qint64 memoryBudget = qint64(32) * 1024 * 1024;
constexpr qint64 largestRead = qint64(4) * 1024 * 1024;
constexpr qint64 smallestRead = qint64(64) * 1024;

struct Region
{
    qint64 offset;
    qint64 length;
};

std::vector<Region> comparedRegions(qint64 size)
{
    if (size <= DuplicateScanner::wholeHashLimit)
        return {{0, size}};
    const qint64 sample = DuplicateScanner::sampleBytes;
    return {{0, sample}, {size / 2, sample}, {size - sample, sample}};
}

struct DigestDeleter
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using Digest = std::unique_ptr<EVP_MD_CTX, DigestDeleter>;

// Members that agree so far, and the fingerprint of what they agree on.
struct Class
{
    std::vector<size_t> members;
    Digest digest;
};

Digest copyOf(const Digest& digest)
{
    Digest copy(EVP_MD_CTX_new());
    if (!copy || EVP_MD_CTX_copy_ex(copy.get(), digest.get()) != 1)
        return {};
    return copy;
}

QString hexOf(const Digest& digest)
{
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(digest.get(), bytes, &length) != 1)
        return {};
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(bytes), int(length)).toHex());
}

struct Member
{
    qsizetype index = 0;
    FileReader file;
    QByteArray buffer;
};

} // namespace

QList<SameContent> sameContents(const QList<QString>& paths, qint64 size, int& failures,
                                const std::atomic<bool>* cancel)
{
    std::vector<Member> members;
    members.reserve(size_t(paths.size()));
    for (qsizetype i = 0; i < paths.size(); ++i) {
        FileReader file(paths[i]);
        if (file.isOpen())
            members.push_back({i, std::move(file), {}});
        else
            ++failures;
    }
    const qint64 block =
        std::clamp(memoryBudget / qint64(std::max<size_t>(members.size(), 1)), smallestRead, largestRead);

    // Classes of members that agree so far; a class of one is done with. Each class hashes its
    // first member's bytes as they come, in the fingerprint's order, so no file is read twice.
    std::vector<Class> classes(1);
    classes[0].digest.reset(EVP_MD_CTX_new());
    if (!classes[0].digest || EVP_DigestInit_ex(classes[0].digest.get(), EVP_sha256(), nullptr) != 1) {
        failures += int(members.size()); // out of memory: told, not lost in silence
        return {};
    }
    for (size_t m = 0; m < members.size(); ++m)
        classes[0].members.push_back(m);
    for (const Region& region : comparedRegions(size)) {
        for (qint64 done = 0; done < region.length && !classes.empty(); done += block) {
            if (cancel && cancel->load(std::memory_order_relaxed))
                return {};
            const qint64 length = std::min(block, region.length - done);
            std::vector<Class> split;
            for (Class& same : classes) {
                std::vector<std::vector<size_t>> parts;
                for (size_t m : same.members) {
                    Member& member = members[m];
                    member.buffer.resize(length);
                    if (!member.file.readAt(region.offset + done, member.buffer.data(), length)) {
                        member.file.close(); // shorter than it said, or gone: in no group
                        ++failures;
                        continue;
                    }
                    const auto part = std::find_if(parts.begin(), parts.end(), [&](const std::vector<size_t>& other) {
                        return std::memcmp(members[other.front()].buffer.constData(), member.buffer.constData(),
                                           size_t(length)) == 0;
                    });
                    if (part == parts.end())
                        parts.push_back({m});
                    else
                        part->push_back(m);
                }
                // Each part kept goes on from the state before this block: the last takes it, the others a copy.
                const auto lastKept = std::find_if(parts.rbegin(), parts.rend(),
                                                   [](const std::vector<size_t>& part) { return part.size() > 1; });
                for (auto part = parts.begin(); part != parts.end(); ++part) {
                    if (part->size() < 2) {
                        members[part->front()].file.close();
                        continue;
                    }
                    Class next;
                    next.digest = part == std::prev(lastKept.base()) ? std::move(same.digest) : copyOf(same.digest);
                    if (!next.digest) {
                        failures += int(members.size());
                        return {};
                    }
                    next.members = std::move(*part);
                    const QByteArray& bytes = members[next.members.front()].buffer;
                    EVP_DigestUpdate(next.digest.get(), bytes.constData(), size_t(length));
                    split.push_back(std::move(next));
                }
            }
            classes = std::move(split);
        }
    }

    QList<SameContent> result;
    for (const Class& same : classes) {
        QList<qsizetype> indexes;
        for (size_t m : same.members)
            indexes.append(members[m].index);
        std::sort(indexes.begin(), indexes.end());
        result.append({hexOf(same.digest), indexes});
    }
    std::sort(result.begin(), result.end(), [](const SameContent& a, const SameContent& b) {
        return a.members.constFirst() < b.members.constFirst();
    });
    return result;
}

} // namespace nuvrel
