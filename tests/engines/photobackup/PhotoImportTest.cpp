#include "engines/photobackup/PhotoImport.h"
#include "engines/photobackup/CopyHistory.h"
#include "engines/photobackup/FolderSource.h"
#include "engines/photobackup/ImportRules.h"
#include "ground/FreeName.h"
#include "l10n/LanguageStore.h"
#include "support/FolderSnapshot.h"
#include "support/MediaFixtures.h"
#include "support/ScriptedCamera.h"

#include "ground/SystemError.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;
using namespace std::chrono_literals;

namespace {

// The texts these tests read are the French originals, whatever the machine's language.
class FrenchTexts final : public testing::Environment
{
public:
    void SetUp() override { LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr); }
};
[[maybe_unused]] testing::Environment* const frenchTexts = testing::AddGlobalTestEnvironment(new FrenchTexts);

const QDateTime now(QDate(2026, 11, 24), QTime(12, 0));

QDateTime local(int year, int month, int day, int hour = 12)
{
    return QDateTime(QDate(year, month, day), QTime(hour, 0));
}

CameraFile cameraFile(const QString& name, qint64 size, const QDateTime& created,
                      const QString& folder = QStringLiteral("100APPLE"))
{
    return {QStringLiteral("/DCIM/") + folder + u'/' + name, name, size, created, {}};
}

QStringList strings(std::initializer_list<const char*> texts)
{
    QStringList out;
    for (const char* text : texts)
        out.append(QString::fromUtf8(text));
    return out;
}

QByteArray bytes(char fill, qsizetype size)
{
    return QByteArray(size, fill);
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& content, const QDateTime& modified = {})
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        return false;
    file.flush();
    if (modified.isValid())
        file.setFileTime(modified, QFileDevice::FileModificationTime);
    return true;
}

// What a run leaves: every entry below the destination, our temporary names included if any remain.
QStringList leftOver(const QString& destination)
{
    QStringList entries = allEntries(destination);
    entries.sort();
    return entries;
}

} // namespace

TEST(ImportRules, MonthFoldersKeepBrokenClocksApartAndNamesAreNumberedByTheRun)
{
    EXPECT_EQ(monthFolderName(local(2024, 3, 9), now), QStringLiteral("2024-03"));
    EXPECT_EQ(monthFolderName(local(1990, 1, 1), now), QStringLiteral("1990-01"));
    EXPECT_EQ(monthFolderName(local(1989, 12, 31), now), QStringLiteral("Date-inconnue"));
    EXPECT_EQ(monthFolderName(QDateTime::fromSecsSinceEpoch(0, Qt::UTC), now), QStringLiteral("Date-inconnue"));
    EXPECT_EQ(monthFolderName(local(2027, 12, 31), now),
              QStringLiteral("2027-12")); // one year ahead: a clock off by a bit
    EXPECT_EQ(monthFolderName(local(2028, 1, 1), now), QStringLiteral("Date-inconnue"));
    EXPECT_EQ(monthFolderName({}, now), QStringLiteral("2026-11")); // no date: filed under now

    EXPECT_EQ(runIndexedName(QStringLiteral("IMG_0001.HEIC"), 7), QStringLiteral("IMG_0001-7.HEIC"));
    EXPECT_EQ(runIndexedName(QStringLiteral("archive.tar.gz"), 2), QStringLiteral("archive.tar-2.gz"));
    EXPECT_EQ(runIndexedName(QStringLiteral("README"), 3), QStringLiteral("README-3"));
    EXPECT_EQ(runIndexedName(QStringLiteral(".hidden"), 3), QStringLiteral(".hidden-3"));

    for (const Period period : {Period::All, Period::Last30, Period::Last90, Period::ThisYear, Period::Custom})
        EXPECT_EQ(periodFromRawValue(periodRawValue(period)), period);
    EXPECT_EQ(periodFromRawValue(QStringLiteral("ALL")), std::nullopt);
}

