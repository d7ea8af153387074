#include "engines/backup/Extraction.h"

#include "engines/backup/BackupReadError.h"
#include "engines/backup/IPhoneBackupReader.h"
#include "ground/ExistingFolder.h"
#include "ground/FreeName.h"
#include "ground/SystemError.h"

#include <QDir>
#include <QFileInfo>

namespace nuvrel {

namespace {

bool isWithin(const QString& path, const QString& folder)
{
    return !folder.isEmpty() && (path == folder || path.startsWith(folder.endsWith(u'/') ? folder : folder + u'/'));
}

// Whether the failure to make `folder` comes from a file standing where a folder must go.
bool blockedByFile(const QString& destinationRoot, const QString& folder)
{
    QString path = folder;
    while (path.size() > destinationRoot.size()) {
        const QFileInfo info(path);
        if (info.exists() && !info.isDir())
            return true;
        path = info.absolutePath();
    }
    return false;
}

Extraction::Failure failureOf(const BackupReadError& error)
{
    switch (error.kind()) {
    case BackupReadError::Kind::WriteFailed: return Extraction::Failure::Unwritable;
    case BackupReadError::Kind::Damaged:
        // A link or a FIFO where the copy should be is no copy: as good as missing.
        return error.subject() == BackupReadError::Subject::MissingFile ? Extraction::Failure::Missing
                                                                        : Extraction::Failure::Undecryptable;
    default: return Extraction::Failure::Missing;
    }
}

} // namespace

int Extraction::Report::totalFailed() const
{
    int total = 0;
    for (const int count : failed)
        total += count;
    return total;
}

Extraction::Item Extraction::photo(const BackupEntry& entry)
{
    return {entry, {entry.fileName()}};
}

Extraction::Item Extraction::belowFolder(const BackupEntry& entry, const QString& folderName, const QString& pathBelow)
{
    return {entry, QStringList{folderName} + pathBelow.split(u'/')};
}

Extraction::Item Extraction::byDomain(const BackupEntry& entry)
{
    return {entry, QStringList{entry.domain} + entry.path.split(u'/')};
}

QString Extraction::cleanComponent(const QString& component)
{
    return cleanFileName(component);
}

std::optional<QString> Extraction::cleanPath(const QStringList& place)
{
    QStringList parts;
    for (const QString& component : place) {
        // A component may itself hold separators: each piece is one level, cleaned on its own.
        for (const QString& piece : component.split(u'/')) {
            QString clean = cleanComponent(piece);
            if (!clean.isEmpty())
                parts.append(std::move(clean));
        }
    }
    if (parts.isEmpty())
        return std::nullopt;
    return parts.join(u'/');
}

bool Extraction::isForbiddenDestination(const QString& destination, const PhoneBackup& backup,
                                        const QString& backupsRoot)
{
    const QString place = nearestExistingPath(destination);
    if (place.isEmpty())
        return false;
    for (const QString& guarded : {backup.url, backupsRoot}) {
        if (guarded.isEmpty())
            continue;
        if (isWithin(place, QFileInfo(guarded).canonicalFilePath()))
            return true;
    }
    return false;
}

Extraction::Report Extraction::run(const IPhoneBackupReader& reader, const QList<Item>& items,
                                   const QString& destination, const Options& options)
{
    Report report;
    report.destination = QDir::cleanPath(QDir(destination).absolutePath());
    const auto refuse = [&report](const Item& item) {
        ++report.failed[size_t(Failure::Refused)];
        // Named as the index has it, but printable: the report may go to a terminal.
        QString name = item.entry.domain + u'/' + item.entry.path;
        for (QChar& c : name) {
            if (c.unicode() < 0x20 || c.unicode() == 0x7F)
                c = QChar(QChar::ReplacementCharacter);
        }
        report.refused.append(name);
    };
    const auto stopping = [](const std::atomic<bool>* flag) { return flag && flag->load(std::memory_order_relaxed); };

    if (!QDir().mkpath(report.destination)) {
        report.firstWriteError = FileError::fromErrno(FileError::Operation::Write, errno, report.destination).message();
        report.failed[size_t(Failure::Unwritable)] = int(items.size());
        return report;
    }
    const QString root = QFileInfo(report.destination).canonicalFilePath();

    for (qsizetype i = 0; i < items.size(); ++i) {
        if (stopping(options.stop) || stopping(options.abort)) {
            report.stopped = true;
            break;
        }
        if (options.progress)
            options.progress(i, items.size());
        const Item& item = items[i];
        const std::optional<QString> relative = cleanPath(item.place);
        if (!relative) {
            refuse(item);
            continue;
        }
        const QString target = QDir(root).filePath(*relative);
        const QString folder = QFileInfo(target).absolutePath();
        if (!QDir().mkpath(folder)) {
            if (blockedByFile(root, folder)) {
                refuse(item); // a file of an earlier entry stands where this one needs a folder
            } else {
                ++report.failed[size_t(Failure::Unwritable)];
                if (!report.firstWriteError)
                    report.firstWriteError = FileError::fromErrno(FileError::Operation::Write, errno, folder).message();
            }
            continue;
        }
        // Resolved, the folder must still be inside the destination: a link placed there beforehand
        // must not lead the file elsewhere.
        if (!isWithin(QFileInfo(folder).canonicalFilePath(), root) || QFileInfo(target).isDir()) {
            refuse(item);
            continue;
        }
        try {
            reader.extract(item.entry, target, options.abort);
            ++report.done;
        } catch (const BackupReadError& error) {
            if (error.kind() == BackupReadError::Kind::Cancelled) {
                report.stopped = true;
                break;
            }
            const Failure why = failureOf(error);
            ++report.failed[size_t(why)];
            if (why == Failure::Unwritable && !report.firstWriteError)
                report.firstWriteError = error.message();
        }
    }
    if (options.progress)
        options.progress(report.done + report.totalFailed(), items.size());
    return report;
}

} // namespace nuvrel
