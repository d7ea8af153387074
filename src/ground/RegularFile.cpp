#include "ground/RegularFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nuvrel {

bool openRegularFile(QFile& file, const QString& path, const RegularFileRules& rules)
{
    // Non-blocking, so that opening a FIFO with no writer returns at once; the check is made on what was
    // opened, so nothing can be swapped in between.
    int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;
    if (rules.noFollow)
        flags |= O_NOFOLLOW;
    const int fd = ::open(QFile::encodeName(path).constData(), flags);
    if (fd < 0)
        return false;
    struct stat info = {};
    int refusal = ::fstat(fd, &info) == 0 ? 0 : errno;
    if (refusal == 0 && !S_ISREG(info.st_mode))
        refusal = EINVAL;
    if (refusal == 0 && rules.maxSize && info.st_size > *rules.maxSize)
        refusal = EFBIG;
    if (refusal == 0 && ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0)
        refusal = errno;
    if (refusal != 0 || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        errno = refusal != 0 ? refusal : EIO;
        return false;
    }
    return true;
}

} // namespace nuvrel
