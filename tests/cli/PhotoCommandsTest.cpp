#include "CliRunner.h"
#include "support/PhotosLibraryFixture.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel::test;

namespace {

bool writeFile(const QString& path, const QByteArray& content, const QDateTime& modified)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush())
        return false;
    return file.setFileTime(modified, QFileDevice::FileModificationTime);
}

QJsonObject json(const CliRun& run)
{
    return QJsonDocument::fromJson(run.out.toUtf8()).object();
}

QStringList filesBelow(const QString& folder)
{
    QStringList found;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        found.append(QDir(folder).relativeFilePath(it.next()));
    found.sort();
    return found;
}

} // namespace

TEST(PhotoImportCommand, ACardIsImportedOnceWithTheWindowsHistoryAndItsChoices)
{
    QTemporaryDir home;
    const QMap<QString, QString> environment = {
        {QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data"))},
        {QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config"))}};
    const QString card = home.filePath(QStringLiteral("card"));
    const QString out = home.filePath(QStringLiteral("out"));
    ASSERT_TRUE(writeFile(card + QStringLiteral("/DCIM/100APPLE/IMG_0001.JPG"), "photo 1",
                          QDateTime(QDate(2024, 1, 10), QTime(9, 0), Qt::UTC)));
    ASSERT_TRUE(writeFile(card + QStringLiteral("/DCIM/100APPLE/IMG_0002.MOV"), "video 2",
                          QDateTime(QDate(2024, 2, 10), QTime(9, 0), Qt::UTC)));
    ASSERT_TRUE(writeFile(card + QStringLiteral("/DCIM/101APPLE/IMG_0003.HEIC"), "photo 3",
                          QDateTime(QDate(2024, 3, 10), QTime(9, 0), Qt::UTC)));

    // Only the photos of February on: one file.
    CliRun run = runCli({QStringLiteral("photo-import"), QStringLiteral("--from"), card, QStringLiteral("--to"), out,
                         QStringLiteral("--photos"), QStringLiteral("--since"), QStringLiteral("2024-02-01"),
                         QStringLiteral("--json")},
                        environment);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(json(run).value(QStringLiteral("copied")).toInt(), 1);
    EXPECT_EQ(filesBelow(out), QStringList{QStringLiteral("2024-03/IMG_0003.HEIC")});

    // Everything: what was copied is already there, by the same history file.
    run = runCli({QStringLiteral("photo-import"), QStringLiteral("--from"), card, QStringLiteral("--to"), out},
                 environment);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.out.startsWith(QStringLiteral("2 copiés, 1 déjà présents, 0 échecs."))) << run.out.toStdString();
    EXPECT_TRUE(QFile::exists(home.filePath(QStringLiteral("data/Nuvrel/copied-history.json"))));
    EXPECT_EQ(filesBelow(out).size(), 3);
    EXPECT_EQ(json(runCli({QStringLiteral("photo-import"), QStringLiteral("--from"), card + QStringLiteral("/DCIM"),
                           QStringLiteral("--to"), out, QStringLiteral("--json")},
                          environment))
                  .value(QStringLiteral("alreadyPresent"))
                  .toInt(),
              3);

    // Mistakes and empty choices, each with its code.
    EXPECT_EQ(runCli({QStringLiteral("photo-import"), QStringLiteral("--to"), out}, environment).exitCode, 3);
    run = runCli({QStringLiteral("photo-import"), QStringLiteral("--from"), card, QStringLiteral("--since"),
                  QStringLiteral("2024-13-01")},
                 environment);
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_TRUE(run.err.contains(QStringLiteral("--since"))) << run.err.toStdString();
    run = runCli({QStringLiteral("photo-import"), QStringLiteral("--from"), card, QStringLiteral("--until"),
                  QStringLiteral("2020-01-01")},
                 environment);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("Rien ne correspond à ta sélection."))) << run.err.toStdString();
    EXPECT_EQ(runCli({QStringLiteral("photo-import"), QStringLiteral("--from"), home.filePath(QStringLiteral("none"))},
                     environment)
                  .exitCode,
              6);

    // The phone on the cable: none here (no usbmuxd listens where the command looks); both sources at
    // once is a mistake.
    QMap<QString, QString> noMuxd = environment;
    noMuxd.insert(QStringLiteral("USBMUXD_SOCKET_ADDRESS"),
                  QStringLiteral("UNIX:") + home.filePath(QStringLiteral("no-usbmuxd")));
    run = runCli({QStringLiteral("photo-import"), QStringLiteral("--device"), QStringLiteral("--to"), out}, noMuxd);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Aucun iPhone trouvé\n"))) << run.err.toStdString();
    EXPECT_EQ(
        runCli({QStringLiteral("photo-import"), QStringLiteral("--device"), QStringLiteral("--from"), card}, noMuxd)
            .exitCode,
        3);

    // A destination where a file stands: the run says so and stops with its own code.
    ASSERT_TRUE(writeFile(home.filePath(QStringLiteral("blocked")), "x", QDateTime::currentDateTimeUtc()));
    QFile::remove(home.filePath(QStringLiteral("data/Nuvrel/copied-history.json")));
    run = runCli({QStringLiteral("photo-import"), QStringLiteral("--from"), card, QStringLiteral("--to"),
                  home.filePath(QStringLiteral("blocked"))},
                 environment);
    EXPECT_EQ(run.exitCode, 10);
    EXPECT_TRUE(run.out.contains(QStringLiteral("Impossible de créer le dossier de destination.")))
        << run.out.toStdString();
}

