// The backup explorer on a large camera roll, and the application's start.
// - OpenPhone300k: from the explorer's creation to its ready state on a 300,000-file backup shaped like a
//   real phone's (bench/generators/phone_backup.py; bench/run.sh writes it into NUVREL_BENCH_DATA),
//   with the memory it then holds (target: under 1.5 s);
// - Open50kPhotos: from the explorer's creation to its ready state on an index of 50,000 photos and
//   50,000 other files, against the sqlite3 command reading the same rows of the same index.
// - Organize50k: the grouping and sorting alone, once the manifest is read (goal: under 2 s).
// - ThumbnailScroll: 300 photos of 1600×1200 scrolled through twice with a cache for 40 thumbnails,
//   against decoding each photo whole and scaling it (what a plain image view would do); the cache's
//   peak size is reported and must stay within its bound.
// - StartUp: the application to its first shown window (offscreen), against an empty Qt Widgets window.
// Data is written into a temporary folder at start:   build/default/bench/bench_explorer

#include "engines/backup/BackupLocator.h"
#include "engines/backup/IPhoneBackupReader.h"
#include "models/explorer/ExplorerModel.h"
#include "platform/SecretStore.h"
#include "platform/Workspace.h"
#include "support/FakeServices.h"
#include "support/SampleBackup.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

struct Data
{
    QTemporaryDir dir;
    PhoneBackup large;
    PhoneBackup photos;
    QList<BackupEntry> largeEntries;
};

