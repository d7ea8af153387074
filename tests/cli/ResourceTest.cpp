// What a command needs of the machine: its peak memory on a huge conversation, and what it says when the
// disk fills up under it. Processes, a 40 MB conversation and a private mount: run in the optimised
// build only, where memory is the program's own (sanitizers change it).

#include "ChildProcess.h"
#include "support/BackupFixture.h"
#include "support/ChatFixtures.h"
#include "support/FolderSnapshot.h"
#include "support/SampleBackup.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

using namespace nuvrel::test;

namespace {

// A WhatsApp export of about `bytes`, as a long-lived family chat looks.
QString writeLongExport(const QString& path, qint64 bytes)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    qint64 written = 0;
    for (int i = 0; written < bytes; ++i) {
        QByteArray line = QStringLiteral("[%1/11/2026, %2:%3:07] %4: Message numéro %5, à demain au café ?\n")
                              .arg(1 + i % 28)
                              .arg(1 + i % 12)
                              .arg(i % 60, 2, 10, QLatin1Char('0'))
                              .arg(i % 2 ? QStringLiteral("Camille") : QStringLiteral("Louis"))
                              .arg(i)
                              .toUtf8();
        if (i % 7 == 0)
            line += "une seconde ligne, qui continue le message\n";
        written += file.write(line);
    }
    return path;
}

// Runs the CLI through "unshare -m", with a tmpfs of `size` mounted on `mountPoint` for it alone; what
// it left there is listed on standard error, one "left: name" line each, before the mount goes away.
ChildRun onFullDisk(const QString& mountPoint, const QString& size, const QStringList& arguments,
                    const QMap<QString, QString>& environment = {})
{
    ChildLimits limits;
    limits.prefix = {QStringLiteral("unshare"),
                     QStringLiteral("-m"),
                     QStringLiteral("sh"),
                     QStringLiteral("-c"),
                     QStringLiteral("mount -t tmpfs -o size=%1 nuvrel-full \"$0\" && { \"$@\"; status=$?; "
                                    "cd \"$0\" && find . -mindepth 1 -type f | sed 's|^./|left: |' >&2; "
                                    "exit $status; }")
                         .arg(size),
                     mountPoint};
    limits.environment = environment;
    return runChild(QStringLiteral(NUVREL_CLI), arguments, limits);
}

bool canMountPrivately()
{
    QTemporaryDir point;
    return runChild(QStringLiteral("true"), {},
                    [&] {
                        ChildLimits limits;
                        limits.prefix = {QStringLiteral("unshare"),
                                         QStringLiteral("-m"),
                                         QStringLiteral("sh"),
                                         QStringLiteral("-c"),
                                         QStringLiteral("mount -t tmpfs none \"$0\" && exec \"$@\""),
                                         point.path()};
                        return limits;
                    }())
               .exitCode == 0;
}

} // namespace

TEST(Resources, AHugeConversationIsWrittenOutInMemoryNearItsOwnSize)
{
    QTemporaryDir folder;
    constexpr qint64 size = 40 << 20;
    const QString exported = writeLongExport(folder.filePath(QStringLiteral("chat.txt")), size);
    // The conversation itself is about three times its UTF-8 size in memory (UTF-16, and a date and a
    // sender per message); a whole document of the output built first would take many times more.
    for (const QString& format : {QStringLiteral("text"), QStringLiteral("json")}) {
        const ChildRun run = runChild(QStringLiteral(NUVREL_CLI),
                                      {QStringLiteral("chat-export"), exported, QStringLiteral("--format"), format});
        EXPECT_EQ(run.exitCode, 0) << qPrintable(run.err);
        EXPECT_GT(run.out.size(), size) << qPrintable(format);
        EXPECT_LT(run.peakKiB * 1024, 5 * size) << qPrintable(format) << ": " << run.peakKiB / 1024 << " MiB";
    }
}

