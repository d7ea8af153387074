// The photo backup against the tools a user would otherwise reach for, in the same run:
// - importing 10,000 files (5 GB) from a folder with a DCIM tree, month sorting and the history
//   included, against `rsync -a` copying the same files; warm cache, each run after a `sync`, and
//   neither fsyncs its files (target: at most 1.2x rsync's time);
// - a copy history of 100,000 keys loaded and saved (target: under 100 ms each);
// - a Photos library of 100,000 assets listed, its private database copy included, with the time of
//   the sqlite3 command reading the same rows beside it (target: under 2 s).
//   build/default/bench/bench_photobackup        (bench/run.sh builds and runs it)

#include "cli/ChildProcess.h"
#include "engines/photobackup/CopyHistory.h"
#include "engines/photobackup/FolderSource.h"
#include "engines/photobackup/ImportRules.h"
#include "engines/photobackup/PhotoImport.h"
#include "engines/photobackup/PhotosLibrary.h"
#include "support/MediaFixtures.h"
#include "support/PlistWriter.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QUuid>
#include <QtEndian>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

namespace {

using namespace nuvrel;
using nuvrel::test::ChildLimits;
using nuvrel::test::runChild;

constexpr int fileCount = 10'000;
constexpr qint64 totalBytes = qint64(5'000'000'000);
constexpr int assetCount = 100'000;

QTemporaryDir& workFolder()
{
    static QTemporaryDir folder(QDir::currentPath() + QStringLiteral("/bench-photobackup-XXXXXX"));
    return folder;
}

QString path(const QString& name)
{
    return workFolder().filePath(name);
}

// A real JPEG head (with the Exif a phone writes) or a movie head (with its creation time), then
// noise up to the file's size: what the import reads of each file is what it reads of a phone's.
QByteArray jpegHead()
{
    const QString file = path(QStringLiteral("head.jpg"));
    QImage image(64, 48, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    image.save(file, "JPEG");
    nuvrel::test::plantCameraMetadata(file, 1);
    QFile read(file);
    read.open(QIODevice::ReadOnly);
    return read.readAll();
}

QByteArray box(const char* type, const QByteArray& body)
{
    QByteArray out(4, '\0');
    qToBigEndian<quint32>(quint32(8 + body.size()), out.data());
    return out + QByteArray(type, 4) + body;
}

QByteArray movieHead(quint32 quickTimeSeconds)
{
    QByteArray header(12, '\0');
    qToBigEndian<quint32>(quickTimeSeconds, header.data() + 4);
    qToBigEndian<quint32>(quickTimeSeconds, header.data() + 8);
    return box("ftyp", QByteArray("qt  \0\0\0\0qt  ", 12)) + box("moov", box("mvhd", header + QByteArray(88, '\0')));
}

bool makeCard()
{
    static const bool made = [] {
        const QByteArray jpeg = jpegHead();
        QByteArray noise(qsizetype(4) << 20, Qt::Uninitialized);
        QRandomGenerator random(22);
        random.fillRange(reinterpret_cast<quint32*>(noise.data()), noise.size() / 4);
        const qint64 mean = totalBytes / fileCount;
        for (int i = 0; i < fileCount; ++i) {
            const bool movie = i % 10 == 9;
            const QString folder = path(QStringLiteral("card/DCIM/%1APPLE").arg(100 + i / 100));
            QDir().mkpath(folder);
            const QString name =
                QStringLiteral("IMG_%1.%2").arg(i, 4, 10, QLatin1Char('0')).arg(movie ? u"MOV" : u"JPG");
            // Sizes from a fifth to nearly twice the mean, the total as asked.
            const qint64 size = mean / 5 + (i * 7919LL) % (mean * 8 / 5);
            QByteArray head = movie ? movieHead(quint32(3'700'000'000U + quint32(i) * 5000)) : jpeg;
            QFile file(folder + u'/' + name);
            if (!file.open(QIODevice::WriteOnly) || file.write(head) != head.size())
                return false;
            for (qint64 left = size - head.size(); left > 0;) {
                const qint64 chunk = std::min<qint64>(left, noise.size());
                if (file.write(noise.constData() + (i * 4099LL) % (noise.size() - chunk + 1), chunk) != chunk)
                    return false;
                left -= chunk;
            }
        }
        return true;
    }();
    return made;
}

void settle()
{
    runChild(QStringLiteral("sync"), {});
}

double seconds(const QElapsedTimer& clock)
{
    return double(clock.nsecsElapsed()) / 1e9;
}

void PhotoImport_10kFiles5GB_AgainstRsync(benchmark::State& state)
{
    if (!makeCard() || !nuvrel::test::hasTool(QStringLiteral("rsync"))) {
        state.SkipWithError("cannot make the card, or rsync is missing");
        return;
    }
    // Warm: every file read once.
    ChildLimits limits;
    limits.watchdog = std::chrono::minutes(20);
    runChild(QStringLiteral("sh"),
             {QStringLiteral("-c"), QStringLiteral("cat \"$0\"/card/DCIM/*/* > /dev/null"), workFolder().path()},
             limits);
    // Both write 5 GB that the kernel flushes behind them: each run starts after a sync, the two take
    // turns going first, and each is timed twice, when it returns and once its data is on disk.
    QList<double> ours;
    QList<double> theirs;
    QList<double> oursOnDisk;
    QList<double> theirsOnDisk;
    const auto runRsync = [&] {
        QDir(path(QStringLiteral("rsync"))).removeRecursively();
        settle();
        QElapsedTimer clock;
        clock.start();
        const auto copied =
            runChild(QStringLiteral("rsync"),
                     {QStringLiteral("-a"), path(QStringLiteral("card/")), path(QStringLiteral("rsync/"))}, limits);
        theirs.append(seconds(clock));
        settle();
        theirsOnDisk.append(seconds(clock));
        return copied.exitCode == 0;
    };
    const auto runNuvrel = [&] {
        QDir(path(QStringLiteral("nuvrel"))).removeRecursively();
        QFile::remove(path(QStringLiteral("history.json")));
        settle();
        QElapsedTimer clock;
        clock.start();
        auto source = std::make_shared<FolderSource>(path(QStringLiteral("card")), QStringLiteral("CARD"));
        CopyHistory history(path(QStringLiteral("history.json")));
        history.load();
        const ImportOutcome outcome = PhotoImport::run(source, allFilesInOrder(source->mediaFiles(nullptr)),
                                                       path(QStringLiteral("nuvrel")), history);
        ours.append(seconds(clock));
        settle();
        oursOnDisk.append(seconds(clock));
        return outcome.copied == fileCount;
    };
    for (auto _ : state) {
        for (int round = 0; round < 3; ++round) {
            const bool fine = round % 2 == 0 ? runRsync() && runNuvrel() : runNuvrel() && runRsync();
            if (!fine)
                state.SkipWithError("a copy did not copy every file");
        }
    }
    const auto median = [](QList<double> values) {
        std::sort(values.begin(), values.end());
        return values.at(values.size() / 2);
    };
    state.counters["nuvrel_s"] = median(ours);
    state.counters["rsync_s"] = median(theirs);
    state.counters["ratio_to_rsync"] = median(ours) / median(theirs);
    state.counters["nuvrel_on_disk_s"] = median(oursOnDisk);
    state.counters["rsync_on_disk_s"] = median(theirsOnDisk);
    state.counters["ratio_on_disk"] = median(oursOnDisk) / median(theirsOnDisk);
    QDir(path(QStringLiteral("rsync"))).removeRecursively();
    QDir(path(QStringLiteral("nuvrel"))).removeRecursively();
}
BENCHMARK(PhotoImport_10kFiles5GB_AgainstRsync)->Iterations(1)->Unit(benchmark::kSecond);

void CopyHistory_100kKeys_LoadAndSave(benchmark::State& state)
{
    const QString file = path(QStringLiteral("large-history.json"));
    {
        CopyHistory history(file);
        for (int i = 0; i < 100'000; ++i)
            history.record(CopyHistory::key(QStringLiteral("iPhone de Léa"), QStringLiteral("IMG_%1.HEIC").arg(i),
                                            1'000'000 + i * 37,
                                            QDateTime::fromSecsSinceEpoch(1'600'000'000 + i * 600)));
        history.save();
    }
    QList<double> loads;
    QList<double> saves;
    for (auto _ : state) {
        CopyHistory history(file);
        QElapsedTimer clock;
        clock.start();
        history.load();
        loads.append(double(clock.nsecsElapsed()) / 1e6);
        if (history.size() != 100'000)
            state.SkipWithError("keys lost");
        clock.restart();
        history.save();
        saves.append(double(clock.nsecsElapsed()) / 1e6);
    }
    std::sort(loads.begin(), loads.end());
    std::sort(saves.begin(), saves.end());
    state.counters["load_ms"] = loads.at(loads.size() / 2);
    state.counters["save_ms"] = saves.at(saves.size() / 2);
}
BENCHMARK(CopyHistory_100kKeys_LoadAndSave)->Iterations(10)->Unit(benchmark::kMillisecond);

// A library database at the size of a real one's asset rows: the columns read, and as many again
// that a real ZASSET holds and the reader skips.
bool makeLibrary()
{
    static const bool made = [] {
        const QString folder = path(QStringLiteral("Photos Library.photoslibrary/database"));
        QDir().mkpath(folder);
        sqlite3* db = nullptr;
        if (sqlite3_open(QFile::encodeName(folder + QStringLiteral("/Photos.sqlite")).constData(), &db) != SQLITE_OK)
            return false;
        QByteArray extra;
        for (int c = 0; c < 60; ++c)
            extra += ", ZEXTRA" + QByteArray::number(c) + " INTEGER";
        const QByteArray schema =
            "PRAGMA journal_mode=WAL;"
            "CREATE TABLE Z_METADATA (Z_VERSION INTEGER PRIMARY KEY, Z_UUID VARCHAR, Z_PLIST BLOB);"
            "CREATE TABLE ZASSET (Z_PK INTEGER PRIMARY KEY, ZUUID VARCHAR, ZDIRECTORY VARCHAR, "
            "ZFILENAME VARCHAR, ZDATECREATED TIMESTAMP, ZKIND INTEGER, ZKINDSUBTYPE INTEGER, "
            "ZHASADJUSTMENTS INTEGER, ZTRASHEDSTATE INTEGER" +
            extra +
            ");"
            "CREATE TABLE ZADDITIONALASSETATTRIBUTES (Z_PK INTEGER PRIMARY KEY, ZASSET INTEGER, "
            "ZORIGINALFILENAME VARCHAR);"
            "CREATE INDEX ZADDITIONAL_ASSET ON ZADDITIONALASSETATTRIBUTES (ZASSET);"
            "BEGIN;";
        sqlite3_exec(db, schema.constData(), nullptr, nullptr, nullptr);
        const QByteArray plist = nuvrel::test::writePlist(
            QVariantMap{{QStringLiteral("PLModelVersion"), qint64(17120)}}, nuvrel::test::PlistFormat::Binary);
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(db, "INSERT INTO Z_METADATA VALUES (1, 'x', ?)", -1, &statement, nullptr);
        sqlite3_bind_blob(statement, 1, plist.constData(), int(plist.size()), SQLITE_TRANSIENT);
        sqlite3_step(statement);
        sqlite3_finalize(statement);
        sqlite3_stmt* asset = nullptr;
        sqlite3_prepare_v2(
            db,
            "INSERT INTO ZASSET (Z_PK, ZUUID, ZDIRECTORY, ZFILENAME, ZDATECREATED, ZKIND, ZKINDSUBTYPE, "
            "ZHASADJUSTMENTS, ZTRASHEDSTATE, ZEXTRA0, ZEXTRA30) VALUES (?, ?, ?, ?, ?, ?, ?, ?, 0, ?, ?)",
            -1, &asset, nullptr);
        sqlite3_stmt* name = nullptr;
        sqlite3_prepare_v2(db, "INSERT INTO ZADDITIONALASSETATTRIBUTES (ZASSET, ZORIGINALFILENAME) VALUES (?, ?)", -1,
                           &name, nullptr);
        QRandomGenerator random(3);
        for (int i = 1; i <= assetCount; ++i) {
            const QByteArray uuid = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().toLatin1();
            const QByteArray file = uuid + (i % 10 == 9 ? ".mov" : ".heic");
            sqlite3_bind_int(asset, 1, i);
            sqlite3_bind_text(asset, 2, uuid.constData(), -1, SQLITE_TRANSIENT);
            sqlite3_bind_text(asset, 3, uuid.left(1).constData(), -1, SQLITE_TRANSIENT);
            sqlite3_bind_text(asset, 4, file.constData(), -1, SQLITE_TRANSIENT);
            sqlite3_bind_double(asset, 5, 600'000'000.0 + double(random.bounded(200'000'000)));
            sqlite3_bind_int(asset, 6, i % 10 == 9 ? 1 : 0);
            sqlite3_bind_int(asset, 7, i % 7 == 0 ? 2 : 0);
            sqlite3_bind_int(asset, 8, i % 5 == 0 ? 1 : 0);
            sqlite3_bind_int(asset, 9, i);
            sqlite3_bind_int(asset, 10, i * 3);
            sqlite3_step(asset);
            sqlite3_reset(asset);
            const QByteArray original = "IMG_" + QByteArray::number(i) + (i % 10 == 9 ? ".MOV" : ".HEIC");
            sqlite3_bind_int(name, 1, i);
            sqlite3_bind_text(name, 2, original.constData(), -1, SQLITE_TRANSIENT);
            sqlite3_step(name);
            sqlite3_reset(name);
        }
        sqlite3_finalize(asset);
        sqlite3_finalize(name);
        const bool ok = sqlite3_exec(db, "COMMIT;", nullptr, nullptr, nullptr) == SQLITE_OK;
        sqlite3_close(db);
        return ok;
    }();
    return made;
}

void PhotosLibrary_100kAssets_AgainstSqlite3(benchmark::State& state)
{
    if (!makeLibrary()) {
        state.SkipWithError("cannot make the library");
        return;
    }
    const QString package = path(QStringLiteral("Photos Library.photoslibrary"));
    QList<double> ours;
    QList<double> theirs;
    for (auto _ : state) {
        QElapsedTimer clock;
        clock.start();
        const QList<LibraryAsset> assets = PhotosLibrary::readAssets(package);
        ours.append(seconds(clock));
        if (assets.size() != assetCount)
            state.SkipWithError("assets lost");
        clock.restart();
        runChild(QStringLiteral("sqlite3"),
                 {QStringLiteral("-readonly"), package + QStringLiteral("/database/Photos.sqlite"),
                  QStringLiteral(
                      "SELECT a.ZUUID, a.ZDIRECTORY, a.ZFILENAME, a.ZDATECREATED, a.ZKIND, a.ZKINDSUBTYPE, "
                      "a.ZHASADJUSTMENTS, n.ZORIGINALFILENAME FROM ZASSET a LEFT JOIN ZADDITIONALASSETATTRIBUTES n "
                      "ON n.ZASSET = a.Z_PK WHERE COALESCE(a.ZTRASHEDSTATE, 0) = 0 ORDER BY a.ZDATECREATED, a.Z_PK")});
        theirs.append(seconds(clock));
    }
    std::sort(ours.begin(), ours.end());
    std::sort(theirs.begin(), theirs.end());
    state.counters["nuvrel_s"] = ours.at(ours.size() / 2);
    state.counters["sqlite3_s"] = theirs.at(theirs.size() / 2);
}
BENCHMARK(PhotosLibrary_100kAssets_AgainstSqlite3)->Iterations(3)->Unit(benchmark::kSecond);

} // namespace

BENCHMARK_MAIN();
