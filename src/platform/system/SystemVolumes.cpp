#include "platform/system/SystemVolumes.h"

#include "ground/ExistingFolder.h"

#include <QDir>
#include <QStorageInfo>

namespace nuvrel {

namespace {

Volume describe(const QStorageInfo& storage)
{
    QString name = storage.displayName();
    if (name.isEmpty() || name == storage.rootPath())
        name = QDir(storage.rootPath()).dirName();
    if (name.isEmpty())
        name = storage.rootPath();
    return {storage.rootPath(), name, storage.bytesTotal(), storage.bytesAvailable(), storage.isReadOnly()};
}

} // namespace

std::optional<Volume> SystemVolumes::volumeOf(const QString& path)
{
    // A folder still to be made lies on the volume of its nearest existing parent.
    const QString existing = nearestExistingPath(path);
    if (existing.isEmpty())
        return std::nullopt;
    const QStorageInfo storage(existing);
    if (!storage.isValid() || !storage.isReady())
        return std::nullopt;
    return describe(storage);
}

QList<Volume> SystemVolumes::mounted()
{
    QList<Volume> volumes;
    for (const QStorageInfo& storage : QStorageInfo::mountedVolumes()) {
        // Pseudo file systems (proc, tmpfs of the system, snaps) hold nothing of the user's.
        if (!storage.isValid() || !storage.isReady() || storage.bytesTotal() <= 0)
            continue;
        if (storage.rootPath().startsWith(QLatin1StringView("/proc")) ||
            storage.rootPath().startsWith(QLatin1StringView("/sys")) ||
            storage.rootPath().startsWith(QLatin1StringView("/run")) ||
            storage.rootPath().startsWith(QLatin1StringView("/snap")))
            continue;
        volumes.append(describe(storage));
    }
    return volumes;
}

} // namespace nuvrel
