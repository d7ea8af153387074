// The extraction routine against hostile indexes: whatever a backup's index says, nothing is written
// outside the chosen folder, nothing is lost, and every refusal is counted and named.

#include "engines/backup/Extraction.h"
#include "engines/backup/BackupLocator.h"
#include "engines/backup/IPhoneBackupReader.h"
#include "support/FolderSnapshot.h"
#include "support/SampleBackup.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

struct Layout
{
    const char* name;
    SampleBackup::Layout layout;
    bool encrypted;
};

class ExtractionTest : public testing::TestWithParam<Layout>
{
protected:
    void SetUp() override
    {
        SampleBackup sample;
        sample.layout = GetParam().layout;
        if (GetParam().encrypted)
            sample.password = QStringLiteral("pw");
        sample.files = hostileIndexFiles();
        if (sample.layout == SampleBackup::Layout::Oldest) // its index has no key: one file may be listed twice
            sample.files.append(SampleFile{QStringLiteral("HomeDomain"), QStringLiteral("Case.txt"), "7"});
        m_backupFolder = sample.write(m_scratch.filePath(QStringLiteral("backups")));
        m_backup = *BackupLocator::read(m_backupFolder);
        m_destination = m_scratch.filePath(QStringLiteral("chosen"));
        m_outside = m_scratch.filePath(QStringLiteral("outside"));
        QDir().mkpath(m_outside);
        // A link placed in the destination beforehand must not lead a file out of it.
        QDir().mkpath(m_destination + QStringLiteral("/HomeDomain/Library"));
        QFile::link(m_outside, m_destination + QStringLiteral("/HomeDomain/Library/linked"));
    }

    QTemporaryDir m_scratch;
    QString m_backupFolder;
    PhoneBackup m_backup;
    QString m_destination;
    QString m_outside;
};

} // namespace

