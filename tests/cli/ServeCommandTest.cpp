// nuvrel-cli serve as a person runs it: on loopback, the address printed (and in its QR code), a
// download logged, Ctrl+C ending it cleanly with the run's archives gone; and the mistakes it refuses.

#include "CliRunner.h"
#include "support/BackupFixture.h"
#include "support/HttpFetch.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

using namespace nuvrel::test;

TEST(ServeCommand, ServesUntilCtrlCAndLogsEachDownload)
{
    if (QStandardPaths::findExecutable(QStringLiteral("curl")).isEmpty())
        GTEST_SKIP() << "curl is not installed";
    QTemporaryDir folder;
    const QString video = folder.filePath(QStringLiteral("clip.mov"));
    const QByteArray bytes = noise(1'500'000, 3);
    writeFile(video, bytes);
    writeFile(folder.filePath(QStringLiteral("Album/IMG_0001.JPG")), noise(5000, 4));

    QProcess serve;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("LANGUAGE"), QStringLiteral("fr_FR"));
    env.insert(QStringLiteral("TMPDIR"), folder.filePath(QStringLiteral("tmp")));
    QDir().mkpath(folder.filePath(QStringLiteral("tmp")));
    serve.setProcessEnvironment(env);
    serve.start(QStringLiteral(NUVREL_CLI),
                {QStringLiteral("serve"), video, folder.filePath(QStringLiteral("Album")), QStringLiteral("--address"),
                 QStringLiteral("127.0.0.1"), QStringLiteral("--lang"), QStringLiteral("fr")});
    ASSERT_TRUE(serve.waitForStarted());
    QString out;
    static const QRegularExpression address(QStringLiteral("^http://127\\.0\\.0\\.1:\\d+/[a-z2-7]{26}/$"),
                                            QRegularExpression::MultilineOption);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            out += QString::fromUtf8(serve.readAllStandardOutput());
            return out.contains(QStringLiteral("Ctrl+C"));
        },
        30'000))
        << qPrintable(out) << serve.readAllStandardError().constData();
    const QString url = address.match(out).captured(0);
    ASSERT_FALSE(url.isEmpty()) << qPrintable(out);
    EXPECT_TRUE(out.contains(QStringLiteral("▀")) || out.contains(QStringLiteral("█"))); // the code
    EXPECT_TRUE(out.contains(QStringLiteral("  Album.zip  (")));
    // The archive lives in a private folder of this run.
    const QStringList runFolders =
        QDir(folder.filePath(QStringLiteral("tmp"))).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    ASSERT_EQ(runFolders.size(), 1);

    EXPECT_TRUE(fetch(url + QStringLiteral("f/0")).body == bytes);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            out += QString::fromUtf8(serve.readAllStandardOutput());
            return out.contains(QStringLiteral("« clip.mov » envoyé."));
        },
        10'000))
        << qPrintable(out);

    ::kill(pid_t(serve.processId()), SIGINT);
    ASSERT_TRUE(serve.waitForFinished(10'000));
    EXPECT_EQ(serve.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(serve.exitCode(), 0);
    EXPECT_TRUE(QString::fromUtf8(serve.readAllStandardOutput()).contains(QStringLiteral("Envoi arrêté.")));
    EXPECT_TRUE(QDir(folder.filePath(QStringLiteral("tmp"))).entryList(QDir::Dirs | QDir::NoDotAndDotDot).isEmpty());
    EXPECT_EQ(fetch(url).status, 0);
}

TEST(ServeCommand, RefusesWhatCannotBeServed)
{
    QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("a.txt"));
    writeFile(file, "a");
    const QStringList loopback{QStringLiteral("--address"), QStringLiteral("127.0.0.1")};

    CliRun run = runCli({QStringLiteral("serve")});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_TRUE(run.err.contains(QStringLiteral("Indique au moins un fichier"))) << qPrintable(run.err);
    for (const QString& port :
         {QStringLiteral("0"), QStringLiteral("65536"), QStringLiteral("http"), QStringLiteral("-1")}) {
        run = runCli(QStringList{QStringLiteral("serve"), file, QStringLiteral("--port=") + port} + loopback);
        EXPECT_EQ(run.exitCode, 3) << qPrintable(port);
        EXPECT_TRUE(run.err.startsWith(QStringLiteral("Port invalide"))) << qPrintable(run.err);
    }
    for (const QString& bad : {QStringLiteral("999.1.1.1"), QStringLiteral("::1"), QStringLiteral("localhost")}) {
        run = runCli({QStringLiteral("serve"), file, QStringLiteral("--address"), bad});
        EXPECT_EQ(run.exitCode, 3) << qPrintable(bad);
        EXPECT_TRUE(run.err.startsWith(QStringLiteral("Adresse invalide"))) << qPrintable(run.err);
    }
    // An address this machine does not have: nothing can listen there.
    run = runCli({QStringLiteral("serve"), file, QStringLiteral("--address"), QStringLiteral("192.0.2.1")});
    EXPECT_EQ(run.exitCode, 9);
    EXPECT_TRUE(run.err.contains(QStringLiteral("Impossible de démarrer le partage Wi-Fi."))) << qPrintable(run.err);
    // Nothing readable: said for each, nothing served.
    run = runCli(QStringList{QStringLiteral("serve"), folder.filePath(QStringLiteral("absent.mov"))} + loopback);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("absent.mov » n'est pas proposé"))) << qPrintable(run.err);
}
