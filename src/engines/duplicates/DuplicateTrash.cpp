// The last step of a duplicate hunt: the marked files go to the trash, provided nothing changed since
// the scan.

#include "engines/duplicates/DuplicateScanner.h"

#include "ground/FileScan.h"
#include "platform/Trash.h"

#include <algorithm>
#include <cstring>

namespace nuvrel {

qint64 DupGroup::recoverable() const
{
    qint64 total = 0;
    for (const DupItem& item : items) {
        if (item.marked)
            total += item.file.size;
    }
    return total;
}

bool DuplicateScanner::isUnchanged(const DupFile& file, DupGroup::Kind kind)
{
    const std::optional<EntryStatus> now = entryStatus(file.path);
    if (!now || now->type != EntryStatus::Type::File || now->size != file.size || now->modified != file.modified)
        return false;
    if (kind == DupGroup::Kind::Similar)
        return true;
    return !file.fingerprint.isEmpty() && fingerprint(file.path, file.size) == file.fingerprint;
}

namespace {

// Whether two files of one size hold the same bytes, all of them: above the hashing limit a scan only
// compared samples, and a disk image or a database file can agree there and differ elsewhere.
bool sameBytes(const QString& a, const QString& b, qint64 size, const std::atomic<bool>* cancel)
{
    constexpr qint64 block = qint64(4) * 1024 * 1024;
    const FileReader first(a);
    const FileReader second(b);
    if (!first.isOpen() || !second.isOpen())
        return false;
    QByteArray one(block, Qt::Uninitialized);
    QByteArray two(block, Qt::Uninitialized);
    for (qint64 offset = 0; offset < size; offset += block) {
        if (cancel && cancel->load(std::memory_order_relaxed))
            return false;
        const qint64 length = std::min(block, size - offset);
        if (!first.readAt(offset, one.data(), length) || !second.readAt(offset, two.data(), length) ||
            std::memcmp(one.constData(), two.constData(), size_t(length)) != 0)
            return false;
    }
    return true;
}

} // namespace

DupTrashReport DuplicateScanner::moveMarkedToTrash(const QList<DupGroup>& groups, Trash& trash,
                                                   const Progress& progress, const std::atomic<bool>* cancel)
{
    qint64 total = 0;
    for (const DupGroup& group : groups)
        total +=
            std::count_if(group.items.cbegin(), group.items.cend(), [](const DupItem& item) { return item.marked; });

    DupTrashReport report;
    qint64 done = 0;
    for (const DupGroup& group : groups) {
        QList<const DupItem*> marked;
        QList<const DupItem*> kept;
        for (const DupItem& item : group.items)
            (item.marked ? marked : kept).append(&item);
        if (marked.isEmpty())
            continue;
        // The group must still hold one good copy once the marked ones are gone.
        const auto keeper = std::find_if(kept.cbegin(), kept.cend(),
                                         [&group](const DupItem* item) { return isUnchanged(item->file, group.kind); });
        if (keeper == kept.cend()) {
            report.keptMissing.append(kept.isEmpty() ? group.items.constFirst().file.path
                                                     : kept.constFirst()->file.path);
            done += marked.size();
            if (progress)
                progress(done, total);
            continue;
        }
        for (const DupItem* item : std::as_const(marked)) {
            if (cancel && cancel->load(std::memory_order_relaxed))
                return report;
            const DupFile& file = item->file;
            const bool unchanged = isUnchanged(file, group.kind);
            const bool sampledOnly = group.kind == DupGroup::Kind::Identical && file.size > wholeHashLimit;
            const bool alike =
                !unchanged || !sampledOnly || sameBytes(file.path, (*keeper)->file.path, file.size, cancel);
            if (cancel && cancel->load(std::memory_order_relaxed))
                return report;
            if (!unchanged)
                report.changed.append(file.path);
            else if (!alike)
                report.differing.append(file.path);
            else if (trash.moveToTrash(file.path)) {
                report.trashed.append(file.path);
                report.freed += file.size;
            } else {
                report.failed.append(file.path);
            }
            if (progress)
                progress(++done, total);
        }
    }
    return report;
}

} // namespace nuvrel
