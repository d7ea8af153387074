#include "ground/FreeName.h"

#include <QDir>
#include <QFileInfo>

namespace nuvrel {

QString numberedName(const QString& name, int n, FreeNameStyle style)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    const bool hasExtension = dot > 0; // a dot at 0 starts a hidden name
    const QString base = hasExtension ? name.left(dot) : name;
    const QString extension = hasExtension ? name.mid(dot) : QString();
    const QString number =
        style == FreeNameStyle::Parenthesised ? QStringLiteral(" (%1)").arg(n) : QStringLiteral("-%1").arg(n);
    return base + number + extension;
}

QString freeName(const QString& location, FreeNameStyle style)
{
    if (!QFileInfo::exists(location) && !QFileInfo(location).isSymLink())
        return location;
    const QFileInfo info(location);
    const QDir folder = info.dir();
    for (int n = 2;; ++n) {
        QString candidate = folder.filePath(numberedName(info.fileName(), n, style));
        if (!QFileInfo::exists(candidate) && !QFileInfo(candidate).isSymLink())
            return candidate;
    }
}

} // namespace nuvrel
