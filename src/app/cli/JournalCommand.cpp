#include "app/cli/JournalCommand.h"

#include "app/AppSettings.h"
#include "journal/ClipJournalStore.h"
#include "journal/FormatPnL.h"
#include "journal/JournalExport.h"
#include "journal/JournalMetrics.h"
#include "journal/MonteCarloEngine.h"
#include "journal/TradeImporter.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <cmath>
#include <functional>
#include <memory>
#include <optional>

namespace {

const char* const usageText = "usage: velotape journal [--folder DIR] [--unit dollars|R|points|ticks] [--json]\n"
                              "       velotape journal --simulate [--folder DIR] [--unit U] [--horizon N] [--paths N]\n"
                              "                        [--start X] [--ruin OFFSET] [--seed N] [--json]\n"
                              "       velotape journal --import FILE.csv [--folder DIR]\n"
                              "       velotape journal --export FILE.csv [--folder DIR]\n"
                              "  --symbol S and --tag T narrow the statistics to one instrument or setup tag.\n";

const QString dash = QStringLiteral("—");

struct Options {
    std::optional<QString> folder;
    PnLUnit unit = PnLUnit::dollars;
    bool json = false;
    bool simulate = false;
    bool help = false;
    // The Simulations screen's defaults.
    int64_t horizon = 50;
    int64_t paths = 2000;
    double start = 0;
    std::optional<double> ruinOffset;
    uint64_t seed = 1;
    std::optional<QString> importFile;
    std::optional<QString> exportFile;
    JournalFilter filter;
};

// What was wrong with the arguments, in words.
struct ParseResult {
    std::optional<Options> options;
    QString error;
};

std::optional<int64_t> wholeNumber(const QString& text, int64_t min, int64_t max)
{
    bool ok = false;
    const qlonglong value = text.toLongLong(&ok, 10);
    if (!ok || value < min || value > max) return std::nullopt;
    return value;
}

std::optional<double> finiteNumber(const QString& text)
{
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::optional<uint64_t> seedNumber(const QString& text)
{
    bool ok = false;
    const bool hex = text.startsWith(QLatin1StringView("0x"), Qt::CaseInsensitive);
    const qulonglong value = hex ? text.mid(2).toULongLong(&ok, 16) : text.toULongLong(&ok, 10);
    if (!ok) return std::nullopt;
    return value;
}

ParseResult parse(const QStringList& args)
{
    Options o;
    bool simulationOption = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        QString name = args[i];
        std::optional<QString> inlineValue;
        if (const qsizetype eq = name.indexOf(u'='); name.startsWith(QLatin1StringView("--")) && eq > 0) {
            inlineValue = name.mid(eq + 1);
            name = name.left(eq);
        }
        const auto value = [&]() -> std::optional<QString> {
            if (inlineValue) return inlineValue;
            if (i + 1 < args.size()) return args[++i];
            return std::nullopt;
        };
        const auto bad = [&](const QString& what) { return ParseResult { std::nullopt, what }; };
        const auto missing = [&] { return bad(QStringLiteral("%1 needs a value").arg(name)); };

        if (name == QLatin1StringView("--help") || name == QLatin1StringView("-h")) {
            o.help = true;
        } else if (name == QLatin1StringView("--json")) {
            o.json = true;
        } else if (name == QLatin1StringView("--simulate")) {
            o.simulate = true;
        } else if (name == QLatin1StringView("--folder")) {
            const auto v = value();
            if (!v || v->isEmpty()) return missing();
            o.folder = *v;
        } else if (name == QLatin1StringView("--import") || name == QLatin1StringView("--export")) {
            const auto v = value();
            if (!v || v->isEmpty()) return missing();
            (name == QLatin1StringView("--import") ? o.importFile : o.exportFile) = *v;
        } else if (name == QLatin1StringView("--symbol") || name == QLatin1StringView("--tag")) {
            const auto v = value();
            if (!v || v->trimmed().isEmpty()) return missing();
            (name == QLatin1StringView("--symbol") ? o.filter.symbol : o.filter.tag) = v->trimmed();
        } else if (name == QLatin1StringView("--unit")) {
            const auto v = value();
            if (!v) return missing();
            std::optional<PnLUnit> unit;
            for (PnLUnit u : allPnLUnits) {
                if (v->compare(rawValue(u), Qt::CaseInsensitive) == 0) unit = u;
            }
            if (!unit) return bad(QStringLiteral("unknown unit \"%1\" (use dollars, R, points or ticks)").arg(*v));
            o.unit = *unit;
        } else if (name == QLatin1StringView("--horizon")) {
            const auto v = value();
            if (!v) return missing();
            const auto n = wholeNumber(*v, 1, 100'000);
            if (!n) return bad(QStringLiteral("--horizon must be a whole number from 1 to 100000, not \"%1\"").arg(*v));
            o.horizon = *n;
            simulationOption = true;
        } else if (name == QLatin1StringView("--paths")) {
            const auto v = value();
            if (!v) return missing();
            const auto n = wholeNumber(*v, 1, 1'000'000);
            if (!n) return bad(QStringLiteral("--paths must be a whole number from 1 to 1000000, not \"%1\"").arg(*v));
            o.paths = *n;
            simulationOption = true;
        } else if (name == QLatin1StringView("--start") || name == QLatin1StringView("--ruin")) {
            const auto v = value();
            if (!v) return missing();
            const auto x = finiteNumber(*v);
            if (!x) return bad(QStringLiteral("%1 must be a number, not \"%2\"").arg(name, *v));
            if (name == QLatin1StringView("--start")) {
                o.start = *x;
            } else {
                o.ruinOffset = *x;
            }
            simulationOption = true;
        } else if (name == QLatin1StringView("--seed")) {
            const auto v = value();
            if (!v) return missing();
            const auto seed = seedNumber(*v);
            if (!seed) return bad(QStringLiteral("--seed must be a whole number from 0 to 2^64-1, not \"%1\"").arg(*v));
            o.seed = *seed;
            simulationOption = true;
        } else {
            return bad(QStringLiteral("unknown argument \"%1\"").arg(args[i]));
        }
    }
    if (o.importFile && o.exportFile) return { std::nullopt, QStringLiteral("--import and --export go one at a time") };
    if ((o.importFile || o.exportFile) && (o.simulate || o.json || !o.filter.isEmpty())) {
        return { std::nullopt, QStringLiteral("--import and --export take only --folder") };
    }
    if (simulationOption && !o.simulate) {
        return { std::nullopt, QStringLiteral("--horizon, --paths, --start, --ruin and --seed go with --simulate") };
    }
    return { o, {} };
}

// Aligned rows of caption, value and explanation.
class Table {
public:
    explicit Table(QTextStream& out)
        : out(out)
    {
    }
    void heading(const QString& text) { out << '\n' << text << '\n'; }
    void row(const QString& label, const QString& value, const QString& sub = {})
    {
        out << "  " << label.leftJustified(16) << ' ';
        if (sub.isEmpty()) {
            out << value << '\n';
        } else {
            out << value.leftJustified(14) << ' ' << sub << '\n';
        }
    }

private:
    QTextStream& out;
};

QString orDash(const std::optional<double>& value, const std::function<QString(double)>& format)
{
    return value ? format(*value) : dash;
}

QString streakText(int current)
{
    if (current == 0) return dash;
    return current > 0 ? QStringLiteral("%1W").arg(current) : QStringLiteral("%1L").arg(-current);
}

QJsonValue jsonOf(const std::optional<double>& value)
{
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
}

QJsonValue jsonOf(const std::optional<int>& value)
{
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
}

void printStats(const QString& folder, const ClipJournalStore& store, QTextStream& out)
{
    const JournalMetrics m = store.metrics();
    const PnLUnit unit = store.displayUnit();
    const auto money = [unit](double v) { return formatPnL(v, unit, 2); };
    const auto ratio = [](double v) { return formatFixed(v, 2); };
    const auto percent = [](double v) { return formatFixed(v * 100, 1) + QLatin1Char('%'); };
    const JournalMetrics::Streaks streaks = m.streaks();
    const auto recovery = m.drawdownRecoveryTrades();

    out << "Journal of " << folder << ": " << store.clips().size() << " clips, " << store.tradesWithoutClip().size()
        << " trades without a clip, " << m.taggedCount() << " tagged, " << m.tradeCount() << " with P&L in "
        << shortLabel(unit) << '\n';
    if (const JournalFilter& f = store.filter(); !f.isEmpty()) {
        out << "Only" << (f.symbol ? QStringLiteral(" symbol ") + *f.symbol : QString())
            << (f.tag ? QStringLiteral(" tag ") + *f.tag : QString()) << '\n';
    }
    out << "View P&L in: " << menuLabel(unit) << ". Only clips tagged in " << shortLabel(unit)
        << " count toward these stats.\n";

    Table t(out);
    t.heading(QStringLiteral("Overview"));
    t.row(QStringLiteral("Net P&L"), money(m.netPnL()), QStringLiteral("Total profit minus losses"));
    t.row(QStringLiteral("Win Rate"), orDash(m.winRate(), percent), QStringLiteral("Wins ÷ (wins + losses)"));
    t.row(
        QStringLiteral("Profit Factor"), orDash(m.profitFactor(), ratio), QStringLiteral("Gross wins ÷ gross losses"));
    t.row(QStringLiteral("Avg. Win/Loss"), orDash(m.avgWinLossRatio(), ratio),
        QStringLiteral("Average winner ÷ average loser"));
    t.row(QStringLiteral("Sharpe (ann.)"), orDash(m.sharpe(), ratio), QStringLiteral("Risk-adjusted return"));
    t.row(QStringLiteral("Max Drawdown"), money(-m.maxDrawdown()), QStringLiteral("Worst peak-to-trough fall"));
    t.row(QStringLiteral("Expectancy"), orDash(m.expectancy(), money), QStringLiteral("Average $ per trade"));
    t.row(QStringLiteral("Current Streak"), streakText(streaks.current),
        QStringLiteral("Best: %1W · Worst: %2L").arg(streaks.longestWin).arg(streaks.longestLoss));
    const auto compass = m.compassScore();
    t.row(QStringLiteral("Compass Score"), compass ? QString::number(*compass) : dash,
        compass ? QStringLiteral("Win rate, profit factor, sample size, consistency.")
                : QStringLiteral("Tag at least 5 clips to see your score."));

    t.heading(QStringLiteral("Quant snapshot — Risk-adjusted return and capital efficiency"));
    t.row(QStringLiteral("Sharpe (ann.)"), orDash(m.sharpe(), ratio),
        QStringLiteral("Higher = smoother equity for the return."));
    t.row(QStringLiteral("Sortino (ann.)"), orDash(m.sortino(), ratio),
        QStringLiteral("Like Sharpe, only penalizes red days."));
    t.row(
        QStringLiteral("Max DD"), money(-m.maxDrawdown()), QStringLiteral("Worst peak-to-trough fall in your equity."));
    t.row(QStringLiteral("Max DD %"), orDash(m.maxDrawdownPct(), percent),
        QStringLiteral("Same drawdown as a fraction of the peak."));
    t.row(QStringLiteral("Current DD"), money(-m.currentDrawdown()),
        QStringLiteral("How far you are below your all-time peak."));
    t.row(QStringLiteral("Recovery"), recovery ? QStringLiteral("%1 trades").arg(*recovery) : dash,
        QStringLiteral("Trades to climb back to the prior peak."));
    t.row(QStringLiteral("Expectancy"), orDash(m.expectancy(), money),
        QStringLiteral("Average $ per trade — your real edge."));
    t.row(QStringLiteral("Kelly %"), orDash(m.kelly(), percent),
        QStringLiteral("Bet size that maximizes long-run growth. Use ¼ of this in real life."));

    t.heading(QStringLiteral("Streaks — Consecutive wins / losses"));
    t.row(QStringLiteral("Current"), streakText(streaks.current));
    t.row(QStringLiteral("Longest win"), QStringLiteral("%1W").arg(streaks.longestWin));
    t.row(QStringLiteral("Longest loss"), QStringLiteral("%1L").arg(streaks.longestLoss));

    t.heading(QStringLiteral("Best vs. worst — Peaks and pits"));
    t.row(QStringLiteral("Best trade"), orDash(m.bestTrade(), money));
    t.row(QStringLiteral("Worst trade"), orDash(m.worstTrade(), money));
    t.row(QStringLiteral("Best day"), orDash(m.bestDay(), money));
    t.row(QStringLiteral("Worst day"), orDash(m.worstDay(), money));
}

QJsonObject statsJson(const QString& folder, const ClipJournalStore& store)
{
    const JournalMetrics m = store.metrics();
    const JournalMetrics::Streaks streaks = m.streaks();
    QJsonObject o;
    o.insert(QLatin1StringView("folder"), folder);
    o.insert(QLatin1StringView("unit"), rawValue(store.displayUnit()));
    o.insert(QLatin1StringView("netPnL"), m.netPnL());
    o.insert(QLatin1StringView("winRate"), jsonOf(m.winRate()));
    o.insert(QLatin1StringView("profitFactor"), jsonOf(m.profitFactor()));
    o.insert(QLatin1StringView("avgWinLossRatio"), jsonOf(m.avgWinLossRatio()));
    o.insert(QLatin1StringView("expectancy"), jsonOf(m.expectancy()));
    o.insert(QLatin1StringView("sharpe"), jsonOf(m.sharpe()));
    o.insert(QLatin1StringView("sortino"), jsonOf(m.sortino()));
    o.insert(QLatin1StringView("maxDrawdown"), m.maxDrawdown());
    o.insert(QLatin1StringView("maxDrawdownPct"), jsonOf(m.maxDrawdownPct()));
    o.insert(QLatin1StringView("currentDrawdown"), m.currentDrawdown());
    o.insert(QLatin1StringView("drawdownRecoveryTrades"), jsonOf(m.drawdownRecoveryTrades()));
    o.insert(QLatin1StringView("kelly"), jsonOf(m.kelly()));
    o.insert(QLatin1StringView("streaks"),
        QJsonObject { { QStringLiteral("current"), streaks.current },
            { QStringLiteral("longestWin"), streaks.longestWin },
            { QStringLiteral("longestLoss"), streaks.longestLoss } });
    o.insert(QLatin1StringView("compassScore"), jsonOf(m.compassScore()));
    o.insert(QLatin1StringView("bestTrade"), jsonOf(m.bestTrade()));
    o.insert(QLatin1StringView("worstTrade"), jsonOf(m.worstTrade()));
    o.insert(QLatin1StringView("bestDay"), jsonOf(m.bestDay()));
    o.insert(QLatin1StringView("worstDay"), jsonOf(m.worstDay()));
    o.insert(QLatin1StringView("tradeCount"), m.tradeCount());
    o.insert(QLatin1StringView("taggedCount"), m.taggedCount());
    return o;
}

int simulate(const Options& o, const ClipJournalStore& store, QTextStream& out)
{
    const std::vector<double> trades = store.metrics().tradePnL();
    const PnLUnit unit = store.displayUnit();
    // The screen's minimum: fewer trades say too little to resample from.
    std::optional<MonteCarloEngine::Result> result;
    std::optional<double> ruinLevel;
    if (o.ruinOffset) ruinLevel = o.start + *o.ruinOffset;
    if (trades.size() >= 5) {
        result = MonteCarloEngine::simulate({ trades, o.horizon, o.paths, o.start, ruinLevel, o.seed });
    }

    if (o.json) {
        QJsonObject json;
        json.insert(QLatin1StringView("tradeCount"), static_cast<qint64>(trades.size()));
        json.insert(QLatin1StringView("horizon"), static_cast<qint64>(o.horizon));
        json.insert(QLatin1StringView("paths"), static_cast<qint64>(o.paths));
        json.insert(QLatin1StringView("startingEquity"), o.start);
        json.insert(QLatin1StringView("ruinThreshold"), jsonOf(ruinLevel));
        json.insert(
            QLatin1StringView("profitProbability"), result ? QJsonValue(result->profitProbability) : QJsonValue());
        json.insert(QLatin1StringView("ruinProbability"), result ? jsonOf(result->ruinProbability) : QJsonValue());
        json.insert(QLatin1StringView("yRange"),
            result ? QJsonValue(QJsonObject {
                { QStringLiteral("min"), result->yRange.min }, { QStringLiteral("max"), result->yRange.max } })
                   : QJsonValue());
        QJsonArray bands;
        if (result) {
            for (const auto& b : result->bands) {
                bands.append(QJsonObject { { QStringLiteral("p05"), b.p05 }, { QStringLiteral("p25"), b.p25 },
                    { QStringLiteral("p50"), b.p50 }, { QStringLiteral("p75"), b.p75 },
                    { QStringLiteral("p95"), b.p95 } });
            }
        }
        json.insert(QLatin1StringView("bands"), result ? QJsonValue(bands) : QJsonValue());
        out << QJsonDocument(json).toJson(QJsonDocument::Indented);
        return 0;
    }

    if (!result) {
        out << "Need at least 5 P&L-tagged trades to run a simulation.\n"
            << "Tag clips with W/L + P&L, then come back here.\n";
        return 0;
    }
    const auto money0 = [unit](double v) { return formatPnL(v, unit, 0); };
    out << "Monte Carlo controls: Bootstrap from " << trades.size() << " trades\n";
    Table t(out);
    t.row(QStringLiteral("Trades ahead"), QString::number(o.horizon));
    t.row(QStringLiteral("Paths"), QString::number(o.paths));
    t.row(QStringLiteral("Starting equity"), money0(o.start));
    t.row(QStringLiteral("Ruin threshold"), o.ruinOffset ? money0(*o.ruinOffset) : QStringLiteral("off"));
    t.row(QStringLiteral("Seed"), QString::number(o.seed));

    t.heading(QStringLiteral("Equity fan"));
    t.row(QStringLiteral("P(profit)"), formatFixed(result->profitProbability * 100, 0) + QLatin1Char('%'),
        QStringLiteral("Chance you finish above the start."));
    const MonteCarloEngine::Result::Bands& last = result->bands.back();
    t.row(QStringLiteral("Median final"), money0(last.p50), QStringLiteral("50% of paths land above this."));
    t.row(QStringLiteral("5%-ile final"), money0(last.p05), QStringLiteral("Worst 5% bottom — your downside."));
    if (result->ruinProbability) {
        t.row(QStringLiteral("P(ruin)"), formatFixed(*result->ruinProbability * 100, 1) + QLatin1Char('%'),
            QStringLiteral("Paths that hit the ruin line."));
    } else {
        t.row(QStringLiteral("95%-ile final"), money0(last.p95), QStringLiteral("Best 5% top — your blue-sky."));
    }

    t.heading(QStringLiteral("Bands after trade %1").arg(o.horizon));
    const auto money = [unit](double v) { return formatPnL(v, unit, 2); };
    t.row(QStringLiteral("p05"), money(last.p05));
    t.row(QStringLiteral("p25"), money(last.p25));
    t.row(QStringLiteral("p50"), money(last.p50));
    t.row(QStringLiteral("p75"), money(last.p75));
    t.row(QStringLiteral("p95"), money(last.p95));
    return 0;
}

int importTrades(const QString& file, const QString& folder, QTextStream& out, QTextStream& err)
{
    const TradeImporter::Report report = TradeImporter::importFile(file, folder);
    if (!report.imported) {
        err << "velotape journal: " << QFileInfo(file).fileName() << ": " << report.error << '\n';
        return 2;
    }
    out << report.summary << '\n';
    for (const QString& note : report.notes + report.skippedRows)
        out << "  " << note << '\n';
    return 0;
}

int exportJournal(const QString& file, const ClipJournalStore& store, QTextStream& out, QTextStream& err)
{
    const QByteArray csv = JournalExport::csv(store.clips(), store.tradesWithoutClip());
    QSaveFile target(file);
    if (!target.open(QIODevice::WriteOnly) || target.write(csv) != csv.size() || !target.commit()) {
        err << "velotape journal: couldn't write " << file << ": " << target.errorString() << '\n';
        return 2;
    }
    out << "Exported " << (csv.count('\n') - 1) << " rows to " << file << '\n';
    return 0;
}

} // namespace

int runJournalCommand(const QStringList& args, QTextStream& out, QTextStream& err, AppSettings* settings)
{
    const ParseResult parsed = parse(args);
    if (!parsed.options) {
        err << "velotape journal: " << parsed.error << " (see velotape journal --help)\n";
        return 2;
    }
    const Options& o = *parsed.options;
    if (o.help) {
        out << usageText;
        return 0;
    }

    QString folder;
    if (o.folder) {
        folder = *o.folder;
    } else {
        std::unique_ptr<AppSettings> own;
        if (!settings) settings = (own = std::make_unique<AppSettings>()).get();
        folder = settings->saveFolderPath();
        // The stored folder was refused and the default stands in: say so, and read the default.
        if (const std::optional<QString> refused = settings->refusedSaveFolder())
            err << "velotape journal: " << *refused << '\n';
    }
    const QFileInfo info(folder);
    if (!info.exists()) {
        err << "velotape journal: folder not found: " << folder << '\n';
        return 2;
    }
    if (!info.isDir()) {
        err << "velotape journal: not a folder: " << folder << '\n';
        return 2;
    }

    if (o.importFile) return importTrades(*o.importFile, info.absoluteFilePath(), out, err);

    ClipJournalStore store(QUrl::fromLocalFile(info.absoluteFilePath()));
    store.setDisplayUnit(o.unit);
    store.setFilter(o.filter);
    store.rescan();
    if (o.exportFile) return exportJournal(*o.exportFile, store, out, err);

    if (o.simulate) return simulate(o, store, out);
    if (o.json) {
        out << QJsonDocument(statsJson(info.absoluteFilePath(), store)).toJson(QJsonDocument::Indented);
    } else {
        printStats(info.absoluteFilePath(), store, out);
    }
    return 0;
}
