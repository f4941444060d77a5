#include "journal/ClipMetaStore.h"
#include "journal/JournalTradesFile.h"
#include "journal/ReferenceDate.h"
#include "journal/TradeFileReader.h"
#include "journal/TradeImport.h"
#include "journal/TradeImporter.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimeZone>

#include <benchmark/benchmark.h>

#include <memory>
#include <random>

namespace {

constexpr int clipCount = 10'000;
constexpr int tradeCount = 100'000;
// Clips are saved every half hour and hold the last 90 seconds.
constexpr double clipEvery = 1800;
constexpr double clipLength = 90;

double clipEnd(int i)
{
    static const double first
        = ReferenceDate::fromDateTime(QDateTime(QDate(2022, 1, 3), QTime(14, 30), QTimeZone::utc()));
    return first + i * clipEvery;
}

// A broker's history of 100,000 round trips over the clips' months: seven in ten closed while a
// clip was recording, the rest between clips. Gross P&L with commission, ids, UTC times.
const QByteArray& brokerFile()
{
    static const QByteArray bytes = [] {
        std::mt19937_64 random(3);
        std::normal_distribution<double> pnl(15, 120);
        QByteArray csv = "Trade ID,Symbol,Side,Qty,Entry Time,Exit Time,Gross PnL,Commission\n";
        csv.reserve(tradeCount * 96);
        for (int i = 0; i < tradeCount; ++i) {
            const int clip = int(random() % clipCount);
            const bool seen = random() % 10 < 7;
            const double exit = clipEnd(clip) - (seen ? double(random() % 85) : 300.0 + double(random() % 1200));
            const QDateTime at = ReferenceDate::toDateTime(exit).toUTC();
            csv += QStringLiteral("T%1,%2,%3,%4,%5,%6,%7,2.10\n")
                       .arg(i)
                       .arg(i % 3 ? QStringLiteral("ES") : QStringLiteral("NQ"))
                       .arg(i % 2 ? QStringLiteral("Buy") : QStringLiteral("Sell"))
                       .arg(1 + i % 4)
                       .arg(at.addSecs(-120).toString(Qt::ISODate), at.toString(Qt::ISODate))
                       .arg(pnl(random), 0, 'f', 2)
                       .toUtf8();
        }
        return csv;
    }();
    return bytes;
}

// 10,000 clip files (empty: their length is given, not read) in a folder without sidecars. In
// memory where there is a tmpfs: a sidecar is written with fsync, which on this machine's disk
// costs more than all the rest of an import; `VELOTAPE_BENCH_DISK=1` puts it on the disk instead.
class ClipFolder {
public:
    ClipFolder()
        : dir(qEnvironmentVariableIsSet("VELOTAPE_BENCH_DISK") || !QFileInfo(QStringLiteral("/dev/shm")).isWritable()
                ? QDir::tempPath() + QStringLiteral("/velotape-import-XXXXXX")
                : QStringLiteral("/dev/shm/velotape-import-XXXXXX"))
    {
        for (int i = 0; i < clipCount; ++i) {
            const QDateTime end = ReferenceDate::toDateTime(clipEnd(i));
            QFile clip(dir.filePath(QStringLiteral("Chart %1.mp4").arg(i, 5, 10, QLatin1Char('0'))));
            clip.open(QIODevice::WriteOnly);
            clip.setFileTime(end, QFileDevice::FileModificationTime);
        }
    }
    QString path() const { return dir.path(); }
private:
    QTemporaryDir dir;
};

double givenLength(const QUrl&)
{
    return clipLength;
}

void BM_ReadAndMatch100kTradesTo10kClips(benchmark::State& state)
{
    const QByteArray& csv = brokerFile();
    std::vector<TradeImport::Clip> clips;
    for (int i = 0; i < clipCount; ++i)
        clips.push_back({ QUrl::fromLocalFile(QStringLiteral("/c/%1.mp4").arg(i)),
            { clipEnd(i) - clipLength, clipEnd(i) }, {}, true });
    for (auto _ : state) {
        const TradeFileReader::Result file = TradeFileReader::read(csv);
        const TradeImport::Plan plan = TradeImport::plan(clips, {}, file.trades);
        if (file.trades.size() != tradeCount) state.SkipWithError("rows were skipped");
        benchmark::DoNotOptimize(plan.changes.data());
        state.counters["matched"] = plan.matched;
        state.counters["clips_changed"] = double(plan.changes.size());
    }
}

void BM_Import100kTradesInto10kClipFolder(benchmark::State& state)
{
    const QByteArray& csv = brokerFile();
    // A folder of its own for each run, all made before the first: a user's clips were saved over
    // weeks, not just after 10,000 other files were deleted, and ext4 makes new files slowly while it
    // skips over the inodes it freed in the last minutes.
    std::vector<std::unique_ptr<ClipFolder>> folders;
    for (int64_t i = 0; i < state.max_iterations; ++i)
        folders.push_back(std::make_unique<ClipFolder>());
    size_t run = 0;
    for (auto _ : state) {
        const ClipFolder& folder = *folders[run++];
        const TradeImporter::Report report = TradeImporter::importBytes(csv, folder.path(), givenLength);
        if (report.read != tradeCount || report.failedClips != 0) state.SkipWithError("the import failed");
        state.counters["matched"] = report.matched;
        state.counters["without_clip"] = report.withoutClip;
    }
}

void BM_ReimportChangesNothing(benchmark::State& state)
{
    const QByteArray& csv = brokerFile();
    const ClipFolder folder;
    TradeImporter::importBytes(csv, folder.path(), givenLength);
    for (auto _ : state) {
        const TradeImporter::Report report = TradeImporter::importBytes(csv, folder.path(), givenLength);
        if (report.alreadyImported != tradeCount) state.SkipWithError("the second import added trades");
    }
}

} // namespace

BENCHMARK(BM_ReadAndMatch100kTradesTo10kClips)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Import100kTradesInto10kClipFolder)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_ReimportChangesNothing)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

BENCHMARK_MAIN();
