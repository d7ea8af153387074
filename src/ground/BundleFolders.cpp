#include "ground/BundleFolders.h"

#include <QStringList>

namespace nuvrel {

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

bool isPhotosLibrary(const QString& name)
{
    return name.endsWith(QLatin1StringView(".photoslibrary"), Qt::CaseInsensitive);
}

} // namespace nuvrel
