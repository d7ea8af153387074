#include "support/FolderSnapshot.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace nuvrel::test {

QMap<QString, QByteArray> snapshot(const QString& folder)
{
    QMap<QString, QByteArray> result;
    const QDir root(folder);
    QDirIterator it(folder, QDir::Files | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo info(it.next());
        QByteArray state;
        if (info.isSymLink()) {
            state = "link:" + QFile::encodeName(info.symLinkTarget());
        } else {
            QFile file(info.filePath());
            if (file.open(QIODevice::ReadOnly))
                state = QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256);
        }
        state += QByteArray::number(info.lastModified().toMSecsSinceEpoch());
        result.insert(root.relativeFilePath(info.filePath()), state);
    }
    return result;
}

QStringList allEntries(const QString& folder)
{
    QStringList result;
    const QDir root(folder);
    QDirIterator it(folder, QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        result.append(root.relativeFilePath(it.next()));
    result.sort();
    return result;
}

} // namespace nuvrel::test
