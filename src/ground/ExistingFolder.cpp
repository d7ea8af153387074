#include "ground/ExistingFolder.h"

#include <QDir>
#include <QFileInfo>

namespace nuvrel {

QString nearestExistingPath(const QString& path)
{
    QString existing = QDir::cleanPath(QDir(path).absolutePath());
    while (!QFileInfo::exists(existing)) {
        const QString parent = QFileInfo(existing).absolutePath();
        if (parent == existing)
            return {};
        existing = parent;
    }
    return QFileInfo(existing).canonicalFilePath();
}

} // namespace nuvrel