TEST(ImportRules, SelectionFiltersByKindAndPeriodAndSortsUndatedFirstKeepingTheSourceOrder)
{
    CameraFile movie = cameraFile(QStringLiteral("CLIP.MOV"), 1, local(2026, 11, 20));
    CameraFile typed = cameraFile(QStringLiteral("weird.bin"), 1, local(2026, 11, 21));
    typed.typeIdentifier = QStringLiteral("com.apple.quicktime-movie");
    CameraFile typedPhoto = cameraFile(QStringLiteral("clip.mov"), 1, local(2026, 11, 21));
    typedPhoto.typeIdentifier = QStringLiteral("public.heic"); // the type wins over the name
    EXPECT_TRUE(isVideo(movie));
    EXPECT_TRUE(isVideo(typed));
    EXPECT_FALSE(isVideo(typedPhoto));
    EXPECT_TRUE(isVideo(cameraFile(QStringLiteral("a.M4v"), 1, {})));
    EXPECT_FALSE(isVideo(cameraFile(QStringLiteral("a.HEIC"), 1, {})));

    const QList<CameraFile> files = {
        cameraFile(QStringLiteral("new.JPG"), 1, local(2026, 11, 23)),
        cameraFile(QStringLiteral("undated-1.JPG"), 1, {}),
        cameraFile(QStringLiteral("old.JPG"), 1, local(2025, 6, 1)),
        cameraFile(QStringLiteral("same-a.JPG"), 1, local(2026, 9, 1)),
        cameraFile(QStringLiteral("undated-2.JPG"), 1, {}),
        cameraFile(QStringLiteral("same-b.JPG"), 1, local(2026, 9, 1)),
        movie,
    };
    const auto names = [](const QList<CameraFile>& list) {
        QStringList out;
        for (const CameraFile& file : list)
            out.append(file.name);
        return out;
    };
    EXPECT_EQ(names(allFilesInOrder(files)), strings({"undated-1.JPG", "undated-2.JPG", "old.JPG", "same-a.JPG",
                                                      "same-b.JPG", "CLIP.MOV", "new.JPG"}));

    ImportChoices choices;
    choices.videos = false;
    EXPECT_EQ(names(selectFiles(files, choices, now)),
              strings({"undated-1.JPG", "undated-2.JPG", "old.JPG", "same-a.JPG", "same-b.JPG", "new.JPG"}));
    choices = {};
    choices.photos = false;
    EXPECT_EQ(names(selectFiles(files, choices, now)), strings({"CLIP.MOV"}));
    choices = {};
    choices.period = Period::Last30; // undated files fall in no period
    EXPECT_EQ(names(selectFiles(files, choices, now)), strings({"CLIP.MOV", "new.JPG"}));
    choices.period = Period::Last90;
    EXPECT_EQ(names(selectFiles(files, choices, now)), strings({"same-a.JPG", "same-b.JPG", "CLIP.MOV", "new.JPG"}));
    choices.period = Period::ThisYear;
    EXPECT_EQ(selectFiles(files, choices, now).size(), 4);
    choices.period = Period::Custom;
    choices.from = QDate(2025, 6, 1);
    choices.to = QDate(2026, 9, 1); // both days included
    EXPECT_EQ(names(selectFiles(files, choices, now)), strings({"old.JPG", "same-a.JPG", "same-b.JPG"}));
    choices.from = QDate(2026, 9, 2); // a range that ends before it begins takes nothing
    EXPECT_TRUE(selectFiles(files, choices, now).isEmpty());
}

