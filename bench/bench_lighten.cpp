// The lightener, each case against its reference in the same run, on files made here by ffmpeg and Qt:
// - a 12-megapixel JPEG for WhatsApp (1600 pixels, quality 85), through nuvrel-cli and in process,
//   against `vipsthumbnail --size 1600 -o out.jpg[Q=85]` (libvips); the median of several runs;
// - a 48-megapixel baseline JPEG: nuvrel-cli's peak memory (target: under 150 MB);
// - a 1080p video for Telegram: nuvrel-cli against the very ffmpeg command it runs, replayed alone
//   (target: under 5 % more);
// - a 12-page scanned A4 document for Mail: pages per second and output size, against Ghostscript's
//   `-sDEVICE=pdfwrite -dPDFSETTINGS=/ebook`.
//   build/default/bench/bench_lighten        (bench/run.sh builds and runs it)

#include "cli/ChildProcess.h"
#include "engines/lighten/Lightener.h"
#include "support/MediaFixtures.h"

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <chrono>

namespace {

using nuvrel::test::ChildLimits;
using nuvrel::test::ChildRun;
using nuvrel::test::runChild;

QTemporaryDir& workFolder()
{
    static QTemporaryDir folder;
    return folder;
}

QString fixture(const QString& name)
{
    return workFolder().filePath(name);
}

QString outputFolder()
{
    QString folder = fixture(QStringLiteral("out"));
    QDir(folder).removeRecursively();
    QDir().mkpath(folder);
    return folder;
}

bool prepare(benchmark::State& state, const QString& name, const std::function<bool(const QString&)>& make)
{
    static QMap<QString, bool> made;
    if (!made.contains(name))
        made[name] = make(fixture(name));
    if (!made[name])
        state.SkipWithError(qPrintable(QStringLiteral("could not make ") + name));
    return made[name];
}

bool twelveMegapixels(benchmark::State& state)
{
    return prepare(state, QStringLiteral("IMG_12MP.jpg"), [](const QString& path) {
        return nuvrel::test::writeDetailedJpeg(path, {4032, 3024});
    });
}

double secondsOf(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

ChildRun cli(const QStringList& arguments, const QMap<QString, QString>& environment = {})
{
    ChildLimits limits;
    limits.watchdog = std::chrono::minutes(10);
    limits.environment = environment;
    return runChild(QStringLiteral(NUVREL_CLI), arguments, limits);
}

void Photo12MP_NuvrelCli(benchmark::State& state)
{
    if (!twelveMegapixels(state))
        return;
    for (auto _ : state) {
        const QString out = outputFolder();
        const ChildRun run = cli({QStringLiteral("lighten"), fixture(QStringLiteral("IMG_12MP.jpg")),
                                  QStringLiteral("--target"), QStringLiteral("whatsapp"), QStringLiteral("--to"), out});
        if (run.exitCode != 0)
            state.SkipWithError("nuvrel-cli failed");
    }
}

void Photo12MP_InProcess(benchmark::State& state)
{
    if (!twelveMegapixels(state))
        return;
    for (auto _ : state) {
        state.PauseTiming();
        const QString out = outputFolder();
        state.ResumeTiming();
        nuvrel::Lightener::lightenImage(fixture(QStringLiteral("IMG_12MP.jpg")), nuvrel::LightenTarget::WhatsApp, true,
                                        true, out);
    }
}

void Photo12MP_Vipsthumbnail(benchmark::State& state)
{
    if (!twelveMegapixels(state))
        return;
    if (!nuvrel::test::hasTool(QStringLiteral("vipsthumbnail"))) {
        state.SkipWithError("vipsthumbnail is not installed (libvips-tools)");
        return;
    }
    for (auto _ : state) {
        const QString out = outputFolder();
        const ChildRun run =
            runChild(QStringLiteral("vipsthumbnail"),
                     {fixture(QStringLiteral("IMG_12MP.jpg")), QStringLiteral("--size"), QStringLiteral("1600"),
                      QStringLiteral("-o"), QDir(out).filePath(QStringLiteral("out.jpg[Q=85]"))});
        if (run.exitCode != 0)
            state.SkipWithError("vipsthumbnail failed");
    }
}

void Photo48MP_PeakMemory(benchmark::State& state)
{
    if (!prepare(state, QStringLiteral("IMG_48MP.jpg"), [](const QString& path) {
            return nuvrel::test::writeDetailedJpeg(path, {8064, 6048});
        }))
        return;
    qint64 peak = 0;
    for (auto _ : state) {
        const ChildRun run =
            cli({QStringLiteral("lighten"), fixture(QStringLiteral("IMG_48MP.jpg")), QStringLiteral("--target"),
                 QStringLiteral("whatsapp"), QStringLiteral("--to"), outputFolder()});
        if (run.exitCode != 0)
            state.SkipWithError("nuvrel-cli failed");
        peak = std::max(peak, run.peakKiB);
    }
    state.counters["peak_rss_MB"] = double(peak) / 1024.0;
    state.counters["source_MB"] = double(QFileInfo(fixture(QStringLiteral("IMG_48MP.jpg"))).size()) / 1e6;
}

// nuvrel-cli lightening a 20-second 1080p clip for Telegram, and the ffmpeg command it logged, run
// alone on the same file: the difference is ours (probing, process handling, renaming).
void Video1080p_Overhead(benchmark::State& state)
{
    if (!prepare(state, QStringLiteral("clip.mov"), [](const QString& path) {
            return nuvrel::test::runCommand(
                QStringLiteral("ffmpeg"),
                {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"), QStringLiteral("lavfi"),
                 QStringLiteral("-i"), QStringLiteral("testsrc2=size=1920x1080:rate=30"), QStringLiteral("-f"),
                 QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("sine=frequency=440"),
                 QStringLiteral("-t"), QStringLiteral("20"), QStringLiteral("-c:v"), QStringLiteral("libx264"),
                 QStringLiteral("-c:a"), QStringLiteral("aac"), path});
        }))
        return;
    double ours = 0;
    double alone = 0;
    for (auto _ : state) {
        ChildRun run;
        ours += secondsOf([&] {
            run = cli({QStringLiteral("lighten"), fixture(QStringLiteral("clip.mov")), QStringLiteral("--target"),
                       QStringLiteral("telegram"), QStringLiteral("--to"), outputFolder()},
                      {{QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("nuvrel.lighten.debug=true")}});
        });
        const qsizetype logged = run.err.indexOf(QStringLiteral("ffmpeg ["));
        if (run.exitCode != 0 || logged < 0) {
            state.SkipWithError("nuvrel-cli failed or logged no command");
            return;
        }
        QStringList arguments;
        for (const QJsonValue argument :
             QJsonDocument::fromJson(run.err.mid(logged + 7).section(u'\n', 0, 0).toUtf8()).array())
            arguments.append(argument.toString());
        arguments.last() = QDir(outputFolder()).filePath(QStringLiteral("alone.mp4"));
        alone += secondsOf([&] { nuvrel::test::runCommand(QStringLiteral("ffmpeg"), arguments); });
    }
    state.counters["nuvrel_s"] = ours / double(state.iterations());
    state.counters["ffmpeg_alone_s"] = alone / double(state.iterations());
    state.counters["overhead_pct"] = 100.0 * (ours - alone) / alone;
}

bool scannedDocument(benchmark::State& state)
{
    return prepare(state, QStringLiteral("scan.pdf"),
                   [](const QString& path) { return nuvrel::test::writeScannedPdf(path, 12); });
}

void ScannedPdf12Pages_Nuvrel(benchmark::State& state)
{
    if (!scannedDocument(state))
        return;
    QString output;
    for (auto _ : state) {
        state.PauseTiming();
        const QString out = outputFolder();
        state.ResumeTiming();
        output = nuvrel::Lightener::lightenPdf(fixture(QStringLiteral("scan.pdf")), nuvrel::LightenTarget::Mail, out);
    }
    state.counters["pages_per_s"] = benchmark::Counter(12.0 * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["source_MB"] = double(QFileInfo(fixture(QStringLiteral("scan.pdf"))).size()) / 1e6;
    state.counters["output_MB"] = double(QFileInfo(output).size()) / 1e6;
}

void ScannedPdf12Pages_GhostscriptEbook(benchmark::State& state)
{
    if (!scannedDocument(state))
        return;
    if (!nuvrel::test::hasTool(QStringLiteral("gs"))) {
        state.SkipWithError("Ghostscript is not installed");
        return;
    }
    const QString output = fixture(QStringLiteral("gs.pdf"));
    for (auto _ : state) {
        nuvrel::test::runCommand(QStringLiteral("gs"),
                                 {QStringLiteral("-q"), QStringLiteral("-dNOPAUSE"), QStringLiteral("-dBATCH"),
                                  QStringLiteral("-dSAFER"), QStringLiteral("-sDEVICE=pdfwrite"),
                                  QStringLiteral("-dPDFSETTINGS=/ebook"), QStringLiteral("-sOutputFile=") + output,
                                  fixture(QStringLiteral("scan.pdf"))});
    }
    state.counters["pages_per_s"] = benchmark::Counter(12.0 * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["output_MB"] = double(QFileInfo(output).size()) / 1e6;
}

} // namespace

BENCHMARK(Photo12MP_NuvrelCli)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();
BENCHMARK(Photo12MP_InProcess)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();
BENCHMARK(Photo12MP_Vipsthumbnail)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();
BENCHMARK(Photo48MP_PeakMemory)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(Video1080p_Overhead)->Unit(benchmark::kSecond)->Iterations(5)->UseRealTime();
BENCHMARK(ScannedPdf12Pages_Nuvrel)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(ScannedPdf12Pages_GhostscriptEbook)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv); // QPdfWriter draws the scanned document
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