TEST_P(ExtractionTest, HostileIndexWritesNothingOutsideAndLosesNothing)
{
    const QMap<QString, QByteArray> backupBefore = snapshot(m_backupFolder);
    IPhoneBackupReader reader(m_backup, GetParam().encrypted ? QStringLiteral("pw") : QString());
    const QList<BackupEntry> entries = reader.loadEntries();
    ASSERT_EQ(entries.size(), hostileIndexFiles().size() + (GetParam().layout == SampleBackup::Layout::Oldest ? 1 : 0));

    QList<Extraction::Item> items;
    for (const BackupEntry& entry : entries)
        items.append(Extraction::byDomain(entry));
    qsizetype lastProgress = -1;
    Extraction::Options options;
    options.progress = [&lastProgress](qsizetype done, qsizetype) { lastProgress = done; };
    const Extraction::Report report = Extraction::run(reader, items, m_destination, options);

    // Refused: the path that cleans to nothing, the two file/folder clashes, the file behind the link.
    EXPECT_EQ(report.failures(Extraction::Failure::Refused), 4) << report.refused.join(u'\n').toStdString();
    EXPECT_EQ(report.done + report.totalFailed(), items.size());
    EXPECT_EQ(lastProgress, items.size());
    EXPECT_EQ(report.totalFailed(), report.failures(Extraction::Failure::Refused));
    EXPECT_TRUE(report.refused.contains(QStringLiteral("HomeDomain/clash\uFFFD[2J/inside.txt")));
    EXPECT_TRUE(report.refused.contains(QStringLiteral("HomeDomain/other")));
    for (const QString& refused : report.refused) {
        for (const QChar c : refused)
            EXPECT_GE(c.unicode(), 0x20) << "a refused name is printable";
    }

    // Nothing outside the destination: the scratch folder holds the backups, the destination and the
    // empty folder a link pointed at.
    EXPECT_TRUE(QDir(m_outside).isEmpty());
    const QStringList top = QDir(m_scratch.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    EXPECT_EQ(top, (QStringList{QStringLiteral("backups"), QStringLiteral("chosen"), QStringLiteral("outside")}));
    EXPECT_EQ(snapshot(m_backupFolder), backupBefore);

    const QDir chosen(m_destination);
    EXPECT_TRUE(chosen.exists(QStringLiteral("somewhere/domain-escape.txt")));
    EXPECT_TRUE(chosen.exists(QStringLiteral("HomeDomain/path-escape.txt")));
    EXPECT_TRUE(chosen.exists(QStringLiteral("HomeDomain/etc/absolute.txt")));
    EXPECT_TRUE(chosen.exists(QStringLiteral("tmp/absolute-domain.txt")));
    EXPECT_TRUE(chosen.exists(QStringLiteral("HomeDomain/ctl_bell_line.txt")));
    // Names equal but for case or normalisation are different files here; each keeps its bytes.
    EXPECT_TRUE(chosen.exists(QStringLiteral("HomeDomain/Case.txt")) &&
                chosen.exists(QStringLiteral("HomeDomain/CASE.txt")));
    EXPECT_TRUE(chosen.exists(QStringLiteral("HomeDomain/caf\u00e9.txt")) &&
                chosen.exists(QStringLiteral("HomeDomain/cafe\u0301.txt")));
    if (GetParam().layout == SampleBackup::Layout::Oldest) {
        EXPECT_TRUE(chosen.exists(QStringLiteral("HomeDomain/Case (2).txt"))); // listed twice, never replaced
    }

    // The over-long name is cut to 255 bytes and keeps its extension.
    const QStringList longNames =
        QDir(chosen.filePath(QStringLiteral("HomeDomain"))).entryList({QString(10, QChar(0xE9)) + u'*'}, QDir::Files);
    ASSERT_EQ(longNames.size(), 1);
    EXPECT_LE(longNames.first().toUtf8().size(), 255);
    EXPECT_TRUE(longNames.first().endsWith(QStringLiteral(".jpg")));

    // No temporary file is left anywhere.
    for (const QString& entry : allEntries(m_destination))
        EXPECT_FALSE(QFileInfo(entry).fileName().startsWith(QStringLiteral(".nuvrel-"))) << entry.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Layouts, ExtractionTest,
                         testing::Values(Layout{"plain", SampleBackup::Layout::Current, false},
                                         Layout{"encrypted", SampleBackup::Layout::Current, true},
                                         Layout{"oldest", SampleBackup::Layout::Oldest, false}),
                         [](const testing::TestParamInfo<Layout>& layout) { return std::string(layout.param.name); });

TEST(Extraction, ComponentsAreCleanedAndPathsThatCleanToNothingRefused)
{
    EXPECT_EQ(Extraction::cleanComponent(QStringLiteral("..")), QString());
    EXPECT_EQ(Extraction::cleanComponent(QStringLiteral(".")), QString());
    EXPECT_EQ(Extraction::cleanComponent(QStringLiteral("a\u0000b\u001fc\u007f")), QStringLiteral("a_b_c_"));
    EXPECT_EQ(Extraction::cleanComponent(QStringLiteral("..hidden")), QStringLiteral("..hidden"));
    // Cut on a character boundary: 200 four-byte emoji are 800 bytes.
    const QString emoji = QString(QStringLiteral("\U0001F600")).repeated(200) + QStringLiteral(".heic");
    const QString cut = Extraction::cleanComponent(emoji);
    EXPECT_LE(cut.toUtf8().size(), 255);
    EXPECT_TRUE(cut.endsWith(QStringLiteral(".heic")));
    EXPECT_FALSE(cut.toUtf8().contains("\xEF\xBF\xBD")); // no half character turned into a replacement one
    EXPECT_EQ(Extraction::cleanPath({QStringLiteral(".."), QStringLiteral("/"), QStringLiteral("../..")}),
              std::nullopt);
    EXPECT_EQ(Extraction::cleanPath({QStringLiteral("HomeDomain"), QStringLiteral("a//b/./c")}),
              QStringLiteral("HomeDomain/a/b/c"));
}

TEST(Extraction, NeverIntoABackupOrTheBackupsFolderHoweverItIsNamed)
{
    QTemporaryDir scratch;
    SampleBackup sample;
    sample.files = {SampleFile{QStringLiteral("HomeDomain"), QStringLiteral("a.txt"), "a"}};
    const QString root = scratch.filePath(QStringLiteral("Backup"));
    const PhoneBackup backup = *BackupLocator::read(sample.write(root));
    QFile::link(backup.url, scratch.filePath(QStringLiteral("alias")));
    const QStringList places{backup.url, backup.url + QStringLiteral("/new/deeper"), root,
                             scratch.filePath(QStringLiteral("alias/sub")), root + QStringLiteral("/../Backup/x")};
    for (const QString& place : places)
        EXPECT_TRUE(Extraction::isForbiddenDestination(place, backup, root)) << place.toStdString();
    EXPECT_FALSE(Extraction::isForbiddenDestination(scratch.filePath(QStringLiteral("Backups-copy")), backup, root));
    EXPECT_FALSE(Extraction::isForbiddenDestination(scratch.path(), backup, root));
}