TEST(PhotosLibraryCommand, ALibraryIsBackedUpOnceAndOtherFoldersAreRefused)
{
    QTemporaryDir home;
    const QString package = home.filePath(QStringLiteral("Photos Library.photoslibrary"));
    const QString uuid = QStringLiteral("0A1B2C3D-0000-4000-8000-00000000000A");
    {
        LibraryBuilder library(package, "ZASSET", 17000);
        library.add({uuid, QStringLiteral("0"), uuid + QStringLiteral(".heic"),
                     appleSeconds(QDateTime(QDate(2025, 7, 14), QTime(12, 0))), 0, 0, false, false,
                     QStringLiteral("IMG_0100.HEIC")});
        library.file(QStringLiteral("originals/0/") + uuid + QStringLiteral(".heic"), "the original");
    }
    const QString out = home.filePath(QStringLiteral("out"));
    CliRun run = runCli({QStringLiteral("photos-library"), package, QStringLiteral("--to"), out});
    // A small test disk may hold less than the 15 GB a backup asks for: then it refuses, plainly.
    if (run.exitCode == 10 && run.out.contains(QStringLiteral("Go libres")))
        GTEST_SKIP() << "less than 15 GB free here";
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString() << run.out.toStdString();
    EXPECT_TRUE(run.out.contains(QStringLiteral(": 1 copiés, 0 déjà présents, 0 échecs."))) << run.out.toStdString();
    EXPECT_EQ(filesBelow(out),
              (QStringList{QStringLiteral(".Nuvrel-ignores.json"), QStringLiteral("2025-07/IMG_0100.HEIC")}));
    run = runCli({QStringLiteral("photos-library"), package, QStringLiteral("--to"), out, QStringLiteral("--json")});
    EXPECT_EQ(json(run).value(QStringLiteral("alreadyPresent")).toInt(), 1);

    run = runCli({QStringLiteral("photos-library"), home.filePath(QStringLiteral("out"))});
    EXPECT_EQ(run.exitCode, 6);
    EXPECT_TRUE(run.err.contains(QStringLiteral("n'est pas une photothèque"))) << run.err.toStdString();
    EXPECT_EQ(runCli({QStringLiteral("photos-library")}).exitCode, 3);
}
