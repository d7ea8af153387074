#include "ground/WorkFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace nuvrel;

namespace {

// A child process that makes a work folder, says where, and then lives until killed.
struct Holder
{
    pid_t pid = -1;
    QString folder;
};

Holder startHolder()
{
    int channel[2];
    if (::pipe(channel) != 0)
        return {};
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(channel[0]);
        WorkFolder held(QStringLiteral("test-holder"));
        const QByteArray path = held.path().toUtf8() + '\n';
        (void)!::write(channel[1], path.constData(), size_t(path.size()));
        ::pause();
        ::_exit(0);
    }
    ::close(channel[1]);
    QByteArray path;
    char c = 0;
    while (::read(channel[0], &c, 1) == 1 && c != '\n')
        path += c;
    ::close(channel[0]);
    return {pid, QString::fromUtf8(path)};
}

void makeOld(const QString& path)
{
    const timeval old[2] = {{::time(nullptr) - 3600, 0}, {::time(nullptr) - 3600, 0}};
    ::utimes(QFile::encodeName(path).constData(), old);
}

} // namespace

TEST(WorkFolder, OnlyFoldersWhoseOwnerIsGoneAreRemovedAtALaterStart)
{
    WorkFolder mine(QStringLiteral("test-group"));
    EXPECT_TRUE(mine.path().startsWith(WorkFolder::root()));
    EXPECT_EQ(QFileInfo(mine.path()).permissions() &
                  (QFileDevice::ReadGroup | QFileDevice::ReadOther | QFileDevice::WriteGroup | QFileDevice::WriteOther),
              0);
    QFile(QDir(mine.path()).filePath(QStringLiteral("manifest.db"))).open(QIODevice::WriteOnly);

    // Another program's live folder, then the same program killed: its lock is left, but stale.
    const Holder holder = startHolder();
    ASSERT_GT(holder.pid, 0);
    ASSERT_TRUE(QFileInfo(holder.folder).isDir()) << qPrintable(holder.folder);
    WorkFolder::removeAbandoned();
    EXPECT_TRUE(QFileInfo(mine.path()).isDir()) << "a live folder of this program";
    EXPECT_TRUE(QFileInfo(holder.folder).isDir()) << "a live folder of another program";
    ::kill(holder.pid, SIGKILL);
    ::waitpid(holder.pid, nullptr, 0);

    // A folder without a lock: just being made, or left by a program that never locked it.
    const QString fresh = QDir(WorkFolder::root()).filePath(QStringLiteral("test-group/fresh"));
    const QString old = QDir(WorkFolder::root()).filePath(QStringLiteral("test-group/old"));
    ASSERT_TRUE(QDir().mkpath(fresh) && QDir().mkpath(old));
    makeOld(old);

    EXPECT_EQ(WorkFolder::removeAbandoned(), 2);
    EXPECT_FALSE(QFileInfo::exists(holder.folder)) << "killed: removed, with its group folder";
    EXPECT_FALSE(QFileInfo::exists(QFileInfo(holder.folder).absolutePath()));
    EXPECT_FALSE(QFileInfo::exists(old));
    EXPECT_TRUE(QFileInfo(fresh).isDir());
    EXPECT_TRUE(QFileInfo(mine.path()).isDir());

    // Once its owner is done, a folder and its group go; a group another folder uses stays.
    QDir().rmdir(fresh);
    WorkFolder other(QStringLiteral("test-group"));
    mine.remove();
    EXPECT_FALSE(QFileInfo::exists(mine.path()));
    EXPECT_TRUE(QFileInfo(other.path()).isDir());
    other.remove();
    EXPECT_FALSE(QFileInfo::exists(QDir(WorkFolder::root()).filePath(QStringLiteral("test-group"))));
}
