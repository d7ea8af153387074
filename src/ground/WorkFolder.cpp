#include "ground/WorkFolder.h"

#include "ground/SystemError.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QLockFile>
#include <QStandardPaths>
#include <QUuid>

#include <cerrno>

namespace nuvrel {

namespace {

const QString lockName = QStringLiteral(".nuvrel.lock");

// A folder is made before its lock; one without a lock is abandoned only once it is clearly not in
// the middle of being made.
constexpr qint64 unlockedGraceSeconds = 60;

bool makePrivateFolder(const QString& path)
{
    if (!QDir().mkpath(path))
        return false;
    return QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

// Whether the process that made `folder` is gone: its lock is stale, or it never took one.
bool isAbandoned(const QString& folder)
{
    const QString lockPath = QDir(folder).filePath(lockName);
    if (!QFileInfo::exists(lockPath)) {
        const QDateTime made = QFileInfo(folder).lastModified();
        return made.isValid() && made.secsTo(QDateTime::currentDateTime()) > unlockedGraceSeconds;
    }
    QLockFile lock(lockPath);
    lock.setStaleLockTime(0); // never stale by age: only when its process is gone
    if (!lock.tryLock(0))
        return false;
    lock.unlock();
    return true;
}

} // namespace

WorkFolder::WorkFolder(const QString& group)
{
    QString name = group;
    name.replace(u'/', u'_').replace(u'\\', u'_');
    if (name.isEmpty() || name == u"." || name == u"..")
        name = QStringLiteral("work");
    m_path = QDir(root()).filePath(name + u'/' + QUuid::createUuid().toString(QUuid::Id128).left(12));
    if (!makePrivateFolder(m_path))
        throw FileError::fromErrno(FileError::Operation::Write, errno, m_path);
    m_lock = std::make_unique<QLockFile>(QDir(m_path).filePath(lockName));
    m_lock->setStaleLockTime(0);
    if (!m_lock->tryLock(0)) {
        remove();
        throw FileError(FileError::Operation::Write, SystemErrorKind::Other, m_path);
    }
}

WorkFolder::~WorkFolder() = default;

void WorkFolder::remove()
{
    if (m_lock)
        m_lock->unlock();
    QDir(m_path).removeRecursively();
    QDir().rmdir(QFileInfo(m_path).absolutePath()); // refused while another folder of the group is there
}

QString WorkFolder::root()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Nuvrel/Temp");
}

int WorkFolder::removeAbandoned()
{
    int removed = 0;
    const QDir top(root());
    for (const QString& group : top.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden)) {
        if (QFileInfo(top.filePath(group)).isSymLink())
            continue;
        const QDir groupDir(top.filePath(group));
        for (const QString& name : groupDir.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden)) {
            const QString folder = groupDir.filePath(name);
            if (!QFileInfo(folder).isSymLink() && isAbandoned(folder) && QDir(folder).removeRecursively())
                ++removed;
        }
        top.rmdir(group); // only when empty
    }
    return removed;
}

} // namespace nuvrel
