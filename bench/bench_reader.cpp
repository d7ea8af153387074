// The backup reader on large inputs, each against its reference in the same run:
// - listing a 300,000-file backup shaped like a real phone's (bench/generators/phone_backup.py, written
//   with Python's sqlite3 and plistlib, not with Nuvrel's code): the reader's own listing, and
//   `nuvrel-cli files` in text, in JSON, with a filter that keeps one domain of a single file and with
//   --photos, each with its wall time and peak memory, against the sqlite3 command printing the same
//   rows of the same index (targets: under 1 s and 200 MB, within 3x of sqlite3);
// - decrypting a 1 GiB file against `openssl enc -d -aes-256-cbc -nopad` on the same stored copy.
// bench/run.sh writes the data:   NUVREL_BENCH_DATA=DIR build/default/bench/bench_reader

#include "ChildRun.h"

#include "engines/backup/BackupLocator.h"
#include "engines/backup/IPhoneBackupReader.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <algorithm>
#include <string_view>

namespace {

QString dataFolder()
{
    return qEnvironmentVariable("NUVREL_BENCH_DATA");
}

std::optional<nuvrel::PhoneBackup> backup(const char* id)
{
    return nuvrel::BackupLocator::read(QDir(dataFolder()).filePath(QString::fromLatin1(id)));
}

double peakResidentMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
#ifdef __APPLE__
    return usage.ru_maxrss / (1024.0 * 1024.0);
#else
    return usage.ru_maxrss / 1024.0;
#endif
}

const char* const phoneBackup = "phone-300k";

QString phoneIndex()
{
    return QDir(dataFolder()).filePath(QStringLiteral("%1/Manifest.db").arg(QLatin1StringView(phoneBackup)));
}

void LoadEntries300k(benchmark::State& state)
{
    const std::optional<nuvrel::PhoneBackup> large = backup(phoneBackup);
    if (!large) {
        state.SkipWithError("no bench data: run bench/run.sh");
        return;
    }
    qsizetype count = 0;
    for (auto _ : state) {
        nuvrel::IPhoneBackupReader reader(*large, {});
        count = reader.loadEntries().size();
    }
    state.counters["entries"] = static_cast<double>(count);
    state.counters["peak_rss_MB"] = peakResidentMegabytes();
}

