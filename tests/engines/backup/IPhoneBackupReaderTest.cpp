#include "engines/backup/IPhoneBackupReader.h"
#include "formats/plist/PropertyList.h"

#include "engines/backup/BackupLocator.h"
#include "l10n/LanguageStore.h"
#include "l10n/Localizer.h"
#include "support/BackupFixture.h"
#include "support/SampleBackup.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QTemporaryDir>

#include <sqlite3.h>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace nuvrel;
using namespace nuvrel::test;
using Subject = BackupReadError::Subject;

namespace {

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

// Every file below a folder with its digest, so that any change — even a new journal file — shows.
QMap<QString, QByteArray> snapshot(const QString& folder)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(folder, QDir::Files | QDir::Dirs | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files.insert(path, QCryptographicHash::hash(readAll(path), QCryptographicHash::Sha256) +
                               QByteArray::number(QFileInfo(path).lastModified().toMSecsSinceEpoch()));
    }
    return files;
}

template <typename Call>
std::optional<BackupReadError> errorOf(Call call)
{
    try {
        call();
    } catch (const BackupReadError& error) {
        return error;
    }
    return std::nullopt;
}

QList<SampleFile> sampleFiles()
{
    QList<SampleFile> files = cameraRollPhotos(1) + cameraRollHeicAndMov();
    files.append({QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db"), pseudoRandomBytes(70'000, 8)});
    files.append({QStringLiteral("HomeDomain"), QStringLiteral("Library/Notes/empty.txt"), QByteArray()});
    files.append({QStringLiteral("AppDomain-net.whatsapp.WhatsApp"), QStringLiteral("Documents/notes"),
                  QByteArray("exactly sixteen!"), 0}); // a block-sized file, and no "LastModified"
    return files;
}

class ReaderTest : public testing::Test
{
protected:
    PhoneBackup write(SampleBackup sample)
    {
        if (sample.files.isEmpty())
            sample.files = sampleFiles();
        const QString folder = sample.write(m_root.path());
        return *BackupLocator::read(folder);
    }
    QString out(const QString& name = {}) const { return m_out.filePath(name); }

    QTemporaryDir m_root;
    QTemporaryDir m_out;
};

SampleBackup encryptedSample(SampleBackup::Layout layout = SampleBackup::Layout::Current, bool modern = true)
{
    SampleBackup sample;
    sample.layout = layout;
    sample.password = QStringLiteral("Été 2024 !");
    sample.keyBag.modern = modern;
    return sample;
}

} // namespace

class ReaderLayouts : public ReaderTest, public testing::WithParamInterface<std::tuple<SampleBackup::Layout, bool>>
{};

TEST_P(ReaderLayouts, ListsAndExtractsEveryFileExactly)
{
    const auto [layout, encrypted] = GetParam();
    SampleBackup sample = encrypted ? encryptedSample(layout) : SampleBackup();
    sample.layout = layout;
    const PhoneBackup backup = write(sample);
    IPhoneBackupReader reader(backup, sample.password.value_or(QString()));
    EXPECT_EQ(reader.isEncrypted(), encrypted);

    const QList<BackupEntry> entries = reader.loadEntries();
    const QList<SampleFile> files = sampleFiles();
    ASSERT_EQ(entries.size(), files.size()); // folders and links are not listed
    for (qsizetype i = 0; i < files.size(); ++i) {
        const BackupEntry& entry = entries[i];
        EXPECT_EQ(entry.domain, files[i].domain);
        EXPECT_EQ(entry.path, files[i].path);
        EXPECT_EQ(entry.fileID, SampleBackup::fileID(files[i].domain, files[i].path));
        EXPECT_EQ(entry.meta().size, files[i].contents.size());
        ASSERT_TRUE(reader.storedURL(entry.fileID));

        const QString written = reader.extract(entry, out(entry.domain + u'/' + entry.safeRelativePath()));
        EXPECT_EQ(readAll(written), files[i].contents) << qPrintable(entry.path);
        if (files[i].lastModified != 0 || layout == SampleBackup::Layout::Oldest) {
            // The oldest index always records a time, 0 included.
            EXPECT_EQ(QFileInfo(written).lastModified().toSecsSinceEpoch(), files[i].lastModified);
        } else {
            EXPECT_GT(QFileInfo(written).lastModified(), QDateTime::currentDateTime().addSecs(-600));
        }
    }
    // Asked again, a file is never overwritten: "IMG_0001 (2).JPG", then "(3)"; "notes" becomes "notes (2)".
    const QString again = reader.extract(entries[0], out(QStringLiteral("IMG_0001.JPG")));
    EXPECT_EQ(QFileInfo(again).fileName(), QStringLiteral("IMG_0001.JPG"));
    EXPECT_EQ(QFileInfo(reader.extract(entries[0], again)).fileName(), QStringLiteral("IMG_0001 (2).JPG"));
    EXPECT_EQ(QFileInfo(reader.extract(entries[0], again)).fileName(), QStringLiteral("IMG_0001 (3).JPG"));
    const QString notes = reader.extract(entries[5], out(QStringLiteral("notes")));
    EXPECT_EQ(QFileInfo(reader.extract(entries[5], notes)).fileName(), QStringLiteral("notes (2)"));

    // A viewable copy keeps its name; two entries of the same name do not clash.
    const QString openable = reader.openableURL(entries[1], QStringLiteral("IMG_0002.JPG"));
    EXPECT_EQ(QFileInfo(openable).fileName(), QStringLiteral("IMG_0002.JPG"));
    EXPECT_TRUE(openable.startsWith(reader.tempDir()));
    EXPECT_NE(reader.openableURL(entries[2], QStringLiteral("IMG_0002.JPG")), openable);
    EXPECT_EQ(readAll(openable), files[1].contents);
    reader.cleanup();
    EXPECT_FALSE(QFileInfo::exists(reader.tempDir()));
}

INSTANTIATE_TEST_SUITE_P(PlainAndEncrypted, ReaderLayouts,
                         testing::Combine(testing::Values(SampleBackup::Layout::Current, SampleBackup::Layout::Oldest),
                                          testing::Bool()),
                         [](const auto& variant) {
                             return QStringLiteral("%1%2")
                                 .arg(std::get<0>(variant.param) == SampleBackup::Layout::Current ? u"Current"
                                                                                                  : u"Oldest",
                                      std::get<1>(variant.param) ? u"Encrypted" : u"Plain")
                                 .toStdString();
                         });

class FilteredListing : public ReaderTest, public testing::WithParamInterface<SampleBackup::Layout>
{};

// Filters run inside the index query, where a careless pattern would match what it must not: GLOB's own
// wildcards in a prefix, LIKE's case folding, a domain that merely starts like another.
TEST_P(FilteredListing, FiltersKeepExactlyTheirFilesInEitherLayout)
{
    const auto file = [](const char* domain, const QString& path) {
        return SampleFile{QString::fromUtf8(domain), path, path.toUtf8()};
    };
    SampleBackup sample;
    sample.layout = GetParam();
    sample.files = {
        file("CameraRollDomain", QStringLiteral("Media/DCIM/100APPLE/IMG_0001.JPG")),
        file("CameraRollDomain", QStringLiteral("Media/DCIM/100APPLE/IMG_0001.AAE")),
        file("CameraRollDomain", QStringLiteral("media/dcim/100apple/img_0002.jpg")),
        file("CameraRollDomain", QStringLiteral("Media/PhotoData/Thumbs/IMG_0003.JPG")),
        file("HomeDomain", QStringLiteral("Library/[draft]*?.txt")),
        file("HomeDomain", QStringLiteral("Library/d.txt")),
        file("HomeDomain", QStringLiteral("Library/a?b")),
        file("HomeDomain", QStringLiteral("Library/axb")),
        file("HomeDomain", QStringLiteral("Library/Été/reçu.pdf")),
        file("HomeDomainX", QStringLiteral("Library/x.txt")),
        file("AppDomain-x", QStringLiteral("Library/%_like.txt")),
    };
    const PhoneBackup backup = write(sample);
    const IPhoneBackupReader reader(backup, {});

    const auto paths = [&reader](const EntryFilter& filter) {
        QStringList listed;
        for (const BackupEntry& entry : reader.loadEntries(filter))
            listed.append(entry.domain + u':' + entry.path);
        // The streamed rows are the same files, with the same facts.
        QStringList streamed;
        reader.forEachRow(filter, [&streamed](const EntryRow& row) {
            EXPECT_EQ(row.meta().size, row.path.size());
            streamed.append(QString::fromUtf8(row.domain) + u':' + QString::fromUtf8(row.path));
        });
        EXPECT_EQ(streamed, listed);
        return listed;
    };
    const auto prefix = [](const char* text) {
        EntryFilter filter;
        filter.pathPrefix = QString::fromUtf8(text);
        return filter;
    };

    EntryFilter home;
    home.domain = QStringLiteral("HomeDomain");
    EXPECT_EQ(paths(home).size(), 5);
    EXPECT_EQ(paths(prefix("Library/[draft]*")), QStringList{QStringLiteral("HomeDomain:Library/[draft]*?.txt")});
    EXPECT_EQ(paths(prefix("Library/a?")), QStringList{QStringLiteral("HomeDomain:Library/a?b")});
    EXPECT_EQ(paths(prefix("Library/%")), QStringList{QStringLiteral("AppDomain-x:Library/%_like.txt")});
    EXPECT_EQ(paths(prefix("Library/Été/")), QStringList{QStringLiteral("HomeDomain:Library/Été/reçu.pdf")});
    EXPECT_EQ(paths(prefix("media/dcim/")),
              QStringList{QStringLiteral("CameraRollDomain:media/dcim/100apple/img_0002.jpg")});
    EXPECT_EQ(paths(prefix("Media/DCIM/")).size(), 2);
    EXPECT_EQ(paths(prefix("")).size(), sample.files.size());

    EntryFilter photos;
    photos.photos = true;
    EXPECT_EQ(paths(photos), QStringList{QStringLiteral("CameraRollDomain:Media/DCIM/100APPLE/IMG_0001.JPG")});
    photos.domain = QStringLiteral("HomeDomain"); // every filter narrows
    EXPECT_TRUE(paths(photos).isEmpty());

    EntryFilter nothing;
    nothing.domain = QString();
    EXPECT_TRUE(paths(nothing).isEmpty());

    QStringList domains = reader.knownDomains();
    domains.sort();
    EXPECT_EQ(domains, (QStringList{QStringLiteral("AppDomain-x"), QStringLiteral("CameraRollDomain"),
                                    QStringLiteral("HomeDomain"), QStringLiteral("HomeDomainX")}));
}

INSTANTIATE_TEST_SUITE_P(Layouts, FilteredListing,
                         testing::Values(SampleBackup::Layout::Current, SampleBackup::Layout::Oldest),
                         [](const auto& variant) {
                             return variant.param == SampleBackup::Layout::Current ? "Current" : "Oldest";
                         });

TEST_F(ReaderTest, APasswordOpensInEitherUnicodeForm)
{
    // The sample's password is composed ("É"); typed on another system it may come decomposed.
    SampleBackup sample = encryptedSample();
    sample.files = {{QStringLiteral("HomeDomain"), QStringLiteral("a.txt"), QByteArray("a")}};
    const PhoneBackup backup = write(sample);
    const QString decomposed = QStringLiteral("Été 2024 !").normalized(QString::NormalizationForm_D);
    ASSERT_NE(decomposed, QStringLiteral("Été 2024 !"));
    EXPECT_EQ(IPhoneBackupReader(backup, decomposed).loadEntries().size(), 1);
    EXPECT_EQ(errorOf([&] { IPhoneBackupReader(backup, QStringLiteral("Ete 2024 !")); }),
              BackupReadError::wrongPassword());
}

TEST_F(ReaderTest, PasswordsAreCheckedBeforeAnythingIsWritten)
{
    for (bool modern : {true, false}) {
        const PhoneBackup backup = write(encryptedSample(SampleBackup::Layout::Current, modern));
        EXPECT_EQ(errorOf([&] { IPhoneBackupReader(backup, QString()); }), BackupReadError::needsPassword());
        EXPECT_EQ(errorOf([&] { IPhoneBackupReader(backup, QStringLiteral("été 2024 !")); }),
                  BackupReadError::wrongPassword());
        IPhoneBackupReader reader(backup, QStringLiteral("Été 2024 !"));
        EXPECT_EQ(reader.loadEntries().size(), sampleFiles().size());
    }
}

TEST_F(ReaderTest, TheBackupFolderIsNeverChanged)
{
    const SampleBackup sample = encryptedSample();
    const PhoneBackup backup = write(sample);
    const PhoneBackup plain = write([] {
        SampleBackup other;
        other.id = QStringLiteral("plain");
        return other;
    }());
    const QMap<QString, QByteArray> before = snapshot(m_root.path());

    EXPECT_TRUE(errorOf([&] { IPhoneBackupReader(backup, QStringLiteral("wrong")); }));
    for (const PhoneBackup& each : {backup, plain}) {
        IPhoneBackupReader reader(each, *sample.password);
        for (const BackupEntry& entry : reader.loadEntries()) {
            reader.extract(entry, out(each.id + u'/' + entry.safeRelativePath()));
            reader.openableURL(entry, entry.fileName());
        }
        reader.closeDatabase();
        reader.cleanup();
    }
    EXPECT_EQ(snapshot(m_root.path()), before); // no journal, -wal or -shm file either
}

TEST_F(ReaderTest, WrongPasswordNeverLeavesAnOutputFileAndFileErrorsAreClean)
{
    const PhoneBackup backup = write(encryptedSample());
    IPhoneBackupReader reader(backup, QStringLiteral("Été 2024 !"));
    QList<BackupEntry> entries = reader.loadEntries();

    // A file of the asymmetric class 2 has no usable key: refused, and nothing is left behind.
    BackupEntry asymmetric = entries[0];
    MBFileInfo meta = asymmetric.meta();
    meta.encKey = wrappedKeyValue(2, pseudoRandomBytes(32, 1), pseudoRandomBytes(32, 2));
    asymmetric.preMeta = MBFileInfoBox{meta};
    EXPECT_EQ(errorOf([&] { reader.extract(asymmetric, out(QStringLiteral("a.jpg"))); }),
              BackupReadError::damaged(Subject::FileKey));
    // A key wrapped under the wrong class key fails its integrity check the same way.
    meta.encKey = wrappedKeyValue(3, pseudoRandomBytes(32, 1), pseudoRandomBytes(32, 2));
    asymmetric.preMeta = MBFileInfoBox{meta};
    EXPECT_EQ(errorOf([&] { reader.extract(asymmetric, out(QStringLiteral("a.jpg"))); }),
              BackupReadError::damaged(Subject::FileKey));
    meta.encKey.reset();
    asymmetric.preMeta = MBFileInfoBox{meta};
    EXPECT_EQ(errorOf([&] { reader.extract(asymmetric, out(QStringLiteral("a.jpg"))); }),
              BackupReadError::damaged(Subject::MissingFileKey));
    EXPECT_FALSE(QFileInfo::exists(out(QStringLiteral("a.jpg"))));

    // A hostile identifier never reaches outside the backup folder.
    BackupEntry hostile = entries[0];
    hostile.fileID = QStringLiteral("../../../../etc/passwd");
    EXPECT_FALSE(reader.storedURL(hostile.fileID));
    EXPECT_EQ(errorOf([&] { reader.extract(hostile, out(QStringLiteral("p"))); }),
              BackupReadError::unreadable(Subject::MissingFile, SystemErrorKind::Missing));
    hostile.path = QStringLiteral("../../outside/./x");
    EXPECT_EQ(hostile.safeRelativePath(), QStringLiteral("outside/x"));

    // A recorded size of 0 gives an empty file although the stored copy holds one cipher block.
    const QString empty = reader.extract(entries[4], out(QStringLiteral("empty.txt")));
    EXPECT_EQ(QFileInfo(empty).size(), 0);
    EXPECT_EQ(QFileInfo(*reader.storedURL(entries[4].fileID)).size(), 16);

    // A missing stored copy is reported, and the destination stays free.
    QFile::remove(*reader.storedURL(entries[3].fileID));
    EXPECT_EQ(errorOf([&] { reader.extract(entries[3], out(QStringLiteral("sms.db"))); }),
              BackupReadError::unreadable(Subject::MissingFile, SystemErrorKind::Missing));
    EXPECT_FALSE(QFileInfo::exists(out(QStringLiteral("sms.db"))));
}

TEST_F(ReaderTest, AnEncryptedCopyOfTheWrongLengthIsDamageNeverAShortFile)
{
    SampleBackup sample = encryptedSample();
    sample.files = {{QStringLiteral("HomeDomain"), QStringLiteral("Library/a.bin"), pseudoRandomBytes(1000, 3)},
                    {QStringLiteral("HomeDomain"), QStringLiteral("Library/b.bin"), pseudoRandomBytes(1024, 4)}};
    const PhoneBackup backup = write(sample);
    IPhoneBackupReader reader(backup, QStringLiteral("Été 2024 !"));
    const QList<BackupEntry> entries = reader.loadEntries();
    ASSERT_EQ(entries.size(), 2);
    const QString stored = *reader.storedURL(entries[0].fileID);
    const QByteArray whole = readAll(stored);
    ASSERT_EQ(whole.size(), 1008); // 1,000 bytes and their padding

    // A whole copy of a size that is a multiple of 16 carries one more block: it is good.
    EXPECT_EQ(QFileInfo(reader.extract(entries[1], out(QStringLiteral("b.bin")))).size(), 1024);

    struct Row
    {
        const char* what;
        QByteArray stored;
        qint64 recordedSize;
    };
    const QList<Row> rows{
        {"cut to whole blocks below the size", whole.left(992), 1000},
        {"cut inside a block", whole.left(1000), 1000},
        {"empty", QByteArray(), 1000},
        {"a block more than padding allows", whole + QByteArray(16, 'x'), 1000},
        {"a size larger than the data", whole, 1100},
        {"a negative size", whole, -5},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        QFile::remove(stored);
        QFile file(stored);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(row.stored);
        file.close();
        BackupEntry entry = entries[0];
        MBFileInfo meta = entry.meta();
        meta.size = row.recordedSize;
        entry.preMeta = MBFileInfoBox{meta};
        const QString target = out(QStringLiteral("a.bin"));
        EXPECT_EQ(errorOf([&] { reader.extract(entry, target); }),
                  BackupReadError::damaged(BackupReadError::Subject::EncryptedLength));
        EXPECT_EQ(errorOf([&] { reader.contents(entry, 1 << 20); }),
                  BackupReadError::damaged(BackupReadError::Subject::EncryptedLength));
        // Nothing is left: neither the file nor a temporary one.
        EXPECT_EQ(QDir(out()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("b.bin")});
    }
    LanguageStore& store = LanguageStore::shared();
    const AppLanguage saved = store.language();
    store.setLanguageForThisRun(AppLanguage::Fr);
    EXPECT_EQ(BackupReadError::damaged(BackupReadError::Subject::EncryptedLength).message(),
              QStringLiteral("La sauvegarde est endommagée : la copie chiffrée d'un fichier n'a pas la longueur "
                             "attendue."));
    store.setLanguageForThisRun(saved);
}

TEST_F(ReaderTest, StoredCopiesThatAreLinksOrSpecialFilesAreNeverFollowed)
{
    SampleBackup sample;
    sample.files = {{QStringLiteral("HomeDomain"), QStringLiteral("a.txt"), QByteArray("a")},
                    {QStringLiteral("HomeDomain"), QStringLiteral("b.txt"), QByteArray("b")},
                    {QStringLiteral("HomeDomain"), QStringLiteral("c.txt"), QByteArray("c")}};
    const PhoneBackup backup = write(sample);
    IPhoneBackupReader reader(backup, {});
    const QList<BackupEntry> entries = reader.loadEntries();
    ASSERT_EQ(entries.size(), 3);
    QTemporaryDir outside;
    const QString secret = outside.filePath(QStringLiteral("secret.txt"));
    writeFile(secret, "outside the backup");

    // A copy that is a link out of the backup.
    const QString a = *reader.storedURL(entries[0].fileID);
    QFile::remove(a);
    ASSERT_TRUE(QFile::link(secret, a));
    // A copy below a subfolder that is a link.
    const QString b = *reader.storedURL(entries[1].fileID);
    const QString subfolder = QFileInfo(b).absolutePath();
    const QString moved = outside.filePath(QStringLiteral("moved"));
    ASSERT_TRUE(QDir().rename(subfolder, moved));
    ASSERT_TRUE(QFile::link(moved, subfolder));
    // A copy that is a FIFO, which an ordinary open would wait on forever.
    const QString c = *reader.storedURL(entries[2].fileID);
    QFile::remove(c);
    ASSERT_EQ(::mkfifo(QFile::encodeName(c).constData(), 0600), 0);

    for (const BackupEntry& entry : entries) {
        // Something is there, so the copy is not missing: it is no copy, which is damage.
        EXPECT_EQ(errorOf([&] { reader.extract(entry, out(entry.fileName())); }),
                  BackupReadError::damaged(Subject::MissingFile))
            << entry.path.toStdString();
        EXPECT_EQ(errorOf([&] { reader.contents(entry, 1024); }), BackupReadError::damaged(Subject::MissingFile));
    }
    EXPECT_TRUE(QDir(out()).isEmpty());
}

TEST_F(ReaderTest, DamagedIndexesAndKeyBagsGiveTheirErrors)
{
    const auto reopen = [](const PhoneBackup& backup, const QString& password = QStringLiteral("Été 2024 !")) {
        return errorOf([&] { IPhoneBackupReader(backup, password).loadEntries(); });
    };
    // A plain index that is no database, or cut short: an error or fewer rows, never a crash.
    PhoneBackup plain = write(SampleBackup());
    const QString index = plain.url + QStringLiteral("/Manifest.db");
    const QByteArray whole = readAll(index);
    writeFile(index, whole.first(whole.size() / 2));
    try {
        IPhoneBackupReader reader(plain, {});
        EXPECT_LE(reader.loadEntries().size(), sampleFiles().size());
    } catch (const BackupReadError& error) {
        EXPECT_EQ(error.kind(), BackupReadError::Kind::Damaged);
    }
    writeFile(index, pseudoRandomBytes(8192, 3));
    EXPECT_EQ(reopen(plain).value_or(BackupReadError::cancelled()).kind(), BackupReadError::Kind::Damaged);

    // Encrypted: a key bag of garbage, a missing index key, an index that decrypts to almost nothing.
    SampleBackup sample = encryptedSample();
    sample.id = QStringLiteral("damaged");
    PhoneBackup encrypted = write(sample);
    const QString manifestPlist = encrypted.url + QStringLiteral("/Manifest.plist");
    const QByteArray goodPlist = readAll(manifestPlist);
    writeFile(encrypted.url + QStringLiteral("/Manifest.db"), pseudoRandomBytes(96, 4));
    EXPECT_EQ(reopen(encrypted), BackupReadError::damaged(Subject::Decryption));
    // The right password with a damaged or foreign index key: damage, never "wrong password".
    QVariantMap record = PropertyList::fromData(goodPlist).toMap();
    QByteArray manifestKey = record.value(QStringLiteral("ManifestKey")).toByteArray();
    ASSERT_GT(manifestKey.size(), 20);
    manifestKey[12] = static_cast<char>(manifestKey[12] ^ 0x5A);
    for (const QByteArray& key : {manifestKey, QByteArray("\x03\x00\x00\x00short", 9),
                                  QByteArray(QByteArray("\x09\x00\x00\x00", 4) + manifestKey.sliced(4))}) {
        record.insert(QStringLiteral("ManifestKey"), key);
        writeFile(manifestPlist, writePlist(record, PlistFormat::Binary));
        EXPECT_EQ(reopen(encrypted), BackupReadError::damaged(Subject::ManifestKey));
    }
    writeFile(manifestPlist, writePlist(QVariantMap{{QStringLiteral("IsEncrypted"), true},
                                                    {QStringLiteral("BackupKeyBag"), pseudoRandomBytes(99, 5)}},
                                        PlistFormat::Binary));
    EXPECT_EQ(reopen(encrypted), BackupReadError::damaged(Subject::KeyBag));
    writeFile(manifestPlist, "not a plist");
    EXPECT_EQ(reopen(encrypted), BackupReadError::damaged(Subject::EncryptionRecord));
    writeFile(manifestPlist, goodPlist);
    // No index at all: the newer one is named as missing, whatever the backup's age.
    QFile::remove(encrypted.url + QStringLiteral("/Manifest.db"));
    EXPECT_EQ(reopen(encrypted), BackupReadError::unreadable(Subject::Index, SystemErrorKind::Missing));
    writeFile(encrypted.url + QStringLiteral("/Manifest.mbdb"), "mbdb\x05\x00");
    EXPECT_EQ(reopen(encrypted), BackupReadError::unsupported());
}

TEST_F(ReaderTest, RowsWithoutTextColumnsAreSkipped)
{
    const PhoneBackup backup = write(SampleBackup());
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open((backup.url + QStringLiteral("/Manifest.db")).toUtf8().constData(), &db), SQLITE_OK);
    sqlite3_exec(db,
                 "INSERT INTO Files VALUES ('00000000000000000000000000000000000000aa', 'HomeDomain', NULL, 1, NULL);"
                 "INSERT INTO Files VALUES ('00000000000000000000000000000000000000bb', 'HomeDomain', 'x', 1, NULL);"
                 "INSERT INTO Files VALUES (x'3432', 'HomeDomain', 'y', 1, NULL);",
                 nullptr, nullptr, nullptr);
    sqlite3_close(db);
    IPhoneBackupReader reader(backup, {});
    const QList<BackupEntry> entries = reader.loadEntries();
    ASSERT_EQ(entries.size(), sampleFiles().size() + 1);
    EXPECT_EQ(entries.back().path, QStringLiteral("x"));
    EXPECT_EQ(entries.back().meta(), MBFileInfo()); // a null record: the default facts
}

