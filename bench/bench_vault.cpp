// The vault's format against age (X25519, streaming, Debian's `age`), on one 2 GB file, warm cache,
// in the same run:
// - adding: VaultCrypto::encryptFile (digest included, flushed to the disk) against
//   `age -r RECIPIENT -o OUT FILE`; the flush is timed apart, since age does not flush;
// - restoring: VaultCrypto::decryptFile against `age -d -i KEY -o OUT FILE`;
// - the peak memory of this process while it seals (target: under 40 MB above what it held before).
// The file is made once under $NUVREL_BENCH_DATA (bench/run.sh sets it), else in a temporary folder.
//   build/default/bench/bench_vault        (bench/run.sh builds and runs it)

#include "cli/ChildProcess.h"
#include "engines/vault/VaultCrypto.h"
#include "formats/crypto/AesGcm.h"
#include "support/MediaFixtures.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <chrono>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using nuvrel::test::ChildLimits;
using nuvrel::test::runChild;
namespace VaultCrypto = nuvrel::VaultCrypto;

constexpr qint64 fileSize = qint64(2) * 1000 * 1000 * 1000;

QString dataFolder()
{
    static QTemporaryDir fallback;
    const QString root = qEnvironmentVariable("NUVREL_BENCH_DATA");
    QString folder = QDir(root.isEmpty() ? fallback.path() : root).absoluteFilePath(QStringLiteral("vault"));
    QDir().mkpath(folder);
    return folder;
}

QString path(const QString& name)
{
    return QDir(dataFolder()).filePath(name);
}

// 2 GB of random bytes, made once: nothing for either side to compress or skip.
bool prepare(benchmark::State& state)
{
    static const bool made = [] {
        const QString source = path(QStringLiteral("plain.bin"));
        if (QFileInfo(source).size() == fileSize)
            return true;
        QFile file(source);
        if (!file.open(QIODevice::WriteOnly))
            return false;
        QRandomGenerator random(2'000);
        QByteArray block(qsizetype(8) * 1024 * 1024, Qt::Uninitialized);
        for (qint64 written = 0; written < fileSize; written += block.size()) {
            random.fillRange(reinterpret_cast<quint32*>(block.data()), block.size() / 4);
            const qint64 length = std::min<qint64>(block.size(), fileSize - written);
            if (file.write(block.constData(), length) != length)
                return false;
        }
        return true;
    }();
    if (!made)
        state.SkipWithError("could not write the 2 GB file");
    if (!nuvrel::test::hasTool(QStringLiteral("age"))) {
        state.SkipWithError("age is not installed");
        return false;
    }
    return made;
}

const QByteArray& key()
{
    static const QByteArray made = nuvrel::AesGcm::randomKey();
    return made;
}

// An age identity and its recipient, made once with age-keygen.
QString ageIdentity()
{
    QString identity = path(QStringLiteral("age-key.txt"));
    if (!QFile::exists(identity))
        runChild(QStringLiteral("age-keygen"), {QStringLiteral("-o"), identity});
    return identity;
}

QString ageRecipient()
{
    return runChild(QStringLiteral("age-keygen"), {QStringLiteral("-y"), ageIdentity()}).out.trimmed();
}

double seconds(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void fresh(const QString& file)
{
    QFile::remove(file);
}

// Before each timed run: the last run's output removed and everything dirty written out, so that no
// run pays for the writeback (or, on a disk mounted with discard, the trimming) of the one before.
void settle(benchmark::State& state, const QString& output)
{
    state.PauseTiming();
    fresh(output);
    ::sync();
    state.ResumeTiming();
}

ChildLimits longRun()
{
    ChildLimits limits;
    limits.watchdog = std::chrono::minutes(10);
    return limits;
}

void Add2GB_Vault(benchmark::State& state)
{
    if (!prepare(state))
        return;
    const QString sealed = path(QStringLiteral("sealed.nvv"));
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    double total = 0;
    for (auto _ : state) {
        settle(state, sealed);
        total += seconds([&] { VaultCrypto::encryptFile(path(QStringLiteral("plain.bin")), sealed, key()); });
    }
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    state.counters["s_with_flush"] = total / double(state.iterations());
    state.counters["MB_per_s"] = double(fileSize) / 1e6 / (total / double(state.iterations()));
    state.counters["peak_growth_MB"] = double(after.ru_maxrss - before.ru_maxrss) / 1024.0;
}

void Add2GB_VaultFlushAlone(benchmark::State& state)
{
    if (!prepare(state))
        return;
    // What the flush of a freshly written 2 GB file costs on its own: the part of the vault's time that
    // age leaves to the system. The file is written as the vault writes, in 4 MiB blocks.
    const QString copy = path(QStringLiteral("flush.bin"));
    double total = 0;
    for (auto _ : state) {
        settle(state, copy);
        state.PauseTiming();
        QFile source(path(QStringLiteral("plain.bin")));
        QFile target(copy);
        source.open(QIODevice::ReadOnly);
        target.open(QIODevice::WriteOnly);
        QByteArray block(qsizetype(4) * 1024 * 1024, Qt::Uninitialized);
        for (qint64 read = 0; (read = source.read(block.data(), block.size())) > 0;)
            target.write(block.constData(), read);
        target.flush();
        state.ResumeTiming();
        total += seconds([&] { ::fsync(target.handle()); });
    }
    state.counters["flush_s"] = total / double(state.iterations());
    fresh(copy);
}

void Add2GB_Age(benchmark::State& state)
{
    if (!prepare(state))
        return;
    const QString recipient = ageRecipient();
    const QString out = path(QStringLiteral("sealed.age"));
    double flush = 0;
    for (auto _ : state) {
        settle(state, out);
        runChild(QStringLiteral("age"),
                 {QStringLiteral("-r"), recipient, QStringLiteral("-o"), out, path(QStringLiteral("plain.bin"))},
                 longRun());
        // What it left unwritten, for comparison with the vault's time flush included.
        state.PauseTiming();
        flush += seconds([] { ::sync(); });
        state.ResumeTiming();
    }
    state.counters["then_sync_s"] = flush / double(state.iterations());
}

void Restore2GB_Vault(benchmark::State& state)
{
    if (!prepare(state))
        return;
    const QString sealed = path(QStringLiteral("sealed.nvv"));
    if (!QFile::exists(sealed))
        VaultCrypto::encryptFile(path(QStringLiteral("plain.bin")), sealed, key());
    const QString out = path(QStringLiteral("restored.bin"));
    for (auto _ : state) {
        settle(state, out);
        VaultCrypto::decryptFile(sealed, out, key());
    }
    fresh(out);
}

void Restore2GB_Age(benchmark::State& state)
{
    if (!prepare(state))
        return;
    const QString sealed = path(QStringLiteral("sealed.age"));
    if (!QFile::exists(sealed))
        runChild(
            QStringLiteral("age"),
            {QStringLiteral("-r"), ageRecipient(), QStringLiteral("-o"), sealed, path(QStringLiteral("plain.bin"))},
            longRun());
    const QString out = path(QStringLiteral("restored.age.bin"));
    for (auto _ : state) {
        settle(state, out);
        runChild(QStringLiteral("age"),
                 {QStringLiteral("-d"), QStringLiteral("-i"), ageIdentity(), QStringLiteral("-o"), out, sealed},
                 longRun());
    }
    fresh(out);
}

} // namespace

BENCHMARK(Add2GB_Vault)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(Add2GB_VaultFlushAlone)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(Add2GB_Age)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(Restore2GB_Vault)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(Restore2GB_Age)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

BENCHMARK_MAIN();
