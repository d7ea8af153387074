#include "engines/transfer/TransferPrep.h"

#include "ground/FreeName.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <sys/stat.h>
#include <zip.h>

namespace nuvrel {

namespace {

struct ZipDeleter
{
    void operator()(zip_t* archive) const { zip_discard(archive); }
};

/// Photos and videos are compressed already: stored as they are, deflating them only costs time.
bool isCompressed(const QString& suffix)
{
    static const QSet<QString> suffixes{
        QStringLiteral("jpg"), QStringLiteral("jpeg"), QStringLiteral("heic"), QStringLiteral("heif"),
        QStringLiteral("png"), QStringLiteral("gif"),  QStringLiteral("webp"), QStringLiteral("mov"),
        QStringLiteral("mp4"), QStringLiteral("m4v"),  QStringLiteral("m4a"),  QStringLiteral("mp3"),
        QStringLiteral("aac"), QStringLiteral("zip"),  QStringLiteral("gz"),   QStringLiteral("7z"),
        QStringLiteral("pdf"), QStringLiteral("mkv"),  QStringLiteral("webm"), QStringLiteral("avi")};
    return suffixes.contains(suffix.toLower());
}

bool isLinkOrOther(const QString& path, bool& folder)
{
    struct stat status
    {};
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
        return true;
    folder = S_ISDIR(status.st_mode);
    return !folder && !S_ISREG(status.st_mode);
}

struct Archiving
{
    const TransferPrep::Progress* progress;
    const std::atomic<bool>* cancel;
    qint64 before;
    qint64 size;
    qint64 total;
};

/// `folder` and everything under it (links left out) into a new archive at `destination`, its
/// entries under the folder's own name.
bool zipFolder(const QString& folder, const QString& destination, Archiving& state)
{
    int error = 0;
    std::unique_ptr<zip_t, ZipDeleter> archive(
        zip_open(QFile::encodeName(destination).constData(), ZIP_CREATE | ZIP_EXCL, &error));
    if (!archive)
        return false;
    const QDir base = QFileInfo(folder).dir();
    QDirIterator walk(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    zip_dir_add(archive.get(), base.relativeFilePath(folder).toUtf8().constData(), ZIP_FL_ENC_UTF_8);
    while (walk.hasNext()) {
        const QString path = walk.next();
        const QFileInfo info = walk.fileInfo();
        const QByteArray name = base.relativeFilePath(path).toUtf8();
        if (info.isSymLink())
            continue; // never followed: a link could lead anywhere on the disk
        if (info.isDir()) {
            if (zip_dir_add(archive.get(), name.constData(), ZIP_FL_ENC_UTF_8) < 0)
                return false;
            continue;
        }
        if (!info.isFile())
            continue;
        zip_source_t* data = zip_source_file(archive.get(), QFile::encodeName(path).constData(), 0, 0);
        if (!data)
            return false;
        const zip_int64_t index = zip_file_add(archive.get(), name.constData(), data, ZIP_FL_ENC_UTF_8);
        if (index < 0) {
            zip_source_free(data);
            return false;
        }
        const bool store = isCompressed(info.suffix());
        if (zip_set_file_compression(archive.get(), zip_uint64_t(index), store ? ZIP_CM_STORE : ZIP_CM_DEFLATE,
                                     store ? 0 : 6) != 0)
            return false;
        zip_file_set_mtime(archive.get(), zip_uint64_t(index), time_t(info.lastModified().toSecsSinceEpoch()), 0);
    }
    // The work happens here: libzip reads each file as it writes, under a temporary name it renames.
    zip_register_progress_callback_with_state(
        archive.get(), 0.01,
        [](zip_t*, double fraction, void* context) {
            const auto* s = static_cast<const Archiving*>(context);
            if (*s->progress)
                (*s->progress)(s->before + qint64(fraction * double(s->size)), s->total);
        },
        nullptr, &state);
    zip_register_cancel_callback_with_state(
        archive.get(),
        [](zip_t*, void* context) {
            const auto* s = static_cast<const Archiving*>(context);
            return s->cancel && s->cancel->load(std::memory_order_relaxed) ? 1 : 0;
        },
        nullptr, &state);
    if (zip_close(archive.get()) != 0) {
        QFile::remove(destination);
        return false; // the deleter discards it
    }
    static_cast<void>(archive.release());
    return true;
}

qint64 folderSize(const QString& folder)
{
    qint64 size = 0;
    QDirIterator walk(folder, QDir::Files | QDir::Hidden | QDir::System | QDir::NoSymLinks,
                      QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        walk.next();
        size += walk.fileInfo().size();
    }
    return size;
}

} // namespace

TransferPrep::TransferPrep() = default;
TransferPrep::~TransferPrep() = default;

TransferPrep::Result TransferPrep::prepare(const QStringList& items, const Progress& progress,
                                           const std::atomic<bool>* cancel)
{
    Result result;
    QList<qint64> sizes;
    qint64 total = 0;
    for (const QString& item : items) {
        bool folder = false;
        const bool other = isLinkOrOther(item, folder);
        sizes.append(!other && folder ? folderSize(item) : 0);
        total += sizes.constLast();
    }
    qint64 done = 0;
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (cancel && cancel->load(std::memory_order_relaxed)) {
            result.cancelled = true;
            break;
        }
        const QString item = QFileInfo(items[i]).absoluteFilePath();
        bool folder = false;
        if (isLinkOrOther(item, folder) || !m_folder.isValid()) {
            result.failed.append(item);
            continue;
        }
        if (!folder) {
            const QFileInfo info(item);
            result.files.append({item, info.fileName(), info.size(), info.lastModified()});
            continue;
        }
        // Two folders of one name get two names: "Photos.zip", "Photos (2).zip".
        const QString name = QFileInfo(item).fileName() + QStringLiteral(".zip");
        const QString destination = freeName(QDir(m_folder.path()).filePath(name), FreeNameStyle::Parenthesised);
        Archiving state{&progress, cancel, done, sizes[i], total};
        if (zipFolder(item, destination, state)) {
            const QFileInfo info(destination);
            result.files.append({destination, info.fileName(), info.size(), info.lastModified()});
        } else if (cancel && cancel->load(std::memory_order_relaxed)) {
            result.cancelled = true;
            break;
        } else {
            result.failed.append(item);
        }
        done += sizes[i];
    }
    return result;
}

} // namespace nuvrel
