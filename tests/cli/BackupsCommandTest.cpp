// Runs the real nuvrel-cli binary, as a script would.

#include "CliRunner.h"

#include "support/BackupFixture.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel::test;

namespace {

class BackupsCommandTest : public testing::Test
{
protected:
    void SetUp() override
    {
        writeBackup(m_root.path(),
                    {QStringLiteral("00008110-0001"),
                     infoPlist(QStringLiteral("iPhone de Ana"), QStringLiteral("iPhone15,2"), QStringLiteral("17.5.1"),
                               QDateTime(QDate(2026, 11, 20), QTime(18, 30), QTimeZone::utc())),
                     manifestPlist(true)});
        writeBackup(m_root.path(),
                    {QStringLiteral("00008030-0002"),
                     infoPlist(QStringLiteral("Vieux téléphone"), QStringLiteral("iPhone12,1"), QStringLiteral("16.7"),
                               QDateTime(QDate(2023, 2, 1), QTime(8, 0), QTimeZone::utc())),
                     std::nullopt, PlistFormat::Xml});
    }
    QString root() const { return m_root.path(); }

    QTemporaryDir m_root;
};

} // namespace

TEST_F(BackupsCommandTest, ListsBackupsNewestFirstInFrenchAndInEnglish)
{
    const CliRun french = runCli(
        {QStringLiteral("backups"), QStringLiteral("--root"), root(), QStringLiteral("--lang"), QStringLiteral("fr")});
    EXPECT_EQ(french.exitCode, 0) << qPrintable(french.err);
    const QStringList lines = french.out.split(u'\n');
    ASSERT_GE(lines.size(), 5) << qPrintable(french.out);
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("Sauvegardes trouvées dans"))) << qPrintable(french.out);
    EXPECT_TRUE(lines[2].startsWith(QStringLiteral("Appareil"))) << qPrintable(french.out);
    EXPECT_TRUE(lines[3].startsWith(QStringLiteral("iPhone de Ana"))) << qPrintable(french.out);
    EXPECT_TRUE(lines[3].contains(QStringLiteral("20 novembre 2026 à 18:30"))) << qPrintable(lines[3]);
    EXPECT_TRUE(lines[3].trimmed().endsWith(QStringLiteral("oui"))) << qPrintable(lines[3]);
    EXPECT_TRUE(lines[4].startsWith(QStringLiteral("Vieux téléphone"))) << qPrintable(french.out);
    EXPECT_TRUE(lines[4].trimmed().endsWith(QStringLiteral("non"))) << qPrintable(lines[4]);
    // Columns line up: the model column starts at the same place on every row.
    EXPECT_EQ(lines[3].indexOf(QStringLiteral("iPhone15,2")), lines[4].indexOf(QStringLiteral("iPhone12,1")));

    const CliRun english =
        runCli({QStringLiteral("backups"), QStringLiteral("--lang=en"), QStringLiteral("--root"), root()});
    EXPECT_EQ(english.exitCode, 0) << qPrintable(english.err);
    EXPECT_TRUE(english.out.contains(QStringLiteral("November 20, 2026"))) << qPrintable(english.out);
    EXPECT_TRUE(english.out.contains(QStringLiteral("Device"))) << qPrintable(english.out);
    EXPECT_FALSE(english.out.contains(QStringLiteral("Appareil"))) << qPrintable(english.out);
}

TEST_F(BackupsCommandTest, JsonCarriesEveryFieldAndTheRootComesFromTheEnvironment)
{
    const CliRun run =
        runCli({QStringLiteral("backups"), QStringLiteral("--json")}, {{QStringLiteral("NUVREL_BACKUP_ROOT"), root()}});
    EXPECT_EQ(run.exitCode, 0) << qPrintable(run.err);
    QJsonParseError error;
    const QJsonObject document = QJsonDocument::fromJson(run.out.toUtf8(), &error).object();
    ASSERT_EQ(error.error, QJsonParseError::NoError) << qPrintable(run.out);
    EXPECT_EQ(document.value(QStringLiteral("status")).toString(), QStringLiteral("found"));
    EXPECT_EQ(document.value(QStringLiteral("root")).toString(), root());
    const QJsonArray backups = document.value(QStringLiteral("backups")).toArray();
    ASSERT_EQ(backups.size(), 2);
    const QJsonObject first = backups[0].toObject();
    EXPECT_EQ(first.value(QStringLiteral("id")).toString(), QStringLiteral("00008110-0001"));
    EXPECT_EQ(first.value(QStringLiteral("deviceName")).toString(), QStringLiteral("iPhone de Ana"));
    EXPECT_EQ(first.value(QStringLiteral("productType")).toString(), QStringLiteral("iPhone15,2"));
    EXPECT_EQ(first.value(QStringLiteral("iosVersion")).toString(), QStringLiteral("17.5.1"));
    EXPECT_EQ(first.value(QStringLiteral("lastBackup")).toString(), QStringLiteral("2026-11-20T18:30:00Z"));
    EXPECT_TRUE(first.value(QStringLiteral("isEncrypted")).toBool());
    EXPECT_FALSE(backups[1].toObject().value(QStringLiteral("isEncrypted")).toBool());
}

TEST_F(BackupsCommandTest, NothingFoundAndMistakesHaveTheirExitCodes)
{
    QTemporaryDir empty;
    const CliRun none = runCli({QStringLiteral("backups"), QStringLiteral("--root"), empty.path(),
                                QStringLiteral("--lang"), QStringLiteral("fr")});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_TRUE(none.err.contains(QStringLiteral("Aucune sauvegarde dans"))) << qPrintable(none.err);
    EXPECT_TRUE(none.out.isEmpty());

    const CliRun missingJson = runCli({QStringLiteral("backups"), QStringLiteral("--json"), QStringLiteral("--root"),
                                       empty.path() + QStringLiteral("/nope")});
    EXPECT_EQ(missingJson.exitCode, 1);
    EXPECT_TRUE(missingJson.out.contains(QStringLiteral("\"empty\""))) << qPrintable(missingJson.out);

    const CliRun badLanguage = runCli({QStringLiteral("backups"), QStringLiteral("--lang"), QStringLiteral("xx")});
    EXPECT_EQ(badLanguage.exitCode, 3);
    EXPECT_TRUE(badLanguage.err.contains(QStringLiteral("xx"))) << qPrintable(badLanguage.err);
    EXPECT_TRUE(badLanguage.err.contains(QStringLiteral("sr-Cyrl"))) << qPrintable(badLanguage.err);

    const CliRun unknownOption = runCli(
        {QStringLiteral("backups"), QStringLiteral("--frobnicate"), QStringLiteral("--lang"), QStringLiteral("en")});
    EXPECT_EQ(unknownOption.exitCode, 3);
    EXPECT_TRUE(unknownOption.err.contains(QStringLiteral("Unknown option"))) << qPrintable(unknownOption.err);
    EXPECT_EQ(runCli({QStringLiteral("backups"), QStringLiteral("--root")}).exitCode, 3);
    EXPECT_EQ(runCli({QStringLiteral("restore")}).exitCode, 3);
    EXPECT_EQ(runCli({}).exitCode, 3);

    const CliRun help = runCli({QStringLiteral("--help"), QStringLiteral("--lang"), QStringLiteral("de")});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* code : {"\n  0", "\n  1", "\n  2", "\n  3"})
        EXPECT_TRUE(help.out.contains(QString::fromLatin1(code))) << qPrintable(help.out);
    EXPECT_TRUE(help.out.contains(QStringLiteral("--root"))) << qPrintable(help.out);
}
