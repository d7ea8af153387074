// The last step of a duplicate hunt: the marked files go to the trash, provided nothing changed since
// the scan.

#include "engines/duplicates/DuplicateScanner.h"

#include "ground/FileScan.h"
#include "platform/Trash.h"

#include <algorithm>

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

bool DuplicateScanner::isUnchanged(const DupFile& file)
{
    const std::optional<EntryStatus> now = entryStatus(file.path);
    if (!now || now->type != EntryStatus::Type::File || now->size != file.size || now->modified != file.modified)
        return false;
    return file.fingerprint.isEmpty() || fingerprint(file.path, file.size) == file.fingerprint;
}

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
        const bool keepsOne =
            std::any_of(kept.cbegin(), kept.cend(), [](const DupItem* item) { return isUnchanged(item->file); });
        if (!keepsOne) {
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
            if (!isUnchanged(item->file))
                report.changed.append(item->file.path);
            else if (trash.moveToTrash(item->file.path)) {
                report.trashed.append(item->file.path);
                report.freed += item->file.size;
            } else {
                report.failed.append(item->file.path);
            }
            if (progress)
                progress(++done, total);
        }
    }
    return report;
}

} // namespace nuvrel
