// nuvrel-cli files and extract, run as a script would run them.

#include "CliRunner.h"

#include "engines/backup/BackupCatalogue.h"
#include "engines/backup/BackupLocator.h"
#include "engines/backup/IPhoneBackupReader.h"
#include "support/BackupFixture.h"
#include "support/FolderSnapshot.h"
#include "support/SampleBackup.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel::test;

namespace {

class FilesCommandTest : public testing::Test
{
protected:
    void SetUp() override
    {
        SampleBackup plain;
        plain.id = QStringLiteral("plain");
        plain.files = cameraRollPhotos(3);
        plain.files.append({QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db"), QByteArray("sms")});
        plain.files.append({QStringLiteral("HomeDomain"), QStringLiteral("../../escape.txt"), QByteArray("hostile")});
        plain.files.append(
            {QStringLiteral("../../../somewhere"), QStringLiteral("domain-escape.txt"), QByteArray("hostile")});
        // Beside the photos, what is no photo: a sidecar, a photo outside DCIM, one of another domain.
        plain.files.append({QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_0001.AAE"),
                            QByteArray("<plist/>")});
        plain.files.append(
            {QStringLiteral("CameraRollDomain"), QStringLiteral("Media/PhotoData/thumb.jpg"), QByteArray("jpg")});
        plain.files.append(
            {QStringLiteral("MediaDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_9999.JPG"), QByteArray("jpg")});
        plain.files.append({QStringLiteral("CameraRollDomain"), QStringLiteral("Media/DCIM/100APPLE/IMG_0004.mov"),
                            QByteArray("mov")});
        plain.write(m_root.path());

        SampleBackup locked = plain;
        locked.id = QStringLiteral("locked");
        locked.password = QStringLiteral("s3cret");
        locked.write(m_root.path());
    }
    QStringList with(QStringList arguments) const
    {
        return arguments << QStringLiteral("--root") << m_root.path() << QStringLiteral("--lang")
                         << QStringLiteral("en");
    }
    QString out(const QString& name) const { return m_out.filePath(name); }

    QTemporaryDir m_root;
    QTemporaryDir m_out;
};

} // namespace

TEST_F(FilesCommandTest, ListsFilesFilteredAndAsJson)
{
    const CliRun all = runCli(with({QStringLiteral("files"), QStringLiteral("plain")}));
    EXPECT_EQ(all.exitCode, 0) << qPrintable(all.err);
    EXPECT_TRUE(all.out.contains(QStringLiteral("Media/DCIM/100APPLE/IMG_0003.JPG"))) << qPrintable(all.out);
    EXPECT_TRUE(all.out.contains(QStringLiteral("Library/SMS/sms.db"))) << qPrintable(all.out);

    const CliRun home =
        runCli(with({QStringLiteral("files"), m_root.filePath(QStringLiteral("plain")), QStringLiteral("--domain"),
                     QStringLiteral("HomeDomain"), QStringLiteral("--json")}));
    EXPECT_EQ(home.exitCode, 0) << qPrintable(home.err);
    const QJsonArray files = QJsonDocument::fromJson(home.out.toUtf8()).array();
    ASSERT_EQ(files.size(), 2) << qPrintable(home.out);
    const QJsonObject sms = files[0].toObject();
    EXPECT_EQ(sms.value(QStringLiteral("path")).toString(), QStringLiteral("Library/SMS/sms.db"));
    EXPECT_EQ(sms.value(QStringLiteral("size")).toInt(), 3);
    EXPECT_EQ(sms.value(QStringLiteral("fileID")).toString(),
              SampleBackup::fileID(QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db")));

    const CliRun none = runCli(
        with({QStringLiteral("files"), QStringLiteral("plain"), QStringLiteral("--path"), QStringLiteral("Nothing/")}));
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_TRUE(none.err.contains(QStringLiteral("No file matches"))) << qPrintable(none.err);
}

TEST_F(FilesCommandTest, ExtractsPlainAndEncryptedBackupsAndStaysInsideTheDestination)
{
    const CliRun photos = runCli(with({QStringLiteral("extract"), QStringLiteral("plain"), QStringLiteral("--photos"),
                                       QStringLiteral("--to"), out(QStringLiteral("photos"))}));
    EXPECT_EQ(photos.exitCode, 0) << qPrintable(photos.err);
    EXPECT_EQ(QDir(out(QStringLiteral("photos"))).entryList(QDir::Files).size(), 4);

    const CliRun everything =
        runCli(with({QStringLiteral("extract"), QStringLiteral("locked"), QStringLiteral("--password-stdin"),
                     QStringLiteral("--to"), out(QStringLiteral("all"))}),
               {}, "s3cret\n");
    EXPECT_EQ(everything.exitCode, 0) << qPrintable(everything.err);
    QFile sms(out(QStringLiteral("all/HomeDomain/Library/SMS/sms.db")));
    ASSERT_TRUE(sms.open(QIODevice::ReadOnly));
    EXPECT_EQ(sms.readAll(), QByteArray("sms"));
    // A hostile "../../escape.txt" lands inside the destination.
    EXPECT_TRUE(QFile::exists(out(QStringLiteral("all/HomeDomain/escape.txt"))));
    EXPECT_FALSE(QFile::exists(m_out.filePath(QStringLiteral("../escape.txt"))));
}

TEST_F(FilesCommandTest, PasswordAndBackupProblemsHaveTheirExitCodes)
{
    const CliRun noPassword = runCli(with({QStringLiteral("files"), QStringLiteral("locked")}));
    EXPECT_EQ(noPassword.exitCode, 5);
    EXPECT_TRUE(noPassword.err.contains(QStringLiteral("--password-stdin"))) << qPrintable(noPassword.err);

    const CliRun wrong =
        runCli(with({QStringLiteral("extract"), QStringLiteral("locked"), QStringLiteral("--photos"),
                     QStringLiteral("--password-stdin"), QStringLiteral("--to"), out(QStringLiteral("w"))}),
               {}, "S3CRET\n");
    EXPECT_EQ(wrong.exitCode, 5);
    EXPECT_FALSE(QFileInfo::exists(out(QStringLiteral("w")))) << "a wrong password must leave nothing behind";

    EXPECT_EQ(runCli(with({QStringLiteral("files"), QStringLiteral("nowhere")})).exitCode, 4);
    EXPECT_EQ(runCli(with({QStringLiteral("files")})).exitCode, 3);
    EXPECT_EQ(runCli(with({QStringLiteral("extract"), QStringLiteral("plain")})).exitCode, 3); // no --to

    // Each problem says what it is; only a refused access is status 2.
    QFile::remove(m_root.filePath(QStringLiteral("plain/Manifest.db")));
    const CliRun broken = runCli(with({QStringLiteral("files"), QStringLiteral("plain")}));
    EXPECT_EQ(broken.exitCode, 6);
    EXPECT_TRUE(broken.err.contains(QStringLiteral("Manifest.db"))) << qPrintable(broken.err);
    EXPECT_FALSE(broken.err.contains(QStringLiteral("Manifest.mbdb"))) << qPrintable(broken.err);
    writeFile(m_root.filePath(QStringLiteral("plain/Info.plist")), "garbage");
    const CliRun garbage = runCli(with({QStringLiteral("files"), QStringLiteral("plain")}));
    EXPECT_EQ(garbage.exitCode, 6);
    EXPECT_TRUE(garbage.err.contains(QStringLiteral("Info.plist"))) << qPrintable(garbage.err);
    QFile::remove(m_root.filePath(QStringLiteral("plain/Info.plist")));
    const CliRun noInfo = runCli(with({QStringLiteral("files"), QStringLiteral("plain")}));
    EXPECT_EQ(noInfo.exitCode, 6);
    EXPECT_TRUE(noInfo.err.contains(QStringLiteral("Info.plist"))) << qPrintable(noInfo.err);
    EXPECT_FALSE(noInfo.err.contains(QStringLiteral("not found"), Qt::CaseInsensitive)) << qPrintable(noInfo.err);
}

TEST_F(FilesCommandTest, RememberedPasswordOpensTheBackupNextTime)
{
    if (qEnvironmentVariable("NUVREL_KEYCHAIN_TEST") != QLatin1StringView("1"))
        GTEST_SKIP() << "needs a running Secret Service: tools/test.sh starts one";
    const CliRun first = runCli(with({QStringLiteral("files"), QStringLiteral("locked"),
                                      QStringLiteral("--password-stdin"), QStringLiteral("--remember")}),
                                {}, "s3cret\n");
    EXPECT_EQ(first.exitCode, 0) << qPrintable(first.err);
    EXPECT_TRUE(first.err.contains(QStringLiteral("keychain"))) << qPrintable(first.err);

    const CliRun later = runCli(with({QStringLiteral("files"), QStringLiteral("locked")}));
    EXPECT_EQ(later.exitCode, 0) << qPrintable(later.err);
    EXPECT_TRUE(later.out.contains(QStringLiteral("Library/SMS/sms.db"))) << qPrintable(later.out);
}

TEST_F(FilesCommandTest, HostileDomainsStayInsideAndBackupsAreNeverADestination)
{
    const CliRun everything = runCli(
        with({QStringLiteral("extract"), QStringLiteral("plain"), QStringLiteral("--to"), out(QStringLiteral("all"))}));
    EXPECT_EQ(everything.exitCode, 0) << qPrintable(everything.err);
    EXPECT_TRUE(QFile::exists(out(QStringLiteral("all/somewhere/domain-escape.txt"))));
    for (const QString& entry : allEntries(m_out.path()))
        EXPECT_TRUE(entry.startsWith(QStringLiteral("all"))) << qPrintable(entry);
    EXPECT_EQ(QDir(m_root.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              (QStringList{QStringLiteral("locked"), QStringLiteral("plain")}));

    // Inside a backup, below it, or the folder of backups itself: refused before anything is written.
    const QMap<QString, QByteArray> before = snapshot(m_root.path());
    for (const QString& inside :
         {m_root.filePath(QStringLiteral("plain")), m_root.filePath(QStringLiteral("plain/new/x")), m_root.path()}) {
        const CliRun refused = runCli(with({QStringLiteral("extract"), QStringLiteral("plain"),
                                            QStringLiteral("--photos"), QStringLiteral("--to"), inside}));
        EXPECT_EQ(refused.exitCode, 3) << qPrintable(inside);
        EXPECT_TRUE(refused.err.contains(QStringLiteral("never writes"))) << qPrintable(refused.err);
    }
    EXPECT_EQ(snapshot(m_root.path()), before);
}

TEST_F(FilesCommandTest, TheCommandLineAndTheWindowTakeTheSamePhotos)
{
    const CliRun listed = runCli(
        with({QStringLiteral("files"), QStringLiteral("plain"), QStringLiteral("--photos"), QStringLiteral("--json")}));
    ASSERT_EQ(listed.exitCode, 0) << qPrintable(listed.err);
    QStringList cli;
    for (const QJsonValue& file : QJsonDocument::fromJson(listed.out.toUtf8()).array())
        cli.append(file.toObject().value(QStringLiteral("path")).toString());

    // The window's photo roll is the catalogue of the same index.
    nuvrel::IPhoneBackupReader reader(*nuvrel::BackupLocator::read(m_root.filePath(QStringLiteral("plain"))), {});
    QStringList window;
    for (const nuvrel::BackupPhoto& photo : nuvrel::BackupCatalogue::organize(reader.loadEntries()).photos)
        window.append(photo.entry.path);
    reader.cleanup();
    cli.sort();
    window.sort();
    EXPECT_EQ(cli, window);
    EXPECT_EQ(cli.size(), 4); // three JPEGs and a lower-case .mov; no sidecar, no foreign or stray picture
}

TEST_F(FilesCommandTest, AHostileIndexWritesNothingOutsideTheDestinationAndNamesWhatItRefused)
{
    SampleBackup hostile;
    hostile.id = QStringLiteral("hostile");
    hostile.files = hostileIndexFiles();
    hostile.write(m_root.path());
    const QMap<QString, QByteArray> before = snapshot(m_root.filePath(QStringLiteral("hostile")));

    const CliRun run = runCli(with(
        {QStringLiteral("extract"), QStringLiteral("hostile"), QStringLiteral("--to"), out(QStringLiteral("dest"))}));
    EXPECT_EQ(run.exitCode, 7) << qPrintable(run.err);
    // Refused: the path that cleans to nothing and the two file/folder clashes; each named, printable.
    EXPECT_TRUE(run.err.contains(QStringLiteral("3 files refused"))) << qPrintable(run.err);
    EXPECT_TRUE(run.err.contains(QStringLiteral("HomeDomain/other"))) << qPrintable(run.err);
    EXPECT_FALSE(run.err.contains(QChar(0x1B))) << "an escape sequence reached the terminal";
    EXPECT_TRUE(run.out.startsWith(QStringLiteral("13 files extracted"))) << qPrintable(run.out);
    for (const QString& entry : allEntries(m_out.path())) {
        EXPECT_TRUE(entry.startsWith(QStringLiteral("dest"))) << qPrintable(entry);
        EXPECT_FALSE(entry.contains(QStringLiteral(".nuvrel-"))) << qPrintable(entry);
    }
    EXPECT_EQ(snapshot(m_root.filePath(QStringLiteral("hostile"))), before);

    // The same as JSON, for scripts; and a listing shows names with escapes, never a raw control.
    const CliRun json = runCli(with({QStringLiteral("extract"), QStringLiteral("hostile"), QStringLiteral("--to"),
                                     out(QStringLiteral("again")), QStringLiteral("--json")}));
    EXPECT_EQ(json.exitCode, 7);
    const QJsonObject report = QJsonDocument::fromJson(json.out.toUtf8()).object();
    EXPECT_EQ(report.value(QStringLiteral("extracted")).toInt(), 13) << qPrintable(json.out);
    EXPECT_EQ(report.value(QStringLiteral("failed")).toObject().value(QStringLiteral("refused")).toInt(), 3);
    EXPECT_EQ(report.value(QStringLiteral("refusedPaths")).toArray().size(), 3);
    const CliRun listing = runCli(with({QStringLiteral("files"), QStringLiteral("hostile")}));
    EXPECT_EQ(listing.exitCode, 0);
    EXPECT_FALSE(listing.out.contains(QChar(0x1B))) << "an escape sequence reached the terminal";
    EXPECT_FALSE(listing.out.contains(QChar(0x07)));
    EXPECT_TRUE(listing.out.contains(QStringLiteral("clash\\e[2J"))) << qPrintable(listing.out);
    EXPECT_TRUE(listing.out.contains(QStringLiteral("ctl\\x07bell\\nline.txt"))) << qPrintable(listing.out);
}

// The JSON listing is written piece by piece, escaped by hand: jq, an independent reader, must accept it
// whatever the index holds (control characters, quotes, bytes that are no UTF-8) and find every file.
TEST_F(FilesCommandTest, TheStreamedJsonListingIsValidJsonWhateverTheNames)
{
    const QString jq = QStandardPaths::findExecutable(QStringLiteral("jq"));
    const QString sqlite = QStandardPaths::findExecutable(QStringLiteral("sqlite3"));
    if (jq.isEmpty() || sqlite.isEmpty())
        GTEST_SKIP() << "jq and sqlite3 are installed by tools/install-deps.sh";
    SampleBackup hostile;
    hostile.id = QStringLiteral("hostile");
    hostile.files = hostileIndexFiles();
    hostile.files.append({QStringLiteral("HomeDomain"), QStringLiteral("quote\"back\\slash\ttab\u007f.txt"), "q"});
    const QString folder = hostile.write(m_root.path());
    // Invalid UTF-8 around a quote, as a damaged index could hold: an unfinished sequence, a stray byte.
    QProcess patch;
    patch.start(sqlite, {folder + QStringLiteral("/Manifest.db"),
                         QStringLiteral("UPDATE Files SET relativePath = CAST(X'4C6962FF2F22C3' AS TEXT) "
                                        "WHERE relativePath = 'Case.txt'")});
    ASSERT_TRUE(patch.waitForFinished(30'000) && patch.exitCode() == 0);

    const auto jsonOf = [&](const QStringList& arguments) {
        QProcess cli;
        cli.start(QStringLiteral(NUVREL_CLI), with(arguments));
        cli.waitForFinished(60'000);
        return cli.readAllStandardOutput();
    };
    const auto jqSays = [&jq](const QByteArray& input, const QString& filter) {
        QProcess process;
        process.start(jq, {QStringLiteral("-c"), filter});
        process.write(input);
        process.closeWriteChannel();
        process.waitForFinished(30'000);
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().constData();
        return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
    };

    const QByteArray all = jsonOf({QStringLiteral("files"), QStringLiteral("hostile"), QStringLiteral("--json")});
    EXPECT_EQ(jqSays(all, QStringLiteral("length")), QString::number(hostile.files.size())) << all.constData();
    EXPECT_EQ(jqSays(all, QStringLiteral("map(select(.fileID | test(\"^[0-9a-f]{40}$\"))) | length")),
              QString::number(hostile.files.size()));
    EXPECT_EQ(jqSays(all, QStringLiteral("map(.path) | index(\"ctl\\u0007bell\\nline.txt\") != null")),
              QStringLiteral("true"));
    EXPECT_EQ(jqSays(all, QStringLiteral("map(.path) | index(\"quote\\\"back\\\\slash\\ttab\\u007f.txt\") != null")),
              QStringLiteral("true"));
    // The bytes that were no UTF-8 come out as U+FFFD; the quote among them stays a quote.
    EXPECT_EQ(jqSays(all, QStringLiteral("map(.path) | index(\"Lib\\ufffd/\\\"\\ufffd\") != null")),
              QStringLiteral("true"));
    EXPECT_EQ(jqSays(all, QStringLiteral("map(select((.size | type) == \"number\" and (.modified | type) == "
                                         "\"string\")) | length")),
              QString::number(hostile.files.size()));

    // Nothing kept is still a JSON document: an empty array.
    const QByteArray none = jsonOf({QStringLiteral("files"), QStringLiteral("hostile"), QStringLiteral("--domain"),
                                    QStringLiteral("Nowhere"), QStringLiteral("--json")});
    EXPECT_EQ(jqSays(none, QStringLiteral("length")), QStringLiteral("0"));
}
