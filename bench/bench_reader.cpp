// The backup reader on large inputs: listing a 300,000-file index (time and peak memory), and
// decrypting a 1 GiB file against `openssl enc -d -aes-256-cbc -nopad` on the same stored copy, in
// the same run. The data comes from `nuvrel-make-samples --bench-data DIR` (bench/run.sh does it):
//   NUVREL_BENCH_DATA=DIR build/default/bench/bench_reader

#include "engines/backup/BackupLocator.h"
#include "engines/backup/IPhoneBackupReader.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

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

void LoadEntries300k(benchmark::State& state)
{
    const std::optional<nuvrel::PhoneBackup> large = backup("large-index");
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