TEST(CopyHistory, KeysAreStableAndAbsurdDatesCountAsNone)
{
    const QDateTime moment = QDateTime::fromMSecsSinceEpoch(1700000000999, Qt::UTC);
    EXPECT_EQ(CopyHistory::key(QStringLiteral("iPhone de Léa"), QStringLiteral("IMG_0001.HEIC"), 2048, moment),
              QStringLiteral("iPhone de Léa|IMG_0001.HEIC|2048|1700000000"));
    EXPECT_EQ(CopyHistory::key({}, {}, 0, {}), QStringLiteral("iPhone||0|0"));
    EXPECT_EQ(CopyHistory::key(QStringLiteral("x"), QStringLiteral("a"), 1, QDateTime::fromSecsSinceEpoch(-1, Qt::UTC)),
              QStringLiteral("x|a|1|-1"));
    EXPECT_EQ(CopyHistory::key(QStringLiteral("x"), QStringLiteral("a"), 1,
                               QDateTime::fromSecsSinceEpoch(3'999'999'999, Qt::UTC)),
              QStringLiteral("x|a|1|3999999999"));
    EXPECT_EQ(CopyHistory::key(QStringLiteral("x"), QStringLiteral("a"), 1,
                               QDateTime::fromSecsSinceEpoch(4'000'000'000, Qt::UTC)),
              QStringLiteral("x|a|1|0"));
    EXPECT_EQ(CopyHistory::key(QStringLiteral("x"), QStringLiteral("a"), 1,
                               QDateTime::fromSecsSinceEpoch(-4'000'000'000, Qt::UTC)),
              QStringLiteral("x|a|1|0"));
}

TEST(CopyHistory, AKilledRunKeepsWhatItRecordedAndBrokenFilesCountAsEmpty)
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("Nuvrel/copied-history.json"));
    {
        CopyHistory history(path);
        history.load();
        EXPECT_EQ(history.size(), 0);
        EXPECT_TRUE(history.record(QStringLiteral("a|1|2|3")));
        EXPECT_TRUE(history.record(QStringLiteral("line\nbreak|x|1|0")));
        // Never saved: as if the program died here.
    }
    {
        // A line cut short by the crash is dropped; the others count.
        QFile journal(path + QStringLiteral(".journal"));
        ASSERT_TRUE(journal.open(QIODevice::Append));
        journal.write("[\"cut");
    }
    CopyHistory reloaded(path);
    reloaded.load();
    EXPECT_EQ(reloaded.size(), 2);
    EXPECT_TRUE(reloaded.contains(QStringLiteral("line\nbreak|x|1|0")));
    // Loading folded the journal into the array, which is now plain JSON of strings.
    EXPECT_FALSE(QFile::exists(path + QStringLiteral(".journal")));
    EXPECT_TRUE(QJsonDocument::fromJson(readAll(path)).isArray());
    EXPECT_EQ(QDir(folder.filePath(QStringLiteral("Nuvrel"))).entryList(QDir::Files | QDir::Hidden).size(), 1);

    for (const QByteArray& broken :
         {QByteArray("{\"a\": 1}"), QByteArray("[\"a\", 2]"), QByteArray("\xff\xfe garbage"), QByteArray()}) {
        ASSERT_TRUE(writeFile(path, broken));
        CopyHistory history(path);
        history.load();
        EXPECT_EQ(history.size(), 0) << broken.constData();
    }

    CopyHistory forgetting(path);
    forgetting.record(QStringLiteral("k"));
    EXPECT_TRUE(forgetting.forget());
    CopyHistory after(path);
    after.load();
    EXPECT_EQ(after.size(), 0);
}

TEST(PhotoImport, AFolderImportSortsByMonthOnceAndAgainAfterForgetting)
{
    if (!hasTool(QStringLiteral("exiv2")) || !hasTool(QStringLiteral("ffmpeg")))
        GTEST_SKIP() << "exiv2 and ffmpeg make the photos";
    QTemporaryDir card;
    QTemporaryDir out;
    const QString dcim = card.filePath(QStringLiteral("DCIM"));
    // A photo dated by its Exif (the file's own time says otherwise, as after a copy).
    const QString dated = dcim + QStringLiteral("/100APPLE/IMG_0001.JPG");
    QDir().mkpath(QFileInfo(dated).absolutePath());
    QImage image(40, 30, QImage::Format_RGB32);
    image.fill(Qt::blue);
    ASSERT_TRUE(image.save(dated, "JPEG"));
    ASSERT_TRUE(plantCameraMetadata(dated, 1)); // taken 2024-05-01
    // A movie dated by its header, in lower case.
    const QString movie = dcim + QStringLiteral("/100APPLE/clip.mov");
    ASSERT_TRUE(
        runCommand(QStringLiteral("ffmpeg"),
                   {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"), QStringLiteral("lavfi"),
                    QStringLiteral("-i"), QStringLiteral("color=c=red:s=32x32:d=0.2"), QStringLiteral("-metadata"),
                    QStringLiteral("creation_time=2023-02-10T10:00:00Z"), QStringLiteral("-y"), movie}));
    // Undated files: their modification time files them; 1989 and two years ahead go apart.
    ASSERT_TRUE(writeFile(dcim + QStringLiteral("/100APPLE/IMG_0002.HEIC"), bytes('h', 3000), local(2024, 5, 20)));
    ASSERT_TRUE(writeFile(dcim + QStringLiteral("/101APPLE/IMG_0002.HEIC"), bytes('H', 4000), local(2024, 5, 21)));
    ASSERT_TRUE(writeFile(dcim + QStringLiteral("/101APPLE/OLD.JPG"), bytes('o', 10), local(1989, 6, 1)));
    ASSERT_TRUE(writeFile(dcim + QStringLiteral("/101APPLE/FUTURE.MOV"), bytes('f', 10), local(2028, 6, 1)));
    // Not media, hidden, or a link: never listed.
    ASSERT_TRUE(writeFile(dcim + QStringLiteral("/100APPLE/IMG_0001.AAE"), "<plist/>"));
    ASSERT_TRUE(writeFile(dcim + QStringLiteral("/100APPLE/.hidden.jpg"), "x"));
    ASSERT_TRUE(QFile::link(dated, dcim + QStringLiteral("/100APPLE/link.JPG")));

    const QString historyPath = out.filePath(QStringLiteral("data/copied-history.json"));
    const QString destination = out.filePath(QStringLiteral("Photos"));
    auto source = std::make_shared<FolderSource>(card.path(), QStringLiteral("CANON"));
    EXPECT_EQ(source->root(), dcim);
    const QList<CameraFile> files = source->mediaFiles(nullptr);
    ASSERT_EQ(files.size(), 6);

    CopyHistory history(historyPath);
    history.load();
    PhotoImportOptions options;
    options.now = now;
    const ImportOutcome first =
        PhotoImport::run(source, allFilesInOrder(files), destination, history, {}, nullptr, options);
    EXPECT_EQ(first.end, ImportOutcome::End::Finished);
    EXPECT_EQ(first.copied, 6);
    EXPECT_EQ(first.failed, 0);
    EXPECT_EQ(leftOver(destination),
              strings({"2023-02", "2023-02/clip.mov", "2024-05", "2024-05/IMG_0001.JPG", "2024-05/IMG_0002-5.HEIC",
                       "2024-05/IMG_0002.HEIC", "Date-inconnue", "Date-inconnue/FUTURE.MOV", "Date-inconnue/OLD.JPG"}));
    // The second of two names gets its place in the run; the first is untouched.
    EXPECT_EQ(readAll(destination + QStringLiteral("/2024-05/IMG_0002.HEIC")), bytes('h', 3000));
    EXPECT_EQ(readAll(destination + QStringLiteral("/2024-05/IMG_0002-5.HEIC")), bytes('H', 4000));
    EXPECT_EQ(readAll(destination + QStringLiteral("/2024-05/IMG_0001.JPG")), readAll(dated));
    // Dated as the camera said.
    EXPECT_EQ(QFileInfo(destination + QStringLiteral("/2024-05/IMG_0001.JPG")).lastModified(),
              QDateTime(QDate(2024, 5, 1), QTime(10, 11, 12)));
    EXPECT_EQ(QFileInfo(destination + QStringLiteral("/2023-02/clip.mov")).lastModified().toUTC(),
              QDateTime(QDate(2023, 2, 10), QTime(10, 0), Qt::UTC));
    EXPECT_FALSE(QFile::exists(destination + u'/' + PhotoImport::failLogName()));

    // Next month: nothing new, nothing copied, even from a new reading of the history.
    CopyHistory again(historyPath);
    again.load();
    const ImportOutcome second = PhotoImport::run(source, allFilesInOrder(source->mediaFiles(nullptr)), destination,
                                                  again, {}, nullptr, options);
    EXPECT_EQ(second.copied, 0);
    EXPECT_EQ(second.skipped, 6);
    EXPECT_EQ(leftOver(destination).size(), 9);

    // Forgotten: everything comes again, under numbered names beside the first copies.
    ASSERT_TRUE(again.forget());
    const ImportOutcome third =
        PhotoImport::run(source, allFilesInOrder(files), destination, again, {}, nullptr, options);
    EXPECT_EQ(third.copied, 6);
    EXPECT_TRUE(QFile::exists(destination + QStringLiteral("/2024-05/IMG_0001-3.JPG")));
    EXPECT_TRUE(QFile::exists(destination + QStringLiteral("/2024-05/IMG_0002-4.HEIC")));
    EXPECT_TRUE(QFile::exists(destination + QStringLiteral("/2024-05/IMG_0002-5-2.HEIC")));
    EXPECT_EQ(leftOver(destination).size(), 15);
}

TEST(PhotoImport, FailuresAreLoggedAndNothingTruncatedTakesARealName)
{
    QTemporaryDir out;
    const QString destination = out.filePath(QStringLiteral("Photos"));
    auto camera = std::make_shared<ScriptedCamera>();
    const QDateTime may = local(2024, 5, 2);
    camera->add(cameraFile(QStringLiteral("OK_1.JPG"), 5000, may), bytes('a', 5000));
    camera->add(cameraFile(QStringLiteral("REFUSED.HEIC"), 10, may), bytes('r', 10),
                CameraScript::refused(QStringLiteral("refusé par l'iPhone")));
    camera->add(cameraFile(QStringLiteral("PULLED.MOV"), 3'000'000, may), bytes('p', 3'000'000),
                CameraScript::pulledAfter(2'100'000));
    camera->add(cameraFile(QStringLiteral("EMPTY.JPG"), 0, may), {});
    camera->add(cameraFile(QStringLiteral("GROWS.MOV"), 100, may), bytes('g', 100),
                CameraScript::growing(bytes('+', 50)));
    camera->add(cameraFile(QStringLiteral("SHRANK.JPG"), 100, may), bytes('s', 60));
    camera->add(cameraFile(QStringLiteral("SILENT.JPG"), 10, may), bytes('z', 10), CameraScript::silent());
    camera->add(cameraFile(QStringLiteral("../../escape.JPG"), 7, may), bytes('e', 7));
    camera->add(cameraFile(QStringLiteral("OK_2.JPG"), 7, may), bytes('b', 7));

    CopyHistory history(out.filePath(QStringLiteral("history.json")));
    PhotoImportOptions options;
    options.now = now;
    options.watchdog = 300ms;
    QStringList seen;
    const ImportOutcome outcome = PhotoImport::run(
        camera, camera->mediaFiles(nullptr), destination, history,
        [&](const ImportProgress& progress) {
            if (seen.isEmpty() || seen.last() != progress.fileName)
                seen.append(progress.fileName);
        },
        nullptr, options);
    camera->release();
    EXPECT_EQ(outcome.end, ImportOutcome::End::Finished);
    EXPECT_EQ(outcome.copied, 3);
    EXPECT_EQ(outcome.failed, 6);
    EXPECT_EQ(outcome.refusedBySource, 2);
    EXPECT_EQ(seen.size(), 9);
    EXPECT_EQ(leftOver(destination), strings({"2024-05", "2024-05/.._.._escape.JPG", "2024-05/OK_1.JPG",
                                              "2024-05/OK_2.JPG", "Nuvrel-echecs.txt"}));
    const QStringList log = QString::fromUtf8(readAll(destination + u'/' + PhotoImport::failLogName())).split(u'\n');
    EXPECT_EQ(log, strings({"REFUSED.HEIC : refusé par l'iPhone", "PULLED.MOV : cable pulled",
                            "EMPTY.JPG : fichier reçu vide (vide)", "GROWS.MOV : le fichier a changé pendant la copie",
                            "SHRANK.JPG : le fichier a changé pendant la copie", "SILENT.JPG : délai dépassé"}));
    EXPECT_EQ(outcome.lastError, QStringLiteral("délai dépassé"));
    EXPECT_EQ(camera->reconnections(), 1); // the next files do not queue behind the stuck read
    // Only what was copied is remembered: a later run tries the failed files again.
    CopyHistory reread(history.path());
    reread.load();
    EXPECT_EQ(reread.size(), 3);
    EXPECT_FALSE(reread.contains(CopyHistory::key(camera->deviceName(), QStringLiteral("GROWS.MOV"), 100, may)));
}

TEST(PhotoImport, ARunStopsAfterTheFileInHandWhenAskedOrWhenTheSourceIsGoneOrSilent)
{
    QTemporaryDir out;
    const QDateTime june = local(2025, 6, 1);
    PhotoImportOptions options;
    options.now = now;
    options.watchdog = 200ms;

    // Stop asked while the second file is read: it is finished, and nothing after it starts.
    {
        auto camera = std::make_shared<ScriptedCamera>();
        for (int i = 1; i <= 4; ++i)
            camera->add(cameraFile(QStringLiteral("IMG_%1.JPG").arg(i), 3'000'000, june),
                        bytes(char('0' + i), 3'000'000));
        std::atomic<bool> stop{false};
        camera->onOpen = [&](const CameraFile& file) {
            if (file.name == u"IMG_2.JPG")
                stop = true;
        };
        CopyHistory history(out.filePath(QStringLiteral("h1.json")));
        const QString destination = out.filePath(QStringLiteral("stop"));
        const ImportOutcome outcome =
            PhotoImport::run(camera, camera->mediaFiles(nullptr), destination, history, {}, &stop, options);
        EXPECT_EQ(outcome.end, ImportOutcome::End::Stopped);
        EXPECT_EQ(outcome.copied, 2);
        EXPECT_EQ(readAll(destination + QStringLiteral("/2025-06/IMG_2.JPG")), bytes('2', 3'000'000));
        EXPECT_EQ(camera->opened(), 2);
    }
    // The phone unplugged mid-run: one failure, then the run ends with its own message.
    {
        auto camera = std::make_shared<ScriptedCamera>(QStringLiteral("iPhone de Léa"));
        camera->add(cameraFile(QStringLiteral("A.JPG"), 5, june), bytes('a', 5));
        camera->add(cameraFile(QStringLiteral("B.JPG"), 5, june), bytes('b', 5));
        camera->add(cameraFile(QStringLiteral("C.JPG"), 5, june), bytes('c', 5));
        camera->onOpen = [&](const CameraFile& file) {
            if (file.name == u"B.JPG")
                camera->setPresent(false);
        };
        CopyHistory history(out.filePath(QStringLiteral("h2.json")));
        const ImportOutcome outcome = PhotoImport::run(
            camera, camera->mediaFiles(nullptr), out.filePath(QStringLiteral("gone")), history, {}, nullptr, options);
        EXPECT_EQ(outcome.end, ImportOutcome::End::SourceGone);
        EXPECT_EQ(outcome.copied, 1);
        EXPECT_EQ(outcome.failed, 1);
        EXPECT_TRUE(outcome.endMessage.contains(QStringLiteral("« iPhone de Léa » n'est plus accessible")));
        EXPECT_EQ(camera->opened(), 2);
    }
    // Failures in a row: the phone is taken to have stopped answering.
    {
        auto camera = std::make_shared<ScriptedCamera>();
        camera->add(cameraFile(QStringLiteral("OK.JPG"), 5, june), bytes('k', 5));
        for (int i = 0; i < 5; ++i)
            camera->add(cameraFile(QStringLiteral("R%1.JPG").arg(i), 5, june), bytes('r', 5),
                        CameraScript::refused(QStringLiteral("non")));
        options.maxConsecutiveFailures = 3;
        CopyHistory history(out.filePath(QStringLiteral("h3.json")));
        const ImportOutcome outcome = PhotoImport::run(
            camera, camera->mediaFiles(nullptr), out.filePath(QStringLiteral("silent")), history, {}, nullptr, options);
        EXPECT_EQ(outcome.end, ImportOutcome::End::SourceSilent);
        EXPECT_EQ(outcome.failed, 3);
        EXPECT_TRUE(
            outcome.endMessage.startsWith(QStringLiteral("L'iPhone a arrêté de répondre après 1 fichiers copiés.")));
    }
    // A destination that cannot be made, or a month folder taken by a file.
    {
        auto camera = std::make_shared<ScriptedCamera>();
        camera->add(cameraFile(QStringLiteral("A.JPG"), 5, june), bytes('a', 5));
        ASSERT_TRUE(writeFile(out.filePath(QStringLiteral("file")), "x"));
        CopyHistory history(out.filePath(QStringLiteral("h4.json")));
        ImportOutcome outcome =
            PhotoImport::run(camera, camera->mediaFiles(nullptr), out.filePath(QStringLiteral("file/sub")), history, {},
                             nullptr, options);
        EXPECT_EQ(outcome.end, ImportOutcome::End::DestinationFailed);
        EXPECT_EQ(outcome.endMessage, QStringLiteral("Impossible de créer le dossier de destination."));
        ASSERT_TRUE(writeFile(out.filePath(QStringLiteral("taken/2025-06")), "x"));
        outcome = PhotoImport::run(camera, camera->mediaFiles(nullptr), out.filePath(QStringLiteral("taken")), history,
                                   {}, nullptr, options);
        EXPECT_EQ(outcome.end, ImportOutcome::End::DestinationFailed);
        EXPECT_FALSE(outcome.endMessage.isEmpty());
        EXPECT_EQ(outcome.failed, 0);
    }
}

TEST(PhotoImport, ASlowButSteadyFileIsNeverCutAndLongNamesStayNames)
{
    QTemporaryDir out;
    const QString destination = out.filePath(QStringLiteral("Photos"));
    const QDateTime may = local(2024, 5, 2);
    // 255 bytes of name, twice in one month: the second's number still fits, the extension kept.
    const QString longName = QString(123, QChar(0xE9)) + QStringLiteral("IMGX.HEIC"); // 2 × 123 + 9 bytes
    auto camera = std::make_shared<ScriptedCamera>();
    camera->add(cameraFile(longName, 5, may), bytes('1', 5));
    camera->add(cameraFile(longName, 6, may, QStringLiteral("101APPLE")), bytes('2', 6));
    // Ten reads 100 ms apart: a second in all, three times the watchdog, never silent for long.
    camera->add(cameraFile(QStringLiteral("SLOW.MOV"), 10'000, may), bytes('s', 10'000),
                CameraScript::dripping(1000, 100));
    CopyHistory history(out.filePath(QStringLiteral("history.json")));
    PhotoImportOptions options;
    options.now = now;
    options.watchdog = 300ms;
    const ImportOutcome outcome =
        PhotoImport::run(camera, camera->mediaFiles(nullptr), destination, history, {}, nullptr, options);
    EXPECT_EQ(outcome.end, ImportOutcome::End::Finished) << outcome.endMessage.toStdString();
    EXPECT_EQ(outcome.copied, 3);
    EXPECT_EQ(readAll(destination + QStringLiteral("/2024-05/SLOW.MOV")), bytes('s', 10'000));
    const QStringList saved = QDir(destination + QStringLiteral("/2024-05")).entryList(QDir::Files);
    ASSERT_EQ(saved.size(), 3);
    for (const QString& name : saved) {
        EXPECT_LE(name.toUtf8().size(), 255) << name.toStdString();
        EXPECT_TRUE(name.endsWith(QStringLiteral(".HEIC")) || name == u"SLOW.MOV") << name.toStdString();
    }
    EXPECT_TRUE(saved.contains(longName));
    EXPECT_TRUE(saved.contains(QString(123, QChar(0xE9)) + QStringLiteral("IM-2.HEIC")))
        << saved.join(u' ').toStdString();

    // The same names numbered by the ground's rules: never longer than a name may be.
    EXPECT_LE(numberedName(QString(255, u'x'), 12, FreeNameStyle::Parenthesised).toUtf8().size(), 255);
    EXPECT_TRUE(numberedName(QString(250, u'x') + QStringLiteral(".jpeg"), 3, FreeNameStyle::Hyphenated)
                    .endsWith(QStringLiteral("-3.jpeg")));
    EXPECT_TRUE(
        runIndexedName(QString(254, u'y') + QStringLiteral(".MOV"), 9999).endsWith(QStringLiteral("-9999.MOV")));
}

TEST(FolderSource, TheSameCardIsKnownAgainAndAVanishedFolderIsNoticed)
{
    EXPECT_EQ(
        FolderSource::nameForFolder(QStringLiteral("/run/user/0/gvfs/afc:host=x"), QStringLiteral("iPhone de Léa"), {}),
        QStringLiteral("iPhone de Léa"));
    EXPECT_EQ(FolderSource::nameForFolder(QStringLiteral("/media/u/disk/DCIM"), {}, QStringLiteral("EOS_DIGITAL")),
              QStringLiteral("EOS_DIGITAL"));
    EXPECT_EQ(FolderSource::nameForFolder(QStringLiteral("/home/u/Carte/DCIM"), {}, {}), QStringLiteral("Carte"));
    EXPECT_EQ(FolderSource::nameForFolder(QStringLiteral("/home/u/Vacances/"), {}, {}), QStringLiteral("Vacances"));

    QTemporaryDir folder;
    ASSERT_TRUE(writeFile(folder.filePath(QStringLiteral("a/IMG_1.jpg")), "1"));
    FolderSource source(folder.path(), QStringLiteral("x"));
    EXPECT_EQ(source.root(), folder.path()); // no DCIM: the folder itself
    EXPECT_EQ(source.mediaFiles(nullptr).size(), 1);
    EXPECT_TRUE(source.isPresent());
    // A path the listing did not give is refused, whatever it names.
    QString error;
    EXPECT_EQ(source.open({QStringLiteral("/etc/passwd"), QStringLiteral("passwd"), 1, {}, {}}, error), nullptr);
    EXPECT_FALSE(error.isEmpty());
    ASSERT_TRUE(QDir(folder.path()).removeRecursively());
    EXPECT_FALSE(source.isPresent());
    EXPECT_THROW(source.mediaFiles(nullptr), LocalizedError);
}
