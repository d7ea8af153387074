#include "CliRunner.h"
#include "support/BackupFixture.h"
#include "support/MediaFixtures.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel::test;

namespace {

using Groups = QSet<QSet<QString>>;

Groups groupsOf(const QJsonArray& array)
{
    Groups groups;
    for (const auto& group : array) {
        QSet<QString> members;
        for (const auto& file : group.toArray())
            members.insert(file.toObject().value(QStringLiteral("path")).toString());
        groups.insert(members);
    }
    return groups;
}

// jdupes prints each set of identical files as lines, sets apart by a blank line.
Groups jdupesGroups(const QString& folder)
{
    QProcess process;
    process.start(QStringLiteral("jdupes"), {QStringLiteral("-r"), QStringLiteral("-A"), QStringLiteral("-q"), folder});
    process.waitForFinished(60'000);
    Groups groups;
    QSet<QString> current;
    for (const QString& line : QString::fromUtf8(process.readAllStandardOutput()).split(u'\n')) {
        if (line.isEmpty()) {
            if (!current.isEmpty())
                groups.insert(current);
            current.clear();
        } else {
            current.insert(line);
        }
    }
    if (!current.isEmpty())
        groups.insert(current);
    return groups;
}

} // namespace

TEST(DuplicatesCommand, FindsWhatJdupesFindsAndRemembersTheFolder)
{
    QTemporaryDir folder;
    const auto file = [&folder](const QString& name) { return folder.filePath(name); };
    for (int i = 0; i < 30; ++i) {
        // Same sizes, contents that differ at the start, the middle or the end; and true copies.
        QByteArray bytes(20'000 + (i % 3) * 4096, 'x');
        bytes[(i % 4) * (bytes.size() - 1) / 3] = char('a' + i);
        writeFile(file(QStringLiteral("lot%1/f%2.bin").arg(i % 5).arg(i)), bytes);
        if (i % 4 == 0)
            writeFile(file(QStringLiteral("copies/f%1.bin").arg(i)), bytes);
        if (i % 8 == 0)
            writeFile(file(QStringLiteral("copies/encore/f%1.bin").arg(i)), bytes);
    }
    writeFile(file(QStringLiteral(".cache/f0.bin")), "caché"); // hidden: never looked at
    writeFile(file(QStringLiteral("vide1")), "");
    writeFile(file(QStringLiteral("vide2")), "");

    const CliRun json = runCli({QStringLiteral("duplicates"), folder.path(), QStringLiteral("--json")});
    ASSERT_EQ(json.exitCode, 0) << qPrintable(json.err);
    const QJsonObject result = QJsonDocument::fromJson(json.out.toUtf8()).object();
    const Groups ours = groupsOf(result.value(QStringLiteral("identical")).toArray());
    EXPECT_EQ(ours.size(), 8);
    EXPECT_FALSE(result.contains(QStringLiteral("similar")));
    if (hasTool(QStringLiteral("jdupes"))) {
        EXPECT_EQ(ours, jdupesGroups(folder.path()));
    }
    qint64 extra = 0;
    for (const auto& group : result.value(QStringLiteral("identical")).toArray())
        extra +=
            group.toArray().first().toObject().value(QStringLiteral("size")).toInteger() * (group.toArray().size() - 1);
    EXPECT_EQ(result.value(QStringLiteral("recoverable")).toInteger(), extra);

    // Without a folder, the one last searched.
    const CliRun again = runCli({QStringLiteral("duplicates"), QStringLiteral("--json")});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_EQ(again.out, json.out);

    const CliRun text = runCli({QStringLiteral("duplicates"), folder.path(), QStringLiteral("--similar")});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_TRUE(text.out.contains(QStringLiteral("8 groupes de fichiers identiques")));
    EXPECT_TRUE(text.out.contains(QStringLiteral("0 groupe de photos qui se ressemblent")));

    QTemporaryDir empty;
    writeFile(empty.filePath(QStringLiteral("seul.txt")), "un seul fichier");
    EXPECT_EQ(runCli({QStringLiteral("duplicates"), empty.path()}).exitCode, 1);
    EXPECT_EQ(runCli({QStringLiteral("duplicates"), file(QStringLiteral("absent"))}).exitCode, 6);
}

TEST(DuplicatesCommand, TheTrashTakesOnlyExtraCopiesAndOnlyWhenConfirmed)
{
    // Under the home, beside its trash.
    const QString root = QDir::home().filePath(QStringLiteral("Bureau"));
    writeFile(QDir(root).filePath(QStringLiteral("a/rapport.pdf")), QByteArray(9000, 'r'));
    writeFile(QDir(root).filePath(QStringLiteral("b/rapport.pdf")), QByteArray(9000, 'r'));
    QImage scene(640, 480, QImage::Format_RGB32);
    for (int y = 0; y < scene.height(); ++y) {
        for (int x = 0; x < scene.width(); ++x)
            scene.setPixel(x, y, qRgb((x * 5) % 256, (y * 2) % 256, ((x + y) * 3) % 256));
    }
    ASSERT_TRUE(scene.save(QDir(root).filePath(QStringLiteral("photo.jpg")), "JPEG", 95));
    ASSERT_TRUE(scene.save(QDir(root).filePath(QStringLiteral("photo-bis.jpg")), "JPEG", 55));

    const CliRun unconfirmed = runCli({QStringLiteral("duplicates"), root, QStringLiteral("--trash")});
    EXPECT_EQ(unconfirmed.exitCode, 3);
    EXPECT_TRUE(unconfirmed.err.contains(QStringLiteral("--yes")));
    EXPECT_TRUE(QFile::exists(QDir(root).filePath(QStringLiteral("b/rapport.pdf"))));

    // With --json, standard output holds the document alone.
    const CliRun json = runCli({QStringLiteral("duplicates"), root, QStringLiteral("--json"), QStringLiteral("--trash"),
                                QStringLiteral("--yes")});
    EXPECT_EQ(json.exitCode, 0) << qPrintable(json.err);
    QJsonParseError error{};
    QJsonDocument::fromJson(json.out.toUtf8(), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << qPrintable(json.out);
    EXPECT_TRUE(json.err.contains(QStringLiteral("1 fichier envoyé à la Corbeille")));
    EXPECT_FALSE(QFile::exists(QDir(root).filePath(QStringLiteral("b/rapport.pdf"))));
    writeFile(QDir(root).filePath(QStringLiteral("b/rapport.pdf")), QByteArray(9000, 'r'));

    const CliRun trashed = runCli({QStringLiteral("duplicates"), root, QStringLiteral("--similar"),
                                   QStringLiteral("--trash"), QStringLiteral("--yes")});
    EXPECT_EQ(trashed.exitCode, 0) << qPrintable(trashed.err);
    EXPECT_TRUE(trashed.out.contains(QStringLiteral("1 groupe de photos qui se ressemblent")));
    EXPECT_TRUE(trashed.out.contains(QStringLiteral("1 fichier envoyé à la Corbeille")));
    // The copy made second is the one that went; similar photos are never trashed.
    EXPECT_TRUE(QFile::exists(QDir(root).filePath(QStringLiteral("a/rapport.pdf"))));
    EXPECT_FALSE(QFile::exists(QDir(root).filePath(QStringLiteral("b/rapport.pdf"))));
    EXPECT_TRUE(QFile::exists(QDir(root).filePath(QStringLiteral("photo.jpg"))));
    EXPECT_TRUE(QFile::exists(QDir(root).filePath(QStringLiteral("photo-bis.jpg"))));
    // The command's trash, outside the test mode of this process's standard paths.
    const QString trash = qEnvironmentVariable("XDG_DATA_HOME", QDir::home().filePath(QStringLiteral(".local/share"))) +
                          QStringLiteral("/Trash");
    // Both trips left their file and record there, the second under a free name.
    EXPECT_TRUE(QFile::exists(trash + QStringLiteral("/files/rapport.pdf")));
    EXPECT_TRUE(QFile::exists(trash + QStringLiteral("/info/rapport.pdf.trashinfo")));
    EXPECT_EQ(QDir(trash + QStringLiteral("/info")).entryList(QDir::Files).size(), 2);
    QDir(root).removeRecursively();
}
