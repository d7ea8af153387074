#include "ground/RegularFile.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cerrno>
#include <sys/stat.h>

using namespace nuvrel;

TEST(RegularFile, SpecialFilesLinksAndOversizedFilesAreRefusedWithoutWaiting)
{
    QTemporaryDir folder;
    const QString plain = folder.filePath(QStringLiteral("Info.plist"));
    QFile writer(plain);
    ASSERT_TRUE(writer.open(QIODevice::WriteOnly));
    writer.write(QByteArray(100, 'x'));
    writer.close();

    QFile file;
    ASSERT_TRUE(openRegularFile(file, plain));
    EXPECT_EQ(file.readAll().size(), 100);
    file.close();

    // A FIFO with no writer would block an ordinary open forever: this returns at once.
    const QString fifo = folder.filePath(QStringLiteral("Manifest.plist"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    EXPECT_FALSE(openRegularFile(file, fifo));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(file.isOpen());
    // A device never ends.
    EXPECT_FALSE(openRegularFile(file, QStringLiteral("/dev/zero")));

    EXPECT_FALSE(openRegularFile(file, plain, {99, false}));
    EXPECT_EQ(errno, EFBIG);
    EXPECT_TRUE(openRegularFile(file, plain, {100, false}));
    file.close();

    const QString link = folder.filePath(QStringLiteral("link"));
    ASSERT_TRUE(QFile::link(plain, link));
    EXPECT_TRUE(openRegularFile(file, link));
    file.close();
    EXPECT_FALSE(openRegularFile(file, link, {std::nullopt, true}));
    EXPECT_EQ(errno, ELOOP);
    EXPECT_FALSE(openRegularFile(file, folder.filePath(QStringLiteral("missing"))));
    EXPECT_EQ(errno, ENOENT);
}
