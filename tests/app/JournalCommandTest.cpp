#include "app/AppSettings.h"
#include "app/cli/JournalCommand.h"
#include "journal/ClipMetaStore.h"
#include "journal/MonteCarloEngine.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

struct CommandRun {
    int status;
    QString out;
    QString err;
};

CommandRun run(const QStringList& args, AppSettings* settings = nullptr)
{
    CommandRun r {};
    QTextStream out(&r.out);
    QTextStream err(&r.err);
    r.status = runJournalCommand(args, out, err, settings);
    out.flush();
    err.flush();
    return r;
}

// The row of a caption in the text output, or an empty string.
QString rowOf(const QString& text, const QString& caption)
{
    for (const QString& line : text.split(u'\n')) {
        if (line.startsWith(QStringLiteral("  ") + caption + QStringLiteral("  "))) return line.simplified();
    }
    return {};
}

// A journal of four dollar trades (+10, -5, +5, +1 on four days), one win in R and one untagged clip.
class JournalFolder {
public:
    JournalFolder()
    {
        add("ES_2024-05-01_10-00.mp4", TradeOutcome::win, 10);
        add("ES_2024-05-02_10-00.mp4", TradeOutcome::loss, 5);
        add("ES_2024-05-03_10-00.mp4", TradeOutcome::win, 5);
        add("ES_2024-05-06_10-00.mp4", TradeOutcome::win, 1);
        add("NQ_2024-05-07_10-00.mp4", TradeOutcome::win, 2, PnLUnit::R);
        add("Safari, Mar 5, 14-07-33.mp4", TradeOutcome::unset, std::nullopt);
    }
    QString path() const { return dir.path(); }
    void add(const char* name, TradeOutcome outcome, std::optional<double> pnl, PnLUnit unit = PnLUnit::dollars)
    {
        const QString file = dir.filePath(QString::fromUtf8(name));
        QFile clip(file);
        clip.open(QIODevice::WriteOnly);
        ClipMeta meta;
        meta.outcome = outcome;
        meta.pnl = pnl;
        meta.unit = unit;
        ClipMetaStore::save(meta, QUrl::fromLocalFile(file));
    }

private:
    QTemporaryDir dir;
};

} // namespace

TEST(JournalCommand, BadInputSaysWhatIsWrongInOneLine)
{
    JournalFolder journal;
    const QString missing = journal.path() + QStringLiteral("/nope");
    for (const QStringList& args : { QStringList { "--folder", missing }, QStringList { "--unit", "euro" },
             QStringList { "--frobnicate" }, QStringList { "--horizon", "10" }, QStringList { "--folder" },
             QStringList { "--simulate", "--paths", "0" }, QStringList { "--simulate", "--seed", "-1" },
             QStringList { "--simulate", "--start", "nan" } }) {
        const CommandRun r = run(args);
        EXPECT_EQ(r.status, 2) << args.join(' ').toStdString();
        EXPECT_TRUE(r.out.isEmpty());
        EXPECT_EQ(r.err.count(u'\n'), 1) << r.err.toStdString();
        EXPECT_TRUE(r.err.startsWith(QStringLiteral("velotape journal: ")));
    }
    EXPECT_EQ(run({ "--folder", missing }).err, QStringLiteral("velotape journal: folder not found: %1\n").arg(missing));
}

