// The system's trash, clipboard and volumes, checked against what the system itself shows.

#include "platform/system/SystemClipboard.h"
#include "platform/system/SystemTrash.h"
#include "platform/system/SystemVolumes.h"

#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMimeData>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUrl>

#include <gtest/gtest.h>

using namespace nuvrel;

TEST(SystemTrash, MovesIntoTheHomeTrashEvenWhenItDoesNotExistYet)
{
#ifdef Q_OS_MACOS
    GTEST_SKIP() << "the Finder's trash is the system's own business";
#endif
    // Each test process has a home of its own with no trash yet: the case Qt 6.4 gets wrong.
    const QString trash =
        QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Trash");
    QDir(trash).removeRecursively();
    const QString folder = QDir::home().filePath(QStringLiteral("Pictures/doublons"));
    ASSERT_TRUE(QDir().mkpath(folder));
    const QString original = QDir(folder).filePath(QStringLiteral("IMG_0001 copie.JPG"));
    QFile file(original);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("photo");
    file.close();

    SystemTrash system;
    const std::optional<QString> trashed = system.moveToTrash(original);
    ASSERT_TRUE(trashed.has_value());
    EXPECT_FALSE(QFileInfo::exists(original));
    EXPECT_EQ(QFileInfo(*trashed).absolutePath(), QFileInfo(trash + QStringLiteral("/files")).absoluteFilePath());
    QFile kept(*trashed);
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), QByteArray("photo"));
    // Its record says where it came from, so the desktop can put it back.
    QFile info(trash + QStringLiteral("/info/") + QFileInfo(*trashed).fileName() + QStringLiteral(".trashinfo"));
    ASSERT_TRUE(info.open(QIODevice::ReadOnly));
    EXPECT_TRUE(info.readAll().contains("Path="));

    EXPECT_FALSE(system.moveToTrash(QDir(folder).filePath(QStringLiteral("nothing here"))).has_value());
}

TEST(SystemVolumes, TheVolumeOfAFolderIsTheOneDfNames)
{
    QTemporaryDir scratch;
    SystemVolumes volumes;
    const std::optional<Volume> volume = volumes.volumeOf(scratch.filePath(QStringLiteral("not/made/yet")));
    ASSERT_TRUE(volume.has_value());
    QProcess df;
    df.start(QStringLiteral("df"), {QStringLiteral("--output=target,size"), QStringLiteral("-B1"), scratch.path()});
    ASSERT_TRUE(df.waitForFinished());
    const QStringList line =
        QString::fromUtf8(df.readAllStandardOutput()).split(u'\n').value(1).simplified().split(u' ');
    ASSERT_EQ(line.size(), 2);
    EXPECT_EQ(volume->root, line[0]);
    EXPECT_EQ(volume->total, line[1].toLongLong());
    EXPECT_GT(volume->available, 0);
    EXPECT_FALSE(volumes.mounted().isEmpty());
}

TEST(SystemClipboard, FilesArePastedAsFilesByFileManagers)
{
    SystemClipboard clipboard;
    clipboard.copyFiles({QStringLiteral("/tmp/a b.jpg"), QStringLiteral("/tmp/é.pdf")});
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->urls(), (QList<QUrl>{QUrl::fromLocalFile(QStringLiteral("/tmp/a b.jpg")),
                                         QUrl::fromLocalFile(QStringLiteral("/tmp/é.pdf"))}));
    EXPECT_EQ(data->data(QStringLiteral("x-special/gnome-copied-files")),
              QByteArray("copy\nfile:///tmp/a%20b.jpg\nfile:///tmp/%C3%A9.pdf"));
    clipboard.copyText(QStringLiteral("192.168.1.20:8080"));
    EXPECT_EQ(QGuiApplication::clipboard()->text(), QStringLiteral("192.168.1.20:8080"));
}