TEST_F(ReaderTest, TemporaryFolderIsPrivateAndTheDecryptedIndexGoesAway)
{
    IPhoneBackupReader reader(write(encryptedSample()), QStringLiteral("Été 2024 !"));
    EXPECT_EQ(QFileInfo(reader.tempDir()).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther), 0);
    const QString plainIndex = reader.tempDir() + QStringLiteral("/manifest.db");
    EXPECT_TRUE(QFileInfo::exists(plainIndex));
    reader.closeDatabase();
    EXPECT_FALSE(QFileInfo::exists(plainIndex));
    EXPECT_TRUE(reader.loadEntries().isEmpty());
}

TEST(BackupReadError, MessagesAreLocalised)
{
    LanguageStore& store = LanguageStore::shared();
    const AppLanguage saved = store.language();
    store.setLanguageForThisRun(AppLanguage::Fr);
    // Only a refusal sends the user to the privacy settings; a missing file says it is missing.
    // (The system's own wording: Full Disk Access on macOS, the folder's rights on Linux.)
    EXPECT_EQ(
        BackupReadError::unreadable(Subject::ManifestDb, SystemErrorKind::NoPermission).message(),
        Localizer::fill(Localizer::platformText(QStringLiteral(
                            "Impossible de lire la sauvegarde (%@). Vérifie que Nuvrel a l'accès complet au disque.")),
                        {QStringLiteral("Manifest.db")}));
    EXPECT_EQ(BackupReadError::unreadable(Subject::Index, SystemErrorKind::Missing).message(),
              QStringLiteral("La sauvegarde est incomplète : son index (Manifest.db) manque."));
    EXPECT_EQ(BackupReadError::unreadable(Subject::ManifestMbdb).message(),
              QStringLiteral("Impossible de lire la sauvegarde (Manifest.mbdb)."));
    EXPECT_EQ(BackupReadError::writeFailed(QStringLiteral("/x/y.jpg"), SystemErrorKind::NoSpace).message(),
              QStringLiteral("Plus assez de place sur le disque pour écrire /x/y.jpg."));
    store.setLanguageForThisRun(AppLanguage::En);
    const QString english = BackupReadError::damaged(Subject::Decryption).message();
    EXPECT_FALSE(english.contains(QStringLiteral("déchiffrent"))) << qPrintable(english);
    EXPECT_TRUE(BackupReadError::unreadable(Subject::ManifestDb).message().contains(QStringLiteral("Manifest.db")));
    EXPECT_TRUE(
        BackupReadError::writeFailed(QStringLiteral("/x/y.jpg")).message().contains(QStringLiteral("/x/y.jpg")));
    store.setLanguageForThisRun(saved);
}