Data& data()
{
    static Data* d = [] {
        auto* made = new Data;
        SampleBackup large;
        large.id = QStringLiteral("large");
        large.writeStoredCopies = false;
        large.withFoldersAndLinks = false;
        for (int i = 0; i < 50'000; ++i) {
            large.files.append(
                {QStringLiteral("CameraRollDomain"),
                 QStringLiteral("Media/DCIM/%1APPLE/IMG_%2.HEIC").arg(100 + i / 1000).arg(i, 4, 10, QLatin1Char('0')),
                 QByteArray(), 1'600'000'000 + (i * 7919) % 50'000'000});
            large.files.append({QStringLiteral("AppDomain-com.example.app%1").arg(i % 40),
                                QStringLiteral("Library/Caches/%1/file%2.dat").arg(i % 97).arg(i), QByteArray()});
        }
        made->large = *BackupLocator::read(large.write(made->dir.path()));
        made->largeEntries = IPhoneBackupReader(made->large, {}).loadEntries();

        SampleBackup photos;
        photos.id = QStringLiteral("photos");
        for (int i = 0; i < 300; ++i) {
            QImage image(1600, 1200, QImage::Format_RGB32);
            image.fill(QColor::fromHsv((i * 37) % 360, 120, 220));
            QPainter painter(&image);
            painter.setPen(QPen(Qt::white, 12));
            painter.drawEllipse(QPoint(800, 600), 200 + i, 150 + i / 2);
            painter.end();
            QByteArray jpeg;
            QBuffer buffer(&jpeg);
            buffer.open(QIODevice::WriteOnly);
            image.save(&buffer, "JPG", 85);
            photos.files.append({QStringLiteral("CameraRollDomain"),
                                 QStringLiteral("Media/DCIM/100APPLE/IMG_%1.JPG").arg(i, 4, 10, QLatin1Char('0')), jpeg,
                                 1'700'000'000 + i});
        }
        made->photos = *BackupLocator::read(photos.write(made->dir.path()));
        return made;
    }();
    return *d;
}

template <typename Predicate>
void waitFor(Predicate done)
{
    while (!done())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
}

void Open50kPhotos(benchmark::State& state)
{
    nuvrel::test::FakeServices fakes;
    qsizetype photos = 0;
    for (auto _ : state) {
        ExplorerModel model(data().large, fakes.services());
        model.start();
        waitFor([&] { return model.phase() != ExplorerModel::Phase::Loading; });
        photos = model.photoRoll().photos().size();
    }
    state.counters["photos"] = double(photos);
}

// This process's resident memory now, or at its peak, in MB (Linux; 0 elsewhere).
double residentMegabytes(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(qstrlen(field)).trimmed().split(' ').value(0).toDouble() / 1024.0;
    }
    return 0;
}

void OpenPhone300k(benchmark::State& state)
{
    const std::optional<PhoneBackup> phone =
        BackupLocator::read(QDir(qEnvironmentVariable("NUVREL_BENCH_DATA")).filePath(QStringLiteral("phone-300k")));
    if (!phone) {
        state.SkipWithError("no bench data: run bench/run.sh");
        return;
    }
    nuvrel::test::FakeServices fakes;
    qsizetype photos = 0;
    for (auto _ : state) {
        const double before = residentMegabytes("VmRSS:");
        ExplorerModel model(*phone, fakes.services());
        model.start();
        waitFor([&] { return model.phase() != ExplorerModel::Phase::Loading; });
        state.PauseTiming();
        photos = model.photoRoll().photos().size();
        state.counters["held_MB"] = residentMegabytes("VmRSS:") - before;
        state.counters["peak_rss_MB"] = residentMegabytes("VmHWM:");
        state.ResumeTiming();
    }
    state.counters["photos"] = double(photos);
}

void Sqlite3ReadsTheSameRows(benchmark::State& state)
{
    const QString index = QDir(data().large.url).filePath(QStringLiteral("Manifest.db"));
    for (auto _ : state) {
        QProcess sqlite;
        sqlite.setStandardOutputFile(QProcess::nullDevice());
        sqlite.start(QStringLiteral("sqlite3"),
                     {QStringLiteral("-readonly"), index,
                      QStringLiteral("SELECT fileID, domain, relativePath, file FROM Files WHERE flags = 1")});
        if (!sqlite.waitForFinished(120'000) || sqlite.exitCode() != 0)
            state.SkipWithError("the sqlite3 command failed");
    }
}

void Organize50k(benchmark::State& state)
{
    for (auto _ : state) {
        const BackupCatalogue result = BackupCatalogue::organize(data().largeEntries);
        benchmark::DoNotOptimize(result.photos.size());
    }
}

void ThumbnailScroll(benchmark::State& state)
{
    nuvrel::test::FakeServices fakes;
    ExplorerModel model(data().photos, fakes.services());
    model.start();
    waitFor([&] { return model.phase() != ExplorerModel::Phase::Loading; });
    model.photoRoll().setThumbnailCacheLimit(40LL * PhotoRoll::thumbnailSide * PhotoRoll::thumbnailSide * 4);
    qint64 peak = 0;
    int decoded = 0;
    for (auto _ : state) {
        const int before = model.photoRoll().thumbnailsDecoded();
        // Down and back up, a screenful (30 cells) at a time, waiting for each screen as a user would.
        QList<int> rows;
        for (int row = 0; row < model.photoRoll().photos().size(); ++row)
            rows << row;
        for (int row = int(model.photoRoll().photos().size()) - 1; row >= 0; --row)
            rows << row;
        for (qsizetype start = 0; start < rows.size(); start += 30) {
            const QList<int> screen = rows.mid(start, 30);
            waitFor([&] {
                bool all = true;
                for (int row : screen)
                    all = !model.photoRoll().thumbnail(model.photoRoll().photos().at(row).entry.fileID).isNull() && all;
                peak = std::max(peak, model.photoRoll().thumbnailCacheBytes());
                return all;
            });
        }
        decoded += model.photoRoll().thumbnailsDecoded() - before;
    }
    state.counters["thumbnails_per_s"] = benchmark::Counter(decoded, benchmark::Counter::kIsRate);
    state.counters["cache_peak_MB"] = double(peak) / 1e6;
    state.counters["cache_limit_MB"] = double(model.photoRoll().thumbnailCacheLimit()) / 1e6;
    if (peak > model.photoRoll().thumbnailCacheLimit())
        state.SkipWithError("the thumbnail cache outgrew its bound");
}

void WholeDecodeReference(benchmark::State& state)
{
    IPhoneBackupReader reader(data().photos, {});
    const QList<BackupEntry> entries = reader.loadEntries();
    int decoded = 0;
    for (auto _ : state) {
        for (const BackupEntry& entry : entries) {
            QImage image;
            image.load(*reader.storedURL(entry.fileID));
            benchmark::DoNotOptimize(image
                                         .scaled(PhotoRoll::thumbnailSide, PhotoRoll::thumbnailSide,
                                                 Qt::KeepAspectRatio, Qt::SmoothTransformation)
                                         .width());
            ++decoded;
        }
    }
    state.counters["thumbnails_per_s"] = benchmark::Counter(decoded, benchmark::Counter::kIsRate);
}

double firstWindowMs(const QString& program)
{
    QTemporaryDir home;
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    environment.insert(QStringLiteral("NUVREL_QUIT_AFTER_SHOW"), QStringLiteral("1"));
    environment.insert(QStringLiteral("HOME"), home.path());
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path());
    environment.insert(QStringLiteral("NUVREL_BACKUP_ROOT"), data().dir.path());
    process.setProcessEnvironment(environment);
    QElapsedTimer wall;
    wall.start();
    process.start(program, {});
    if (!process.waitForFinished(60'000) || process.exitCode() != 0)
        return -1;
    return double(wall.nsecsElapsed()) / 1e6;
}

void StartUp(benchmark::State& state, const char* program)
{
    double total = 0;
    int runs = 0;
    for (auto _ : state) {
        const double ms = firstWindowMs(QString::fromUtf8(program));
        if (ms < 0) {
            state.SkipWithError("the program did not start");
            return;
        }
        total += ms;
        ++runs;
    }
    state.counters["process_to_window_ms"] = total / runs;
}

} // namespace

// First, so that its peak memory is its own.
BENCHMARK(OpenPhone300k)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(Open50kPhotos)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(Sqlite3ReadsTheSameRows)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(Organize50k)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(ThumbnailScroll)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(WholeDecodeReference)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK_CAPTURE(StartUp, nuvrel, NUVREL_APP_PATH)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_CAPTURE(StartUp, empty_qt_window, NUVREL_EMPTY_WINDOW_PATH)->Unit(benchmark::kMillisecond)->Iterations(5);

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("HOME", QFile::encodeName(home.path()));
    benchmark::Initialize(&argc, argv);
    data();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