TEST(JournalCommand, PrintsEveryFigureWithItsCaption)
{
    JournalFolder journal;
    const CommandRun r = run({ "--folder", journal.path() });
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(rowOf(r.out, "Net P&L"), QStringLiteral("Net P&L $11.00 Total profit minus losses"));
    // Wins of all units count: four wins, one loss.
    EXPECT_EQ(rowOf(r.out, "Win Rate"), QStringLiteral("Win Rate 80.0% Wins ÷ (wins + losses)"));
    EXPECT_EQ(rowOf(r.out, "Profit Factor"), QStringLiteral("Profit Factor 3.20 Gross wins ÷ gross losses"));
    EXPECT_EQ(rowOf(r.out, "Max Drawdown"), QStringLiteral("Max Drawdown -$5.00 Worst peak-to-trough fall"));
    EXPECT_EQ(rowOf(r.out, "Max DD %"), QStringLiteral("Max DD % 50.0% Same drawdown as a fraction of the peak."));
    EXPECT_EQ(rowOf(r.out, "Current DD"), QStringLiteral("Current DD $0.00 How far you are below your all-time peak."));
    EXPECT_EQ(rowOf(r.out, "Recovery"), QStringLiteral("Recovery 1 trades Trades to climb back to the prior peak."));
    EXPECT_EQ(rowOf(r.out, "Current Streak"), QStringLiteral("Current Streak 3W Best: 3W · Worst: 1L"));
    EXPECT_EQ(rowOf(r.out, "Expectancy"), QStringLiteral("Expectancy $2.75 Average $ per trade"));
    EXPECT_EQ(rowOf(r.out, "Worst day"), QStringLiteral("Worst day -$5.00"));
    for (const char* caption : { "Avg. Win/Loss", "Sharpe (ann.)", "Sortino (ann.)", "Max DD", "Kelly %",
             "Compass Score", "Longest win", "Longest loss", "Best trade", "Worst trade", "Best day" }) {
        EXPECT_FALSE(rowOf(r.out, caption).isEmpty()) << caption;
    }

    // In points nothing has an amount: absent figures show "—", the compass still counts tags.
    const CommandRun points = run({ "--folder", journal.path(), "--unit", "points" });
    EXPECT_EQ(rowOf(points.out, "Net P&L"), QStringLiteral("Net P&L 0.00 pts Total profit minus losses"));
    EXPECT_EQ(rowOf(points.out, "Expectancy"), QStringLiteral("Expectancy — Average $ per trade"));
    EXPECT_EQ(rowOf(points.out, "Recovery"), QStringLiteral("Recovery — Trades to climb back to the prior peak."));
    EXPECT_EQ(rowOf(points.out, "Win Rate"), rowOf(r.out, "Win Rate"));
}

TEST(JournalCommand, AmountsBeyondAnyAccountCountAsNoAmount)
{
    JournalFolder journal;
    journal.add("ES_2024-05-08_10-00.mp4", TradeOutcome::win, 1e308);
    journal.add("ES_2024-05-09_10-00.mp4", TradeOutcome::win, 1e308);
    const CommandRun text = run({ "--folder", journal.path() });
    EXPECT_EQ(rowOf(text.out, "Net P&L"), QStringLiteral("Net P&L $11.00 Total profit minus losses"));
    EXPECT_FALSE(text.out.contains(QStringLiteral("inf")));
    EXPECT_FALSE(text.out.contains(QRegularExpression(QStringLiteral("\\d{16}")))) << text.out.toStdString();
    const CommandRun json = run({ "--folder", journal.path(), "--json" });
    EXPECT_FALSE(json.out.contains(QStringLiteral("null"))) << json.out.toStdString();
}

