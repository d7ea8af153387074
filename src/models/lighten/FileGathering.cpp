#include "models/lighten/FileGathering.h"

#include <QDir>
#include <QFileInfo>

namespace nuvrel {

namespace {

bool isPhotosLibrary(const QString& name)
{
    return name.endsWith(QLatin1StringView(".photoslibrary"), Qt::CaseInsensitive);
}

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

bool isBundleFolder(const QString& name)
{
    static const QStringList suffixes{
        QStringLiteral("app"),       QStringLiteral("photoslibrary"), QStringLiteral("photolibrary"),
        QStringLiteral("bundle"),    QStringLiteral("framework"),     QStringLiteral("plugin"),
        QStringLiteral("pages"),     QStringLiteral("numbers"),       QStringLiteral("key"),
        QStringLiteral("rtfd"),      QStringLiteral("xcodeproj"),     QStringLiteral("playground"),
        QStringLiteral("logicx"),    QStringLiteral("band"),          QStringLiteral("imovielibrary"),
        QStringLiteral("fcpbundle"), QStringLiteral("sparsebundle"),  QStringLiteral("musiclibrary"),
        QStringLiteral("tvlibrary"), QStringLiteral("kext"),          QStringLiteral("pkg")};
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot > 0 && suffixes.contains(name.mid(dot + 1).toLower());
}

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
