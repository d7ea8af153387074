#include "ground/NewFile.h"
#include "ground/SystemError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

using namespace nuvrel;

namespace {

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList names(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

} // namespace

TEST(NewFile, NamedOnlyWhenWholeAndNeverReplacing)
{
    QTemporaryDir folder;
    const QString wanted = folder.filePath(QStringLiteral("deep/er/IMG_0001.JPG"));
    {
        NewFile out(wanted, FreeNameStyle::Parenthesised);
        out.device().write("first");
        // Until it is committed, the final name does not exist: a crash here leaves no half file there.
        EXPECT_FALSE(QFileInfo::exists(wanted));
        EXPECT_TRUE(QFileInfo(out.temporaryPath()).fileName().startsWith(u'.'));
        const QDateTime modified = QDateTime::fromSecsSinceEpoch(1'600'000'000);
        EXPECT_EQ(out.commit(modified), wanted);
        EXPECT_EQ(QFileInfo(wanted).lastModified(), modified);
    }
    {
        NewFile out(wanted, FreeNameStyle::Parenthesised);
        out.device().write("second");
        EXPECT_EQ(out.commit(), folder.filePath(QStringLiteral("deep/er/IMG_0001 (2).JPG")));
    }
    {
        NewFile abandoned(wanted, FreeNameStyle::Parenthesised);
        abandoned.device().write("never named");
    }
    EXPECT_EQ(readAll(wanted), QByteArray("first"));
    EXPECT_EQ(names(folder.filePath(QStringLiteral("deep/er"))),
              (QStringList{QStringLiteral("IMG_0001 (2).JPG"), QStringLiteral("IMG_0001.JPG")}));
}

TEST(NewFile, AFullLengthNameStillHasRoomForItsTemporaryName)
{
    QTemporaryDir folder;
    const QString name = QString(251, u'x') + QStringLiteral(".jpg"); // 255 bytes, the most a name may have
    NewFile out(folder.filePath(name), FreeNameStyle::Parenthesised);
    out.device().write("x");
    EXPECT_EQ(QFileInfo(out.commit()).fileName(), name);
}

TEST(NewFile, WritersRacingForOneNameEachKeepTheirOwnFile)
{
    QTemporaryDir folder;
    const QString wanted = folder.filePath(QStringLiteral("report.pdf"));
    constexpr int writers = 16;
    std::mutex lock;
    QSet<QString> written;
    std::vector<std::thread> threads;
    for (int i = 0; i < writers; ++i) {
        threads.emplace_back([&, i] {
            NewFile out(wanted, FreeNameStyle::Hyphenated);
            out.device().write(QByteArray::number(i));
            const QString name = out.commit();
            const std::lock_guard guard(lock);
            written.insert(name);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_EQ(written.size(), writers);
    QSet<QByteArray> contents;
    for (const QString& name : written)
        contents.insert(readAll(name));
    EXPECT_EQ(contents.size(), writers);             // nobody's bytes were replaced by another's
    EXPECT_EQ(names(folder.path()).size(), writers); // and no temporary file is left
}

TEST(NewFile, AFolderThatCannotBeMadeIsAFileErrorNamingIt)
{
    QTemporaryDir folder;
    QFile blocker(folder.filePath(QStringLiteral("taken")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    try {
        NewFile out(folder.filePath(QStringLiteral("taken/inside.txt")), FreeNameStyle::Parenthesised);
        FAIL() << "a file stands where the folder must go";
    } catch (const FileError& error) {
        EXPECT_EQ(error.operation(), FileError::Operation::Write);
        EXPECT_TRUE(error.message().contains(QStringLiteral("taken")));
        EXPECT_FALSE(error.message().contains(QStringLiteral("No such"))); // never the system's English
    }
}
