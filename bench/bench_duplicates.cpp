// The duplicate scanner against its references, in the same run, with a warm cache:
// - exact duplicates in a generated tree of 20,000 files (about 2.4 GB, 30 % of them copies, many
//   originals sharing their size, some pairs differing only in the middle so that they must be read
//   whole): `nuvrel-cli duplicates --json` against `jdupes -r -A -q` and `rmlint -T df`; the groups
//   are checked to be jdupes's;
// - similar photos on 12-megapixel JPEGs of three grains and on a HEIC with its stored thumbnail: the
//   scanner's hashing (reduced decode, two cores) against decoding each photo whole and scaling it, on
//   two cores too; photos per second.
// The tree is made once under $NUVREL_BENCH_DATA (bench/run.sh sets it), else in a temporary folder.
//   Size distribution of the originals: 70 % from 1 to 64 KiB (300 distinct sizes), 26 % from 64 to
//   256 KiB (120 sizes), 4 % from 256 KiB to 2 MiB (60 sizes), and 20 files from 8 to 24 MiB.
//   build/default/bench/bench_duplicates        (bench/run.sh builds and runs it)

#include "cli/ChildProcess.h"
#include "engines/duplicates/DuplicateScanner.h"
#include "media/PhotoFile.h"
#include "support/MediaFixtures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using nuvrel::test::ChildLimits;
using nuvrel::test::ChildRun;
using nuvrel::test::runChild;
using Groups = QSet<QSet<QString>>;

constexpr int treeFiles = 20'000;
constexpr int copyShare = 30; // percent of the files that are copies

QString dataFolder()
{
    static QTemporaryDir fallback;
    const QString root = qEnvironmentVariable("NUVREL_BENCH_DATA");
    return root.isEmpty() ? fallback.path() : QDir(root).absolutePath();
}

QString treeFolder()
{
    return QDir(dataFolder()).filePath(QStringLiteral("duplicates-tree"));
}

qint64 originalSize(QRandomGenerator& random, int index)
{
    if (index < 20)
        return qint64(8 + random.bounded(17)) * 1024 * 1024;
    const int bucket = int(random.bounded(100));
    if (bucket < 70)
        return 1024 + qint64(random.bounded(300)) * (63 * 1024 / 300);
    if (bucket < 96)
        return qint64(64) * 1024 + qint64(random.bounded(120)) * (192 * 1024 / 120);
    return qint64(256) * 1024 + qint64(random.bounded(60)) * (qint64(1792) * 1024 / 60);
}