TEST_F(ReaderTest, AnIndexCopiedWhileItWasWrittenIsReadAsItsWriterLeftIt)
{
    // A writer still at work on each index: committed rows that are only in the log, and a transaction
    // that never ends, whose rows spill into the log or, in rollback mode, into the file itself.
    const auto exec = [](sqlite3* db, const char* sql) {
        ASSERT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
    };
    const char* spill = "PRAGMA cache_size=1; BEGIN;"
                        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 400) "
                        "INSERT INTO Files SELECT printf('%040d', i), 'HomeDomain', 'uncommitted-' || i, 1, "
                        "randomblob(3000) FROM n;";
    for (const bool wal : {true, false}) {
        SampleBackup sample;
        sample.id = wal ? QStringLiteral("wal") : QStringLiteral("journal");
        const PhoneBackup backup = write(sample);
        sqlite3* writer = nullptr;
        ASSERT_EQ(sqlite3_open((backup.url + QStringLiteral("/Manifest.db")).toUtf8().constData(), &writer), SQLITE_OK);
        if (wal) {
            exec(writer, "PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;"
                         "INSERT INTO Files VALUES ('00000000000000000000000000000000000000cc', 'HomeDomain', "
                         "'committed.txt', 1, NULL);");
        }
        exec(writer, spill);
        const QMap<QString, QByteArray> before = snapshot(backup.url);

        QStringList paths;
        {
            IPhoneBackupReader reader(backup, {});
            for (const BackupEntry& entry : reader.loadEntries())
                paths.append(entry.path);
        }
        EXPECT_EQ(paths.contains(QStringLiteral("committed.txt")), wal);
        EXPECT_FALSE(paths.contains(QStringLiteral("uncommitted-1"))) << (wal ? "wal" : "journal");
        EXPECT_EQ(paths.size(), sampleFiles().size() + (wal ? 1 : 0));
        EXPECT_EQ(snapshot(backup.url), before) << "the backup folder is never written";
        sqlite3_close(writer); // rolls the writer's transaction back
    }
}
