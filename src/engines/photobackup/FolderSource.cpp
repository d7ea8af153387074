#include "engines/photobackup/FolderSource.h"

#include "ground/BundleFolders.h"
#include "ground/FileScan.h"
#include "ground/RegularFile.h"
#include "ground/SystemError.h"
#include "media/CaptureDate.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>

namespace nuvrel {

namespace {

// A DCIM tree is a few levels deep; a folder nested deeper than this is a loop or an attack.
constexpr int maxDepth = 24;

class FolderFileReader final : public CameraFileReader
{
public:
    explicit FolderFileReader(QString path)
        : m_path(std::move(path))
    {}

    bool open(QString& error)
    {
        if (openRegularFile(m_file, m_path, {.maxSize = std::nullopt, .noFollow = true}))
            return true;
        error = FileError::fromErrno(FileError::Operation::Read, errno, m_path).message();
        return false;
    }

    qint64 read(char* into, qint64 capacity) override
    {
        errno = 0;
        const qint64 got = m_file.read(into, capacity);
        if (got < 0)
            m_error = FileError::fromErrno(FileError::Operation::Read, errno ? errno : EIO, m_path).message();
        return got;
    }

    QString errorText() const override { return m_error; }

private:
    QString m_path;
    QFile m_file;
    QString m_error;
};

struct Walk
{
    const std::atomic<bool>* cancel;
    QList<CameraFile> found;

    bool cancelled() const { return cancel && cancel->load(std::memory_order_relaxed); }

    void visit(const QString& folder, int depth)
    {
        if (depth > maxDepth || cancelled())
            return;
        QDir dir(folder);
        // Sorted by name, as a camera numbers its files: the source's order among equal dates.
        const QStringList names =
            dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System, QDir::Name | QDir::IgnoreCase);
        for (const QString& name : names) {
            if (cancelled())
                return;
            if (name.startsWith(u'.'))
                continue;
            const QString path = dir.filePath(name);
            const std::optional<EntryStatus> status = entryStatus(path);
            if (!status)
                continue;
            if (status->type == EntryStatus::Type::Folder) {
                if (!isBundleFolder(name))
                    visit(path, depth + 1);
            } else if (status->type == EntryStatus::Type::File && FolderSource::isMediaName(name)) {
                CameraFile file;
                file.path = path;
                file.name = name;
                file.size = status->size;
                file.created = recordedCaptureDate(path);
                if (!file.created.isValid())
                    file.created = status->modified;
                found.append(std::move(file));
            }
        }
    }
};

} // namespace

FolderSource::FolderSource(const QString& folder, QString deviceName)
    : m_deviceName(std::move(deviceName))
{
    const QString chosen = QDir::cleanPath(QDir(folder).absolutePath());
    const QString dcim = QDir(chosen).filePath(QStringLiteral("DCIM"));
    m_root = QFileInfo(dcim).isDir() ? dcim : chosen;
}

QString FolderSource::nameForFolder(const QString& folder, const QString& mountedPhoneName,
                                    const QString& removableVolumeLabel)
{
    if (!mountedPhoneName.isEmpty())
        return mountedPhoneName;
    if (!removableVolumeLabel.isEmpty())
        return removableVolumeLabel;
    QFileInfo info(QDir::cleanPath(QDir(folder).absolutePath()));
    if (info.fileName().compare(QLatin1String("DCIM"), Qt::CaseInsensitive) == 0)
        info = QFileInfo(info.absolutePath());
    return info.fileName();
}

bool FolderSource::isRemovableMountPoint(const QString& mountPoint)
{
    static const QStringList places = {QStringLiteral("/media/"), QStringLiteral("/run/media/"),
                                       QStringLiteral("/mnt/"), QStringLiteral("/Volumes/")};
    return std::any_of(places.cbegin(), places.cend(),
                       [&mountPoint](const QString& place) { return mountPoint.startsWith(place); });
}

bool FolderSource::isMediaName(const QString& name)
{
    static const QStringList suffixes = {
        QStringLiteral("jpg"), QStringLiteral("jpeg"), QStringLiteral("heic"), QStringLiteral("heif"),
        QStringLiteral("png"), QStringLiteral("gif"),  QStringLiteral("tif"),  QStringLiteral("tiff"),
        QStringLiteral("dng"), QStringLiteral("webp"), QStringLiteral("mov"),  QStringLiteral("mp4"),
        QStringLiteral("m4v"), QStringLiteral("3gp"),  QStringLiteral("avi"),
    };
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot > 0 && suffixes.contains(name.mid(dot + 1).toLower());
}

QList<CameraFile> FolderSource::mediaFiles(const std::atomic<bool>* cancel)
{
    if (!QFileInfo(m_root).isDir())
        throw FileError(FileError::Operation::Read, SystemErrorKind::Missing, m_root);
    if (!QFileInfo(m_root).isReadable())
        throw FileError(FileError::Operation::Read, SystemErrorKind::NoPermission, m_root);
    Walk walk{cancel, {}};
    walk.visit(m_root, 0);
    return std::move(walk.found);
}

std::unique_ptr<CameraFileReader> FolderSource::open(const CameraFile& file, QString& error)
{
    // Only what the listing found, below the root: a path is never taken from anywhere else.
    if (!file.path.startsWith(m_root + u'/')) {
        error = FileError(FileError::Operation::Read, SystemErrorKind::Missing, file.path).message();
        return nullptr;
    }
    auto reader = std::make_unique<FolderFileReader>(file.path);
    if (!reader->open(error))
        return nullptr;
    return reader;
}

bool FolderSource::isPresent()
{
    return QFileInfo(m_root).isDir();
}

} // namespace nuvrel