TEST(JournalCommand, JsonHoldsTheSameFiguresUnrounded)
{
    JournalFolder journal;
    const CommandRun r = run({ "--folder", journal.path(), "--json" });
    ASSERT_EQ(r.status, 0);
    const QJsonObject json = QJsonDocument::fromJson(r.out.toUtf8()).object();
    for (const char* key : { "netPnL", "winRate", "profitFactor", "avgWinLossRatio", "expectancy", "sharpe", "sortino",
             "maxDrawdown", "maxDrawdownPct", "currentDrawdown", "drawdownRecoveryTrades", "kelly", "streaks",
             "compassScore", "bestTrade", "worstTrade", "bestDay", "worstDay", "tradeCount", "taggedCount" }) {
        EXPECT_TRUE(json.contains(QString::fromLatin1(key))) << key;
    }
    EXPECT_EQ(json["netPnL"].toDouble(), 11);
    EXPECT_EQ(json["winRate"].toDouble(), 0.8);
    EXPECT_EQ(json["avgWinLossRatio"].toDouble(), (16.0 / 3) / 5); // unrounded
    EXPECT_EQ(json["drawdownRecoveryTrades"].toInt(), 1);
    EXPECT_EQ(json["streaks"].toObject()["current"].toInt(), 3);
    EXPECT_EQ(json["streaks"].toObject()["longestLoss"].toInt(), 1);
    EXPECT_EQ(json["tradeCount"].toInt(), 4);
    EXPECT_EQ(json["taggedCount"].toInt(), 5);

    const QJsonObject points
        = QJsonDocument::fromJson(run({ "--folder", journal.path(), "--json", "--unit", "points" }).out.toUtf8()).object();
    EXPECT_TRUE(points["expectancy"].isNull());
    EXPECT_TRUE(points["drawdownRecoveryTrades"].isNull());
    EXPECT_EQ(points["maxDrawdown"].toDouble(), 0);
}

TEST(JournalCommand, SimulatesTheJournalsTradesAsTheScreenWould)
{
    JournalFolder journal;
    // Four dollar trades are too few.
    const CommandRun few = run({ "--folder", journal.path(), "--simulate" });
    EXPECT_EQ(few.status, 0);
    EXPECT_TRUE(few.out.startsWith(QStringLiteral("Need at least 5 P&L-tagged trades to run a simulation.\n")));

    journal.add("ES_2024-05-08_10-00.mp4", TradeOutcome::loss, 2.5);
    const CommandRun r = run({ "--folder", journal.path(), "--simulate", "--json", "--horizon", "20", "--paths", "400",
        "--start", "100", "--ruin", "-5", "--seed", "7" });
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    const QJsonObject json = QJsonDocument::fromJson(r.out.toUtf8()).object();
    // The trades in time order and the ruin line as a level below the start.
    const auto expected
        = MonteCarloEngine::simulate({ { 10, -5, 5, 1, -2.5 }, 20, 400, 100, 95.0, 7 });
    ASSERT_EQ(json["bands"].toArray().size(), 21);
    const QJsonObject last = json["bands"].toArray().last().toObject();
    EXPECT_EQ(last["p05"].toDouble(), expected->bands.back().p05);
    EXPECT_EQ(last["p95"].toDouble(), expected->bands.back().p95);
    EXPECT_EQ(json["ruinProbability"].toDouble(), *expected->ruinProbability);
    EXPECT_EQ(json["profitProbability"].toDouble(), expected->profitProbability);
    EXPECT_EQ(json["yRange"].toObject()["min"].toDouble(), expected->yRange.min);

    // The text form: the screen's cards, the 95th percentile in place of ruin when ruin is off.
    const CommandRun text = run({ "--folder", journal.path(), "--simulate" });
    const auto defaults = MonteCarloEngine::simulate({ { 10, -5, 5, 1, -2.5 }, 50, 2000, 0, std::nullopt, 1 });
    EXPECT_EQ(rowOf(text.out, "p50").simplified(),
        QStringLiteral("p50 $%1").arg(defaults->bands.back().p50, 0, 'f', 2));
    EXPECT_FALSE(rowOf(text.out, "95%-ile final").isEmpty());
    EXPECT_TRUE(rowOf(text.out, "P(ruin)").isEmpty());
}

TEST(JournalCommand, WithoutAFolderReadsTheSaveFolderFromTheSettings)
{
    JournalFolder journal;
    QTemporaryDir config;
    auto store = std::make_unique<QSettings>(config.filePath("Velotape.conf"), QSettings::IniFormat);
    store->setValue("vt2.savePath", journal.path());
    AppSettings settings(std::move(store));
    const CommandRun r = run({ "--json" }, &settings);
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(QJsonDocument::fromJson(r.out.toUtf8()).object()["taggedCount"].toInt(), 5);
}
