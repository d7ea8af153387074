#include "models/lighten/FileGathering.h"

#include "ground/BundleFolders.h"

#include <QDir>
#include <QFileInfo>

namespace nuvrel {

namespace {

void walk(const QString& folder, int maxFiles, GatheredFiles& gathered)
{
    const QFileInfoList entries =
        QDir(folder).entryInfoList(QDir::Dirs | QDir::Files | QDir::NoDotAndDotDot | QDir::NoSymLinks,
                                   QDir::Name | QDir::IgnoreCase | QDir::LocaleAware | QDir::DirsLast);
    for (const QFileInfo& entry : entries) {
        if (gathered.files.size() >= maxFiles) {
            gathered.truncated = true;
            return;
        }
        if (entry.isDir()) {
            if (isBundleFolder(entry.fileName()))
                ++gathered.skippedPackages;
            else
                walk(entry.filePath(), maxFiles, gathered);
        } else if (entry.isFile()) {
            gathered.files.append(entry.absoluteFilePath());
        }
    }
}

} // namespace

GatheredFiles gatherFiles(const QStringList& paths, int maxFiles)
{
    GatheredFiles gathered;
    for (const QString& path : paths) {
        if (gathered.files.size() >= maxFiles) {
            gathered.truncated = true;
            break;
        }
        const QFileInfo info(path);
        if (info.isDir()) {
            if (isPhotosLibrary(info.fileName()))
                gathered.photosLibrary = true;
            else if (isBundleFolder(info.fileName()))
                ++gathered.skippedPackages;
            else
                walk(info.absoluteFilePath(), maxFiles, gathered);
        } else if (info.isFile()) {
            gathered.files.append(info.absoluteFilePath());
        }
    }
    return gathered;
}

} // namespace nuvrel
