#include "engines/duplicates/DuplicateScanner.h"
#include "platform/system/SystemTrash.h"
#include "support/BackupFixture.h"
#include "support/FakeServices.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <utime.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

// The groups as a user leaves them: the first of each kept, the others ticked.
QList<DupGroup> ticked(const QList<QList<DupFile>>& lists, DupGroup::Kind kind)
{
    QList<DupGroup> groups;
    for (const QList<DupFile>& files : lists) {
        DupGroup group;
        group.kind = kind;
        for (qsizetype i = 0; i < files.size(); ++i)
            group.items.append({files[i], i > 0});
        groups.append(group);
    }
    return groups;
}

// Rewrites a file with other bytes of the same length and puts its modification time back: only the
// fingerprint can tell.
void tamperQuietly(const QString& path)
{
    struct stat before
    {};
    ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &before), 0);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    const QByteArray bytes = file.readAll();
    ASSERT_TRUE(file.seek(bytes.size() / 2));
    file.write(QByteArray(1, char(~bytes[bytes.size() / 2])));
    file.close();
    const utimbuf times{before.st_atime, before.st_mtime};
    ASSERT_EQ(::utime(QFile::encodeName(path).constData(), &times), 0);
}

QString trashFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Trash");
}

} // namespace

TEST(DuplicateTrash, OnlyUnchangedExtrasGoAndTheyLandInTheDesktopsTrash)
{
#if defined(Q_OS_MACOS)
    GTEST_SKIP() << "the Finder's trash is the system's own business";
#endif
    // Under the test's home, so that the files and the trash share a disk, as in a user's folders.
    const QString root = QDir::home().filePath(QStringLiteral("Images"));
    const auto file = [&root](const QString& name) { return QDir(root).filePath(name); };
    const QByteArray holiday(300'000, 'h');
    const QByteArray receipt = QByteArray("reçu ") + QByteArray(5'000, 'r');
    const QByteArray song = QByteArray(70'000, 's') + "fin";
    writeFile(file(QStringLiteral("2019/vacances.jpg")), holiday);
    writeFile(file(QStringLiteral("copie/vacances.jpg")), holiday);
    writeFile(file(QStringLiteral("copie/vacances (2).jpg")), holiday);
    writeFile(file(QStringLiteral("reçu.pdf")), receipt);
    writeFile(file(QStringLiteral("reçu copie.pdf")), receipt);
    writeFile(file(QStringLiteral("chanson.m4a")), song);
    writeFile(file(QStringLiteral("chanson 2.m4a")), song);
    writeFile(file(QStringLiteral("chanson 3.m4a")), song);

    const QList<QList<DupFile>> found = DuplicateScanner::exactGroups(DuplicateScanner::listFiles(root).files);
    ASSERT_EQ(found.size(), 3);
    QList<DupGroup> groups = ticked(found, DupGroup::Kind::Identical);
    const auto groupOf = [&groups](const QString& name) -> DupGroup& {
        for (DupGroup& group : groups) {
            for (const DupItem& item : group.items) {
                if (QFileInfo(item.file.path).fileName() == name)
                    return group;
            }
        }
        throw std::runtime_error("no such group");
    };
    // Between the scan and the trash: one extra is quietly changed, another turned into a link to the
    // kept copy; the receipt's kept copy goes away.
    const DupGroup& holidays = groupOf(QStringLiteral("vacances.jpg"));
    const QString changed = holidays.items[1].file.path;
    const QString linked = holidays.items[2].file.path;
    tamperQuietly(changed);
    ASSERT_TRUE(QFile::remove(linked));
    ASSERT_TRUE(QFile::link(holidays.items[0].file.path, linked));
    const DupGroup& receipts = groupOf(QStringLiteral("reçu.pdf"));
    const QString keptReceipt = receipts.items[0].file.path;
    const QString extraReceipt = receipts.items[1].file.path;
    ASSERT_TRUE(QFile::remove(keptReceipt));
    // The songs: the user keeps two and sends one.
    DupGroup& songs = groupOf(QStringLiteral("chanson.m4a"));
    songs.items[1].marked = false;
    const QString sentSong = songs.items[2].file.path;

    SystemTrash trash;
    const DupTrashReport report = DuplicateScanner::moveMarkedToTrash(groups, trash);
    EXPECT_EQ(report.trashed, QStringList{sentSong});
    EXPECT_EQ(report.freed, song.size());
    EXPECT_EQ(QSet<QString>(report.changed.cbegin(), report.changed.cend()), (QSet<QString>{changed, linked}));
    EXPECT_EQ(report.keptMissing, QStringList{keptReceipt});
    EXPECT_TRUE(report.failed.isEmpty());
    EXPECT_TRUE(QFile::exists(changed));
    EXPECT_TRUE(QFileInfo(linked).isSymLink());
    EXPECT_TRUE(QFile::exists(extraReceipt));
    EXPECT_FALSE(QFile::exists(sentSong));

    // The desktop can put it back: the file and its record, which says where it came from.
    const QString name = QFileInfo(sentSong).fileName();
    QFile moved(trashFolder() + QStringLiteral("/files/") + name);
    ASSERT_TRUE(moved.open(QIODevice::ReadOnly));
    EXPECT_EQ(moved.readAll(), song);
    QSettings info(trashFolder() + QStringLiteral("/info/") + name + QStringLiteral(".trashinfo"),
                   QSettings::IniFormat);
    info.beginGroup(QStringLiteral("Trash Info"));
    EXPECT_EQ(QUrl::fromPercentEncoding(info.value(QStringLiteral("Path")).toByteArray()), sentSong);
    EXPECT_TRUE(QDateTime::fromString(info.value(QStringLiteral("DeletionDate")).toString(), Qt::ISODate).isValid());
    QDir(root).removeRecursively();
}

TEST(DuplicateTrash, AGroupNeverLosesItsLastFileAndARefusalLeavesTheFile)
{
    QTemporaryDir root;
    writeFile(root.filePath(QStringLiteral("a.txt")), "même contenu");
    writeFile(root.filePath(QStringLiteral("b.txt")), "même contenu");
    const QList<QList<DupFile>> found = DuplicateScanner::exactGroups(DuplicateScanner::listFiles(root.path()).files);
    ASSERT_EQ(found.size(), 1);

    FakeServices fakes;
    QList<DupGroup> everything = ticked(found, DupGroup::Kind::Identical);
    everything[0].items[0].marked = true;
    const DupTrashReport all = DuplicateScanner::moveMarkedToTrash(everything, fakes.trash);
    EXPECT_TRUE(all.trashed.isEmpty());
    EXPECT_EQ(all.keptMissing.size(), 1);
    EXPECT_TRUE(fakes.trash.trashed.isEmpty());

    fakes.trash.refuse = true;
    const DupTrashReport refused =
        DuplicateScanner::moveMarkedToTrash(ticked(found, DupGroup::Kind::Identical), fakes.trash);
    EXPECT_EQ(refused.failed, QStringList{found[0][1].path});
    EXPECT_TRUE(QFile::exists(found[0][1].path));

    // Similar photos carry no fingerprint: their kept file is checked by its size and time.
    QList<DupGroup> similar = ticked(found, DupGroup::Kind::Similar);
    for (DupItem& item : similar[0].items)
        item.file.fingerprint.clear();
    writeFile(found[0][0].path, "un autre contenu, plus long");
    fakes.trash.refuse = false;
    const DupTrashReport keptChanged = DuplicateScanner::moveMarkedToTrash(similar, fakes.trash);
    EXPECT_EQ(keptChanged.keptMissing, QStringList{found[0][0].path});
    EXPECT_TRUE(fakes.trash.trashed.isEmpty());
}

TEST(DuplicateTrash, LargeFilesAlikeOnlyInTheirSamplesStayAndAFileWithoutFingerprintIsNeverTakenAsIdentical)
{
    // Over the hashing limit, a scan groups files by three samples: a disk image zeroed at the start,
    // the middle and the end groups with one that differs elsewhere. Sparse: no disk is spent.
    QTemporaryDir root;
    constexpr qint64 size = 320'000'001;
    const auto sparse = [&root](const char* name, char mark) {
        QFile file(root.filePath(QString::fromUtf8(name)));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.resize(size));
        if (mark != 0) {
            file.seek(100'000'000);
            file.write(&mark, 1);
        }
        return file.fileName();
    };
    const QString kept = sparse("disque.img", 0);
    const QString copy = sparse("disque copie.img", 0);
    const QString other = sparse("autre disque.img", 'x');
    const QList<QList<DupFile>> found = DuplicateScanner::exactGroups(DuplicateScanner::listFiles(root.path()).files);
    ASSERT_EQ(found.size(), 1);
    ASSERT_EQ(found[0].size(), 3);

    QList<DupGroup> groups = ticked(found, DupGroup::Kind::Identical);
    for (DupItem& item : groups[0].items)
        item.marked = item.file.path != kept;
    FakeServices fakes;
    const DupTrashReport report = DuplicateScanner::moveMarkedToTrash(groups, fakes.trash);
    EXPECT_EQ(report.trashed, QStringList{copy});
    EXPECT_EQ(report.differing, QStringList{other});
    EXPECT_TRUE(QFile::exists(other));
    EXPECT_TRUE(QFile::exists(kept));

    // An identical file whose fingerprint was lost is not known to be the same: it stays.
    writeFile(root.filePath(QStringLiteral("a.txt")), "pareil");
    writeFile(root.filePath(QStringLiteral("b.txt")), "pareil");
    QList<DupGroup> small = ticked(DuplicateScanner::exactGroups(DuplicateScanner::listFiles(root.path()).files),
                                   DupGroup::Kind::Identical);
    small.removeIf([](const DupGroup& group) { return group.items[0].file.size != 6; });
    ASSERT_EQ(small.size(), 1);
    small[0].items[1].file.fingerprint.clear();
    EXPECT_FALSE(DuplicateScanner::isUnchanged(small[0].items[1].file, DupGroup::Kind::Identical));
    EXPECT_TRUE(DuplicateScanner::isUnchanged(small[0].items[1].file, DupGroup::Kind::Similar));
    EXPECT_EQ(DuplicateScanner::moveMarkedToTrash(small, fakes.trash).changed.size(), 1);
}