// A domain that holds a single file, asked of the index by the sqlite3 command.
QString singleFileDomain()
{
    QProcess sqlite;
    sqlite.start(QStringLiteral("sqlite3"),
                 {QStringLiteral("-readonly"), phoneIndex(),
                  QStringLiteral("SELECT domain FROM Files WHERE flags = 1 GROUP BY domain HAVING COUNT(*) = 1 "
                                 "ORDER BY domain LIMIT 1")});
    sqlite.waitForFinished(60'000);
    return QString::fromUtf8(sqlite.readAllStandardOutput()).trimmed();
}

void report(benchmark::State& state, const nuvrel::bench::ChildRun& run)
{
    if (!run.ok) {
        state.SkipWithError("the command failed");
        return;
    }
    state.SetIterationTime(run.seconds);
    state.counters["peak_rss_MB"] = std::max(state.counters["peak_rss_MB"].value, run.peakMegabytes);
}

// nuvrel-cli files, its output to a file as a script would take it.
void CliFiles(benchmark::State& state, const char* mode)
{
    if (!QFile::exists(phoneIndex())) {
        state.SkipWithError("no bench data: run bench/run.sh");
        return;
    }
    QStringList arguments{QStringLiteral("files"), QFileInfo(phoneIndex()).path()};
    if (std::string_view(mode) == "json")
        arguments << QStringLiteral("--json");
    else if (std::string_view(mode) == "one_domain")
        arguments << QStringLiteral("--domain") << singleFileDomain();
    else if (std::string_view(mode) == "photos")
        arguments << QStringLiteral("--photos") << QStringLiteral("--json");
    const QString output = QDir(dataFolder()).filePath(QStringLiteral("listing.out"));
    for (auto _ : state)
        report(state, nuvrel::bench::runChild(QStringLiteral(NUVREL_CLI), arguments, output));
    state.counters["output_MB"] = static_cast<double>(QFileInfo(output).size()) / 1e6;
    QFile::remove(output);
}

// The reference: the sqlite3 command printing the rows the listing reads, from the same index.
void Sqlite3SameRows(benchmark::State& state)
{
    if (!QFile::exists(phoneIndex())) {
        state.SkipWithError("no bench data: run bench/run.sh");
        return;
    }
    const QString output = QDir(dataFolder()).filePath(QStringLiteral("sqlite3.out"));
    for (auto _ : state)
        report(state, nuvrel::bench::runChild(
                          QStringLiteral("sqlite3"),
                          {QStringLiteral("-readonly"), phoneIndex(),
                           QStringLiteral("SELECT fileID, domain, relativePath, file FROM Files WHERE flags = 1")},
                          output));
    state.counters["output_MB"] = static_cast<double>(QFileInfo(output).size()) / 1e6;
    QFile::remove(output);
}

struct BigFile
{
    std::unique_ptr<nuvrel::IPhoneBackupReader> reader;
    nuvrel::BackupEntry entry;
    QString stored;
    QString output;
};

std::optional<BigFile> bigFile()
{
    const std::optional<nuvrel::PhoneBackup> big = backup("big-file");
    if (!big)
        return std::nullopt;
    BigFile file;
    file.reader = std::make_unique<nuvrel::IPhoneBackupReader>(*big, QStringLiteral("bench"));
    file.entry = file.reader->loadEntries().front();
    file.stored = *file.reader->storedURL(file.entry.fileID);
    file.output = QDir(dataFolder()).filePath(QStringLiteral("decrypted.bin"));
    return file;
}

void DecryptOneGiB(benchmark::State& state)
{
    std::optional<BigFile> file = bigFile();
    if (!file) {
        state.SkipWithError("no bench data: run bench/run.sh");
        return;
    }
    for (auto _ : state) {
        QFile::remove(file->output);
        file->reader->extract(file->entry, file->output);
    }
    QFile::remove(file->output);
    state.SetBytesProcessed(state.iterations() * file->entry.meta().size);
}

void OpenSslEncDecrypt(benchmark::State& state)
{
    std::optional<BigFile> file = bigFile();
    if (!file) {
        state.SkipWithError("no bench data: run bench/run.sh");
        return;
    }
    const QString key = QString::fromLatin1(file->reader->fileKey(file->entry.meta()).toHex());
    for (auto _ : state) {
        QFile::remove(file->output);
        const int status = QProcess::execute(
            QStringLiteral("openssl"),
            {QStringLiteral("enc"), QStringLiteral("-d"), QStringLiteral("-aes-256-cbc"), QStringLiteral("-nopad"),
             QStringLiteral("-K"), key, QStringLiteral("-iv"), QString(32, u'0'), QStringLiteral("-in"), file->stored,
             QStringLiteral("-out"), file->output});
        if (status != 0)
            state.SkipWithError("openssl enc failed");
    }
    QFile::remove(file->output);
    state.SetBytesProcessed(state.iterations() * QFileInfo(file->stored).size());
}

} // namespace

BENCHMARK(LoadEntries300k)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(Sqlite3SameRows)->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();
BENCHMARK_CAPTURE(CliFiles, text, "text")->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();
BENCHMARK_CAPTURE(CliFiles, json, "json")->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();
BENCHMARK_CAPTURE(CliFiles, one_domain, "one_domain")->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();
BENCHMARK_CAPTURE(CliFiles, photos_json, "photos")->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();
BENCHMARK(DecryptOneGiB)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
// Wall time: the reference runs in a child process, whose CPU time this process does not see.
BENCHMARK(OpenSslEncDecrypt)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
