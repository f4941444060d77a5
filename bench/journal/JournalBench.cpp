#include "journal/ClipJournalStore.h"
#include "journal/ClipMetaStore.h"
#include "journal/JournalMetrics.h"
#include "journal/MonteCarloEngine.h"
#include "journal/PlainMonteCarlo.h"
#include "journal/ReferenceDate.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <random>

namespace {

constexpr int clipCount = 10'000;

// 10,000 clips, each with a sidecar, named as users name them (ticker and minute) so that no
// modification time is asked for: the journal of a very busy trader. Made once per run.
QString journalFolder()
{
    static QTemporaryDir dir;
    static const bool made = [] {
        std::mt19937_64 random(42);
        const QDateTime first(QDate(2022, 1, 3), QTime(9, 30));
        for (int i = 0; i < clipCount; ++i) {
            const QDateTime at = first.addSecs(static_cast<qint64>(i) * 1800);
            const QString name = QStringLiteral("ES_%1.mp4").arg(at.toString(QStringLiteral("yyyy-MM-dd_HH-mm")));
            QFile clip(dir.filePath(name));
            clip.open(QIODevice::WriteOnly);
            ClipMeta meta;
            meta.outcome = random() % 2 ? TradeOutcome::win : TradeOutcome::loss;
            meta.pnl = static_cast<double>(random() % 50'000) / 100.0;
            meta.notes = QStringLiteral("Entered on the pullback; scaled out at the prior high.");
            ClipMetaStore::save(meta, QUrl::fromLocalFile(dir.filePath(name)));
        }
        return true;
    }();
    (void)made;
    return dir.path();
}

QList<ClipEntry> tradeEntries(int count)
{
    // About twenty trades a day over 500 days, newest first as the store holds them.
    std::mt19937_64 random(7);
    std::normal_distribution<double> pnl(15, 120);
    const double start = ReferenceDate::fromDateTime(QDateTime(QDate(2022, 1, 3), QTime(9, 30)));
    QList<ClipEntry> clips;
    for (int i = count - 1; i >= 0; --i) {
        ClipEntry entry;
        entry.url = QUrl::fromLocalFile(QStringLiteral("/journal/%1.mp4").arg(i));
        entry.parsedDate = start + (i / 20) * 86400.0 + (i % 20) * 1200.0;
        entry.meta.pnl = pnl(random);
        entry.meta.outcome = *entry.meta.pnl < 0 ? TradeOutcome::loss : TradeOutcome::win;
        clips.push_back(entry);
    }
    return clips;
}

MonteCarloEngine::Config screenLimits()
{
    std::mt19937_64 random(11);
    std::normal_distribution<double> pnl(15, 120);
    std::vector<double> trades(200);
    for (double& t : trades)
        t = pnl(random);
    return { trades, 500, 10'000, 0, -1000.0, 1 };
}

void BM_RescanTenThousandClips(benchmark::State& state)
{
    const QString folder = journalFolder();
    for (auto _ : state) {
        const QList<ClipEntry> clips = ClipJournalStore::scanFolder(folder);
        if (clips.size() != clipCount) state.SkipWithError("the folder lost clips");
        benchmark::DoNotOptimize(clips.data());
    }
}
BENCHMARK(BM_RescanTenThousandClips)->Unit(benchmark::kMillisecond);

void BM_AllMetricsTenThousandTrades(benchmark::State& state)
{
    const QList<ClipEntry> clips = tradeEntries(clipCount);
    for (auto _ : state) {
        // What the Overview and Stats screens read, each member on a fresh snapshot as the store does.
        const JournalMetrics m(clips, PnLUnit::dollars);
        benchmark::DoNotOptimize(m.netPnL());
        benchmark::DoNotOptimize(m.winRate());
        benchmark::DoNotOptimize(m.profitFactor());
        benchmark::DoNotOptimize(m.avgWinLossRatio());
        benchmark::DoNotOptimize(m.expectancy());
        benchmark::DoNotOptimize(m.sharpe());
        benchmark::DoNotOptimize(m.sortino());
        benchmark::DoNotOptimize(m.maxDrawdown());
        benchmark::DoNotOptimize(m.maxDrawdownPct());
        benchmark::DoNotOptimize(m.currentDrawdown());
        benchmark::DoNotOptimize(m.drawdownRecoveryTrades());
        benchmark::DoNotOptimize(m.kelly());
        benchmark::DoNotOptimize(m.streaks());
        benchmark::DoNotOptimize(m.compassScore());
        benchmark::DoNotOptimize(m.bestTrade());
        benchmark::DoNotOptimize(m.worstTrade());
        benchmark::DoNotOptimize(m.bestDay());
        benchmark::DoNotOptimize(m.worstDay());
        benchmark::DoNotOptimize(m.cumulative().data());
        benchmark::DoNotOptimize(m.daily().data());
        benchmark::DoNotOptimize(m.dailyCount().size());
    }
}
BENCHMARK(BM_AllMetricsTenThousandTrades)->Unit(benchmark::kMillisecond);

void BM_MonteCarloAtTheScreensLimits(benchmark::State& state)
{
    const MonteCarloEngine::Config config = screenLimits();
    for (auto _ : state)
        benchmark::DoNotOptimize(MonteCarloEngine::simulate(config));
}
BENCHMARK(BM_MonteCarloAtTheScreensLimits)->Unit(benchmark::kMillisecond)->UseRealTime();

// The largest run simulate() makes: the bound that keeps one run to about a second.
void BM_MonteCarloAtTheRunLimit(benchmark::State& state)
{
    MonteCarloEngine::Config config = screenLimits();
    config.horizon = 5'000;
    config.paths = MonteCarloEngine::maxDraws / config.horizon;
    for (auto _ : state) {
        const auto result = MonteCarloEngine::simulate(config);
        if (!result) state.SkipWithError("the engine refused a run at its own limit");
    }
}
BENCHMARK(BM_MonteCarloAtTheRunLimit)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_MonteCarloStraightforward(benchmark::State& state)
{
    const MonteCarloEngine::Config config = screenLimits();
    for (auto _ : state)
        benchmark::DoNotOptimize(PlainMonteCarlo::simulate(config));
}
BENCHMARK(BM_MonteCarloStraightforward)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
