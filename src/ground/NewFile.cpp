#include "ground/NewFile.h"

#include "ground/SystemError.h"

#include <QDir>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace nuvrel {

namespace {

using Op = FileError::Operation;

// Gives `from` the name `to` only if `to` is free, atomically where the file system allows it.
// 0 on success, else the errno (EEXIST when the name is taken).
int claim(const QByteArray& from, const QByteArray& to, bool& linked)
{
    // A hard link fails when the name exists; the temporary name is then removed by its owner.
    if (::link(from.constData(), to.constData()) == 0) {
        linked = true;
        return 0;
    }
    const int linkError = errno;
    if (linkError == EEXIST || linkError == ENOSPC || linkError == EROFS || linkError == EACCES ||
        linkError == ENAMETOOLONG || linkError == ENOENT)
        return linkError;
        // Volumes without hard links (FAT, exFAT, some network shares): a rename that refuses to replace.
#if defined(Q_OS_LINUX)
    if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)
        return errno;
#elif defined(Q_OS_MACOS)
    if (::renamex_np(from.constData(), to.constData(), RENAME_EXCL) == 0)
        return 0;
    if (errno != ENOTSUP)
        return errno;
#endif
    // Last resort, for a file system that has neither: look, then rename. Only another writer racing
    // for the same name in the same instant could be replaced.
    if (::access(to.constData(), F_OK) == 0)
        return EEXIST;
    return ::rename(from.constData(), to.constData()) == 0 ? 0 : errno;
}

} // namespace

NewFile::NewFile(const QString& destination, FreeNameStyle style, QFileDevice::Permissions permissions)
    : m_destination(QFileInfo(destination).absoluteFilePath())
    , m_style(style)
{
    const QString folder = QFileInfo(m_destination).absolutePath();
    if (!QDir().mkpath(folder))
        throw FileError::fromErrno(Op::Write, errno, folder);
    // A short name of its own: the final name may already use all the bytes a name can have.
    for (int attempt = 0;; ++attempt) {
        m_file.setFileName(QDir(folder).filePath(
            QStringLiteral(".nuvrel-%1.part").arg(QRandomGenerator::global()->generate64(), 16, 16, QLatin1Char('0'))));
        if (m_file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
            break;
        const int error = errno;
        if (error != EEXIST || attempt == 16)
            throw FileError::fromErrno(Op::Write, error, m_destination);
    }
    m_file.setPermissions(permissions);
}

NewFile::~NewFile()
{
    if (!m_committed)
        m_file.remove();
}

QFileDevice& NewFile::device()
{
    return m_file;
}

QString NewFile::temporaryPath() const
{
    return m_file.fileName();
}

QString NewFile::handOver()
{
    m_file.close();
    return m_file.fileName();
}

QString NewFile::commit(const std::optional<QDateTime>& modified)
{
    const QString name = QFileInfo(m_destination).fileName();
    return commit(modified, [this, &name](int n) { return numberedName(name, n, m_style); });
}

QString NewFile::commit(const std::optional<QDateTime>& modified, const std::function<QString(int n)>& numbered)
{
    flushAndStamp(modified);
    const QByteArray from = QFile::encodeName(m_file.fileName());
    const QString folder = QFileInfo(m_destination).absolutePath();
    for (int n = 1;; ++n) {
        QString candidate = n == 1 ? m_destination : QDir(folder).filePath(numbered(n));
        bool linked = false;
        const int error = claim(from, QFile::encodeName(candidate), linked);
        if (error == EEXIST)
            continue;
        if (error != 0)
            throw FileError::fromErrno(Op::Write, error, candidate);
        m_file.close();
        if (linked)
            ::unlink(from.constData()); // the file lives on under its final name
        m_committed = true;
        return candidate;
    }
}

QString NewFile::commitReplacing(const std::optional<QDateTime>& modified)
{
    flushAndStamp(modified);
    if (QFileInfo(m_destination).isDir())
        throw FileError(Op::Write, SystemErrorKind::Other, m_destination);
    m_file.close();
    if (::rename(QFile::encodeName(m_file.fileName()).constData(), QFile::encodeName(m_destination).constData()) != 0)
        throw FileError::fromErrno(Op::Write, errno, m_destination);
    m_committed = true;
    return m_destination;
}

void NewFile::flushAndStamp(const std::optional<QDateTime>& modified)
{
    // No fsync: the name guards against an interrupted program, not a power cut, and syncing each of
    // fifty thousand photos would take minutes.
    if (!m_file.isOpen()) { // handed over: stamped by name
        if (modified && modified->isValid() && m_file.open(QIODevice::ReadOnly)) {
            m_file.setFileTime(*modified, QFileDevice::FileModificationTime);
            m_file.close();
        }
        return;
    }
    errno = 0;
    if (!m_file.flush())
        throw FileError::fromErrno(Op::Write, errno ? errno : EIO, m_destination);
    if (modified && modified->isValid())
        m_file.setFileTime(*modified, QFileDevice::FileModificationTime); // a refusal leaves the time of writing
}

} // namespace nuvrel
