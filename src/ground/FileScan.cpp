#include "ground/FileScan.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nuvrel {

namespace {

QDateTime fromTime(qint64 seconds, qint64 nanoseconds)
{
    // In UTC: a local time would have the C library look at the time zone file for every file.
    return QDateTime::fromMSecsSinceEpoch(seconds * 1000 + nanoseconds / 1'000'000, Qt::UTC);
}

EntryStatus::Type typeOf(unsigned mode)
{
    if (S_ISREG(mode))
        return EntryStatus::Type::File;
    if (S_ISDIR(mode))
        return EntryStatus::Type::Folder;
    return EntryStatus::Type::Other;
}

} // namespace

std::optional<EntryStatus> entryStatus(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    EntryStatus status;
#if defined(__linux__)
    // statx gives the birth time that lstat lacks.
    struct statx info = {};
    if (::statx(AT_FDCWD, name.constData(), AT_SYMLINK_NOFOLLOW,
                STATX_TYPE | STATX_SIZE | STATX_INO | STATX_MTIME | STATX_BTIME, &info) != 0)
        return std::nullopt;
    status.type = typeOf(info.stx_mode);
    status.size = qint64(info.stx_size);
    status.device = quint64(info.stx_dev_major) << 32 | info.stx_dev_minor;
    status.inode = info.stx_ino;
    status.modified = fromTime(info.stx_mtime.tv_sec, info.stx_mtime.tv_nsec);
    status.born =
        (info.stx_mask & STATX_BTIME) != 0 ? fromTime(info.stx_btime.tv_sec, info.stx_btime.tv_nsec) : status.modified;
#else
    struct stat info = {};
    if (::lstat(name.constData(), &info) != 0)
        return std::nullopt;
    status.type = typeOf(info.st_mode);
    status.size = qint64(info.st_size);
    status.device = quint64(info.st_dev);
    status.inode = quint64(info.st_ino);
    status.modified = fromTime(info.st_mtimespec.tv_sec, info.st_mtimespec.tv_nsec);
    status.born = fromTime(info.st_birthtimespec.tv_sec, info.st_birthtimespec.tv_nsec);
#endif
    return status;
}

bool FileReader::open(const QString& path)
{
    close();
    // Non-blocking, so that a FIFO with no writer returns at once; on a regular file the flag changes
    // nothing. The check is made on what was opened, so nothing can be swapped in between.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return false;
    struct stat info = {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return false;
    }
    m_fd = fd;
    return true;
}

void FileReader::close()
{
    if (m_fd >= 0)
        ::close(std::exchange(m_fd, -1));
}

bool FileReader::readAt(qint64 offset, char* into, qint64 length) const
{
    while (length > 0) {
        const ssize_t read = ::pread(m_fd, into, size_t(length), off_t(offset));
        if (read < 0 && errno == EINTR)
            continue;
        if (read <= 0)
            return false;
        into += read;
        offset += read;
        length -= read;
    }
    return true;
}

} // namespace nuvrel
