// nuvrel-cli lighten, run as a script would run it.

#include "CliRunner.h"
#include "support/BackupFixture.h"

#include "support/MediaFixtures.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel::test;

TEST(LightenCommand, ALineForEachFileAndStatusSevenWhenOneFailed)
{
    if (!hasTool(QStringLiteral("ffmpeg")))
        GTEST_SKIP() << "needs ffmpeg to make a photo";
    QTemporaryDir dir;
    const QString photo = dir.filePath(QStringLiteral("IMG_0001.JPG"));
    ASSERT_TRUE(writeDetailedJpeg(photo, {3000, 2000}));
    const QString notes = dir.filePath(QStringLiteral("notes.txt"));
    writeFile(notes, QByteArray(100'000, 'n'));
    const QString broken = dir.filePath(QStringLiteral("broken.mov"));
    writeFile(broken, "no video here\n");
    const QString out = dir.filePath(QStringLiteral("allégés"));
    const QStringList files{photo, notes, broken, dir.filePath(QStringLiteral("absent.pdf"))};

    const CliRun run = runCli(QStringList{QStringLiteral("lighten")} + files +
                              QStringList{QStringLiteral("--target"), QStringLiteral("whatsapp"),
                                          QStringLiteral("--to"), out, QStringLiteral("--lang"), QStringLiteral("fr")});
    EXPECT_EQ(run.exitCode, 7) << qPrintable(run.err);
    const QStringList lines = run.out.split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2) << qPrintable(run.out);
    EXPECT_TRUE(lines[0].contains(QStringLiteral(" → "))) << qPrintable(lines[0]);
    EXPECT_TRUE(lines[0].endsWith(QDir(out).filePath(QStringLiteral("IMG_0001-leger.jpg")))) << qPrintable(lines[0]);
    EXPECT_TRUE(lines[1].endsWith(QDir(out).filePath(QStringLiteral("notes.txt.zip")))) << qPrintable(lines[1]);
    EXPECT_TRUE(run.err.contains(QStringLiteral("broken.mov : Impossible d'alléger cette vidéo.")))
        << qPrintable(run.err);
    EXPECT_TRUE(run.err.contains(QStringLiteral("absent.pdf : "))) << qPrintable(run.err);

    // The same as JSON, the failures among the results; HEIC kept and position kept are accepted.
    const CliRun json =
        runCli(QStringList{QStringLiteral("lighten")} + files +
               QStringList{QStringLiteral("--target"), QStringLiteral("mail"), QStringLiteral("--to"), out,
                           QStringLiteral("--keep-location"), QStringLiteral("--keep-heic"), QStringLiteral("--json")});
    EXPECT_EQ(json.exitCode, 7);
    const QJsonArray results = QJsonDocument::fromJson(json.out.toUtf8()).array();
    ASSERT_EQ(results.size(), 4) << qPrintable(json.out);
    const QJsonObject first = results[0].toObject();
    EXPECT_EQ(first.value(QStringLiteral("output")).toString(),
              QDir(out).filePath(QStringLiteral("IMG_0001-leger-2.jpg")));
    EXPECT_GT(first.value(QStringLiteral("sizeBefore")).toInteger(),
              first.value(QStringLiteral("sizeAfter")).toInteger());
    EXPECT_FALSE(results[2].toObject().value(QStringLiteral("error")).toString().isEmpty());
    EXPECT_FALSE(results[3].toObject().contains(QStringLiteral("output")));
}

TEST(LightenCommand, MistakesAndAMissingToolAreSaid)
{
    QTemporaryDir dir;
    const QString notes = dir.filePath(QStringLiteral("notes.txt"));
    writeFile(notes, "x");
    const QStringList fr{QStringLiteral("--lang"), QStringLiteral("fr")};

    const CliRun noFolder =
        runCli(QStringList{QStringLiteral("lighten"), notes, QStringLiteral("--target"), QStringLiteral("mail")} + fr);
    EXPECT_EQ(noFolder.exitCode, 3);
    EXPECT_TRUE(noFolder.err.contains(QStringLiteral("--to"))) << qPrintable(noFolder.err);
    const CliRun badTarget = runCli(QStringList{QStringLiteral("lighten"), notes, QStringLiteral("--target"),
                                                QStringLiteral("fax"), QStringLiteral("--to"), dir.path()} +
                                    fr);
    EXPECT_EQ(badTarget.exitCode, 3);
    EXPECT_TRUE(badTarget.err.contains(QStringLiteral("whatsapp|telegram|mail|messages|free")))
        << qPrintable(badTarget.err);
    const CliRun noTarget =
        runCli(QStringList{QStringLiteral("lighten"), notes, QStringLiteral("--to"), dir.path()} + fr);
    EXPECT_EQ(noTarget.exitCode, 3);
    const CliRun noFiles = runCli(QStringList{QStringLiteral("lighten"), QStringLiteral("--target"),
                                              QStringLiteral("mail"), QStringLiteral("--to"), dir.path()} +
                                  fr);
    EXPECT_EQ(noFiles.exitCode, 3);
    EXPECT_TRUE(noFiles.err.contains(QStringLiteral("Précise les fichiers à alléger."))) << qPrintable(noFiles.err);

    // Without ffmpeg, a video says what is missing; other files are not held back by it.
    const QString clip = dir.filePath(QStringLiteral("clip.mp4"));
    writeFile(clip, QByteArray(1000, '\0'));
    const CliRun withoutFfmpeg =
        runCli(QStringList{QStringLiteral("lighten"), clip, notes, QStringLiteral("--target"), QStringLiteral("mail"),
                           QStringLiteral("--to"), dir.filePath(QStringLiteral("out"))} +
                   fr,
               {{QStringLiteral("PATH"), dir.filePath(QStringLiteral("nothing"))}});
    EXPECT_EQ(withoutFfmpeg.exitCode, 7);
    EXPECT_TRUE(withoutFfmpeg.err.contains(
        QStringLiteral("Les vidéos ne peuvent pas être allégées : l'outil ffmpeg n'est pas installé.")))
        << qPrintable(withoutFfmpeg.err);
    EXPECT_TRUE(withoutFfmpeg.out.contains(QStringLiteral("notes.txt"))) << qPrintable(withoutFfmpeg.out);
}
