// MBFileInfo::parse against libplist's plist_from_bin on the same 300,000 file-record blobs.
// A manifest holds one blob per backed-up file, so this is the inner loop of opening a backup.
//   build/release/bench/bench_mbfileinfo --benchmark_counters_tabular=true

#include "engines/backup/MBFileInfo.h"

#include "support/FileRecordBlob.h"

#include <QList>
#include <QRandomGenerator>

#include <benchmark/benchmark.h>
#include <plist/plist.h>

namespace {

constexpr int blobCount = 300'000;

// Realistic records: paths of varied length, sizes over the whole range, keys in two thirds of them.
const QList<QByteArray>& blobs()
{
    static const QList<QByteArray> all = [] {
        QRandomGenerator random(7);
        QList<QByteArray> distinct;
        for (int i = 0; i < 2'000; ++i) {
            nuvrel::test::FileRecord record;
            record.relativePath = QStringLiteral("Media/DCIM/1%1APPLE/IMG_%2.HEIC")
                                      .arg(i % 40, 3, 10, QLatin1Char('0'))
                                      .arg(i, 4, 10, QLatin1Char('0'));
            record.size = static_cast<qint64>(random.bounded(1u << 30));
            record.lastModified = 1'500'000'000 + random.bounded(300'000'000);
            if (i % 3 != 0)
                record.encryptionKey = QByteArray(44, static_cast<char>(i));
            distinct.append(nuvrel::test::makeFileRecordBlob(record));
        }
        QList<QByteArray> result;
        result.reserve(blobCount);
        for (int i = 0; i < blobCount; ++i)
            result.append(QByteArray(distinct[i % distinct.size()].constData(), distinct[i % distinct.size()].size()));
        return result;
    }();
    return all;
}

void MBFileInfoParse(benchmark::State& state)
{
    const QList<QByteArray>& input = blobs();
    qint64 total = 0;
    for (auto _ : state) {
        for (const QByteArray& blob : input) {
            const std::optional<nuvrel::MBFileInfo> info = nuvrel::MBFileInfo::parse(blob);
            total += info ? info->size : 0;
        }
    }
    benchmark::DoNotOptimize(total);
    state.SetItemsProcessed(state.iterations() * input.size());
}

void LibplistFromBin(benchmark::State& state)
{
    const QList<QByteArray>& input = blobs();
    qint64 total = 0;
    for (auto _ : state) {
        for (const QByteArray& blob : input) {
            plist_t root = nullptr;
            plist_from_bin(blob.constData(), static_cast<uint32_t>(blob.size()), &root);
            total += root ? 1 : 0;
            plist_free(root);
        }
    }
    benchmark::DoNotOptimize(total);
    state.SetItemsProcessed(state.iterations() * input.size());
}

} // namespace

BENCHMARK(MBFileInfoParse)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(LibplistFromBin)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK_MAIN();