TEST(Resources, AFullDiskIsToldAsSuchAndLeavesNoHalfFile)
{
    if (!canMountPrivately())
        GTEST_SKIP() << "needs a private mount (unshare -m), which needs root";
    QTemporaryDir root;
    SampleBackup plain;
    plain.id = QStringLiteral("plain");
    plain.files = {{QStringLiteral("HomeDomain"), QStringLiteral("Library/small.txt"), QByteArray("a small file\n")},
                   {QStringLiteral("HomeDomain"), QStringLiteral("Library/large.bin"), pseudoRandomBytes(3 << 20, 4)}};
    plain.write(root.path());

    // The destination fills up: the large file fails with the reason, the small one is whole.
    QTemporaryDir destination;
    const ChildRun extract =
        onFullDisk(destination.path(), QStringLiteral("1m"),
                   {QStringLiteral("extract"), QStringLiteral("plain"), QStringLiteral("--root"), root.path(),
                    QStringLiteral("--to"), destination.path(), QStringLiteral("--lang"), QStringLiteral("fr")});
    EXPECT_EQ(extract.exitCode, 7) << qPrintable(extract.err);
    EXPECT_TRUE(extract.err.contains(QStringLiteral("Plus assez de place sur le disque"))) << qPrintable(extract.err);
    EXPECT_TRUE(extract.err.contains(QStringLiteral("left: HomeDomain/Library/small.txt"))) << qPrintable(extract.err);
    EXPECT_FALSE(extract.err.contains(QStringLiteral("left: HomeDomain/Library/large"))) << qPrintable(extract.err);
    EXPECT_FALSE(extract.err.contains(QStringLiteral(".nuvrel-"))) << qPrintable(extract.err);

    // The folder of private copies fills up: the chat database cannot be copied, and it says why.
    QTemporaryDir data;
    const QString database = root.filePath(QStringLiteral("sms.db"));
    writeLargeMessagesDatabase(database, 20'000, 3, 10'000);
    ASSERT_GT(QFileInfo(database).size(), 1 << 20);
    const ChildRun chats =
        onFullDisk(data.path(), QStringLiteral("256k"),
                   {QStringLiteral("chats"), database, QStringLiteral("--lang"), QStringLiteral("fr")},
                   {{QStringLiteral("XDG_DATA_HOME"), data.path()}});
    EXPECT_EQ(chats.exitCode, 6) << qPrintable(chats.err);
    EXPECT_TRUE(chats.err.contains(QStringLiteral("Plus assez de place sur le disque"))) << qPrintable(chats.err);
    EXPECT_FALSE(chats.err.contains(QStringLiteral("Accès complet au disque"))) << qPrintable(chats.err);
}

TEST(Resources, ALightenedFileThatDoesNotFitTheDiskLeavesNothing)
{
    if (!canMountPrivately())
        GTEST_SKIP() << "needs a private mount (unshare -m), which needs root";
    QTemporaryDir sources;
    // Random bytes neither zip smaller nor fit: the copy fails for want of room.
    const QString raw = sources.filePath(QStringLiteral("IMG_0001.DNG"));
    QFile file(raw);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(pseudoRandomBytes(3 << 20, 9));
    file.close();
    QStringList arguments{QStringLiteral("lighten"), raw};
    // A video whose export outgrows the disk: ffmpeg fails, and the reason is ours to say.
    const QString clip = sources.filePath(QStringLiteral("clip.mp4"));
    const bool withVideo =
        QProcess::execute(QStringLiteral("ffmpeg"),
                          {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"), QStringLiteral("lavfi"),
                           QStringLiteral("-i"), QStringLiteral("testsrc2=size=1280x720:rate=30,noise=alls=60:allf=t"),
                           QStringLiteral("-t"), QStringLiteral("4"), QStringLiteral("-c:v"), QStringLiteral("libx264"),
                           QStringLiteral("-preset"), QStringLiteral("ultrafast"), clip}) == 0;
    if (withVideo)
        arguments << clip;
    QTemporaryDir destination;
    const ChildRun run = onFullDisk(destination.path(), QStringLiteral("1m"),
                                    arguments + QStringList{QStringLiteral("--target"), QStringLiteral("telegram"),
                                                            QStringLiteral("--to"), destination.path(),
                                                            QStringLiteral("--lang"), QStringLiteral("fr")});
    EXPECT_EQ(run.exitCode, 7) << qPrintable(run.err);
    EXPECT_EQ(run.err.count(QStringLiteral("Plus assez de place sur le disque")), withVideo ? 2 : 1)
        << qPrintable(run.err);
    EXPECT_FALSE(run.err.contains(QStringLiteral("left: "))) << qPrintable(run.err);
}