bool writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// The tree, made once: a marker file says it is complete.
bool makeTree()
{
    const QString root = treeFolder();
    const QString done = QDir(root).filePath(QStringLiteral(".complete"));
    if (QFile::exists(done))
        return true;
    QDir(root).removeRecursively();
    QRandomGenerator random(20'000);
    const int originals = treeFiles * (100 - copyShare) / 100;
    QList<QPair<QString, qint64>> made;
    QByteArray previous;
    for (int i = 0; i < originals; ++i) {
        const QString folder = QDir(root).filePath(QStringLiteral("dossier-%1").arg(i % 200, 3, 10, QLatin1Char('0')));
        if (i < 200 && !QDir().mkpath(folder))
            return false;
        QByteArray bytes;
        // One original in ten is the previous one with a byte changed in its middle: same size, same
        // edges, so it must be read whole to be told apart.
        if (i % 10 == 9 && previous.size() > qsizetype(16) * 1024) {
            bytes = previous;
            bytes[bytes.size() / 2] = char(~bytes[bytes.size() / 2]);
        } else {
            bytes = QByteArray(originalSize(random, i), '\0');
            random.fillRange(reinterpret_cast<quint32*>(bytes.data()), bytes.size() / 4);
        }
        const QString path = QDir(folder).filePath(QStringLiteral("original-%1.bin").arg(i));
        if (!writeBytes(path, bytes))
            return false;
        made.append({path, bytes.size()});
        previous = bytes;
    }
    for (int i = originals; i < treeFiles; ++i) {
        const QString source = made[int(random.bounded(qsizetype(made.size())))].first;
        const QString folder = QDir(root).filePath(QStringLiteral("copies-%1").arg(i % 50, 2, 10, QLatin1Char('0')));
        QDir().mkpath(folder);
        if (!QFile::copy(source, QDir(folder).filePath(QStringLiteral("copie-%1.bin").arg(i))))
            return false;
    }
    return writeBytes(done, "ok");
}

bool prepareTree(benchmark::State& state)
{
    static const bool made = makeTree();
    if (!made)
        state.SkipWithError("could not make the tree");
    return made;
}

ChildRun run(const QString& program, const QStringList& arguments)
{
    ChildLimits limits;
    limits.watchdog = std::chrono::minutes(20);
    return runChild(program, arguments, limits);
}

Groups nuvrelGroups(const QString& json)
{
    Groups groups;
    for (const auto& group :
         QJsonDocument::fromJson(json.toUtf8()).object().value(QStringLiteral("identical")).toArray()) {
        QSet<QString> members;
        for (const auto& file : group.toArray())
            members.insert(file.toObject().value(QStringLiteral("path")).toString());
        groups.insert(members);
    }
    return groups;
}

Groups jdupesGroups(const QString& text)
{
    Groups groups;
    QSet<QString> current;
    for (const QString& line : text.split(u'\n')) {
        if (!line.isEmpty()) {
            current.insert(line);
            continue;
        }
        if (!current.isEmpty())
            groups.insert(current);
        current.clear();
    }
    if (!current.isEmpty())
        groups.insert(current);
    return groups;
}

void runExact(benchmark::State& state, const QString& program, const QStringList& arguments)
{
    if (!prepareTree(state))
        return;
    if (!nuvrel::test::hasTool(program)) {
        state.SkipWithError(qPrintable(program + QStringLiteral(" is not installed")));
        return;
    }
    run(program, arguments); // warms the cache
    for (auto _ : state) {
        const ChildRun done = run(program, arguments);
        if (done.exitCode < 0 || done.hung)
            state.SkipWithError(qPrintable(program + QStringLiteral(" failed")));
    }
    state.counters["files_per_s"] =
        benchmark::Counter(double(treeFiles) * double(state.iterations()), benchmark::Counter::kIsRate);
}

void Exact20000Files_NuvrelCli(benchmark::State& state)
{
    runExact(state, QStringLiteral(NUVREL_CLI), {QStringLiteral("duplicates"), treeFolder(), QStringLiteral("--json")});
    if (state.error_occurred())
        return;
    // The same groups as jdupes (every file here is under the sampling size).
    const ChildRun ours =
        run(QStringLiteral(NUVREL_CLI), {QStringLiteral("duplicates"), treeFolder(), QStringLiteral("--json")});
    const Groups groups = nuvrelGroups(ours.out);
    state.counters["groups"] = double(groups.size());
    if (nuvrel::test::hasTool(QStringLiteral("jdupes"))) {
        const ChildRun theirs = run(QStringLiteral("jdupes"),
                                    {QStringLiteral("-r"), QStringLiteral("-A"), QStringLiteral("-q"), treeFolder()});
        state.counters["same_groups_as_jdupes"] = groups == jdupesGroups(theirs.out) ? 1 : 0;
    }
}

void Exact20000Files_Jdupes(benchmark::State& state)
{
    runExact(state, QStringLiteral("jdupes"),
             {QStringLiteral("-r"), QStringLiteral("-A"), QStringLiteral("-q"), treeFolder()});
}

void Exact20000Files_Rmlint(benchmark::State& state)
{
    // Duplicates only, listed fdupes-style, no script written.
    runExact(state, QStringLiteral("rmlint"),
             {QStringLiteral("-T"), QStringLiteral("df"), QStringLiteral("-o"), QStringLiteral("fdupes:/dev/null"),
              treeFolder()});
}

// `first` ("IMG_0000") and 23 copies beside it: a batch of photos to hash, all the same size.
QStringList copiesOf(const QString& first, const QString& suffix)
{
    QStringList paths;
    for (int i = 0; i < 24; ++i) {
        const QString path =
            QFileInfo(first).dir().filePath(QStringLiteral("IMG_%1.%2").arg(i, 4, 10, QLatin1Char('0')).arg(suffix));
        if (!QFile::exists(path))
            QFile::copy(first, path);
        paths.append(path);
    }
    return paths;
}

// 24 copies of one 12-megapixel JPEG whose grain is `noise` (ffmpeg's noise filter): 0 gives a
// smooth picture of about 0.5 MB, 6 about 2.7 MB (a phone's usual size), 40 about 9 MB. What the
// hash cannot skip is libjpeg's entropy decoding, which grows with the file.
QStringList photos(int noise)
{
    const QString folder = QDir(dataFolder()).filePath(QStringLiteral("duplicates-photos-%1").arg(noise));
    QDir().mkpath(folder);
    const QString first = QDir(folder).filePath(QStringLiteral("IMG_0000.jpg"));
    const QString source = noise > 0 ? QStringLiteral("testsrc2=size=4032x3024:rate=1,noise=alls=%1:allf=t").arg(noise)
                                     : QStringLiteral("testsrc2=size=4032x3024:rate=1");
    if (!QFile::exists(first) &&
        !nuvrel::test::runCommand(QStringLiteral("ffmpeg"),
                                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-y"),
                                   QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), source,
                                   QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-q:v"),
                                   QStringLiteral("2"), first}))
        return {};
    return copiesOf(first, QStringLiteral("jpg"));
}

// The same photo as a phone's HEIC with its stored thumbnail (heif-enc -t 320), 24 copies.
QStringList heicPhotos()
{
    const QStringList jpegs = photos(6);
    const QString folder = QDir(dataFolder()).filePath(QStringLiteral("duplicates-photos-heic"));
    QDir().mkpath(folder);
    const QString first = QDir(folder).filePath(QStringLiteral("IMG_0000.heic"));
    if (jpegs.isEmpty() ||
        (!QFile::exists(first) &&
         !nuvrel::test::runCommand(QStringLiteral("heif-enc"),
                                   {QStringLiteral("-q"), QStringLiteral("80"), QStringLiteral("-t"),
                                    QStringLiteral("320"), QStringLiteral("-o"), first, jpegs.first()})))
        return {};
    return copiesOf(first, QStringLiteral("heic"));
}

// Each photo decoded whole, then brought down to the hash's 9 × 8 pixels; two threads.
void decodeWhole(const QStringList& paths)
{
    std::atomic<qsizetype> next{0};
    std::atomic<quint64> sink{0};
    const auto worker = [&] {
        for (qsizetype i = next++; i < paths.size(); i = next++) {
            nuvrel::PhotoFile photo(paths[i]);
            sink += nuvrel::DuplicateScanner::dHash(photo.decode(1 << 16));
        }
    };
    std::thread helper(worker);
    worker();
    helper.join();
    benchmark::DoNotOptimize(sink.load());
}

void comparePhotoHashing(benchmark::State& state, const QStringList& paths)
{
    if (paths.isEmpty()) {
        state.SkipWithError("could not make the photos (ffmpeg, heif-enc)");
        return;
    }
    QList<nuvrel::DupFile> files;
    for (const QString& path : paths)
        files.append({path, QFileInfo(path).size(), QFileInfo(path).birthTime(), {}, {}});
    decodeWhole(paths); // warms the cache
    double ours = 0;
    double whole = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(nuvrel::DuplicateScanner::similarGroups(files));
        ours += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        start = std::chrono::steady_clock::now();
        decodeWhole(paths);
        whole += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    const double count = double(paths.size()) * double(state.iterations());
    state.counters["nuvrel_photos_per_s"] = count / ours;
    state.counters["whole_decode_photos_per_s"] = count / whole;
    state.counters["speedup"] = whole / ours;
    state.counters["file_MB"] = double(QFileInfo(paths.first()).size()) / 1e6;
}

void SimilarPhotos12MP(benchmark::State& state)
{
    comparePhotoHashing(state, photos(int(state.range(0))));
}

void SimilarPhotos12MP_Heic(benchmark::State& state)
{
    comparePhotoHashing(state, heicPhotos());
}

} // namespace

BENCHMARK(Exact20000Files_NuvrelCli)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(Exact20000Files_Jdupes)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(Exact20000Files_Rmlint)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(SimilarPhotos12MP)->Arg(0)->Arg(6)->Arg(40)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(SimilarPhotos12MP_Heic)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
