#include "app/cli/JournalCommand.h"

#include "app/AppSettings.h"
#include "journal/ClipMetaStore.h"
#include "journal/JournalTradesFile.h"
#include "journal/MonteCarloEngine.h"
#include "journal/ReferenceDate.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

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
    for (const QStringList& args :
        { QStringList { "--folder", missing }, QStringList { "--unit", "euro" }, QStringList { "--frobnicate" },
            QStringList { "--horizon", "10" }, QStringList { "--folder" }, QStringList { "--simulate", "--paths", "0" },
            QStringList { "--simulate", "--seed", "-1" }, QStringList { "--simulate", "--start", "nan" } }) {
        const CommandRun r = run(args);
        EXPECT_EQ(r.status, 2) << args.join(' ').toStdString();
        EXPECT_TRUE(r.out.isEmpty());
        EXPECT_EQ(r.err.count(u'\n'), 1) << r.err.toStdString();
        EXPECT_TRUE(r.err.startsWith(QStringLiteral("velotape journal: ")));
    }
    EXPECT_EQ(
        run({ "--folder", missing }).err, QStringLiteral("velotape journal: folder not found: %1\n").arg(missing));
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
        = QJsonDocument::fromJson(run({ "--folder", journal.path(), "--json", "--unit", "points" }).out.toUtf8())
              .object();
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
    const auto expected = MonteCarloEngine::simulate({ { 10, -5, 5, 1, -2.5 }, 20, 400, 100, 95.0, 7 });
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
    EXPECT_EQ(
        rowOf(text.out, "p50").simplified(), QStringLiteral("p50 $%1").arg(defaults->bands.back().p50, 0, 'f', 2));
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

namespace {

// Figures equal to within rounding: sums run over the trades in another order after a round trip.
void expectSameFigures(const QJsonObject& a, const QJsonObject& b, const char* unit)
{
    for (const QString& key : a.keys()) {
        if (key == QLatin1StringView("folder")) continue;
        const QJsonValue x = a[key];
        const QJsonValue y = b[key];
        if (x.isDouble() && y.isDouble()) {
            EXPECT_NEAR(x.toDouble(), y.toDouble(), 1e-9 * std::max(1.0, std::abs(x.toDouble())))
                << key.toStdString() << " in " << unit;
        } else {
            EXPECT_EQ(x, y) << key.toStdString() << " in " << unit;
        }
    }
}

ClipTrade brokerTrade(
    const QString& key, const char* symbol, const char* utcTime, double pnl, PnLUnit unit = PnLUnit::dollars)
{
    ClipTrade t;
    t.key = key;
    t.symbol = QString::fromLatin1(symbol);
    t.side = QStringLiteral("long");
    t.quantity = 1;
    t.exitTime = ReferenceDate::fromDateTime(QDateTime::fromString(QString::fromLatin1(utcTime), Qt::ISODate));
    t.pnl = pnl;
    t.fees = 1.25;
    t.unit = unit;
    t.outcome = pnl > 0 ? TradeOutcome::win : pnl < 0 ? TradeOutcome::loss : TradeOutcome::breakeven;
    return t;
}

} // namespace

TEST(JournalCommand, ExportThenImportIntoAnEmptyFolderGivesTheSameStatistics)
{
    // Hand-tagged clips in dollars and R, a clip tagged from two imported trades, a hand-tagged clip
    // whose trade does not count, a tag without an amount, and trades without a clip.
    JournalFolder journal;
    const QString folder = journal.path();
    ClipMeta fromTrades;
    fromTrades.tagOrigin = TagOrigin::imported;
    fromTrades.trades = { brokerTrade("id:1", "ES", "2024-05-08T14:00:00Z", 12.5),
        brokerTrade("id:2", "ES", "2024-05-08T23:59:59.5Z", -30.25) };
    fromTrades.outcome = TradeOutcome::loss;
    fromTrades.pnl = 17.75;
    fromTrades.notes = QStringLiteral("two entries, \"one\" idea");
    const QString tradesClip = folder + QStringLiteral("/Chart, May 8, 23-59-59.mp4");
    QFile(tradesClip).open(QIODevice::WriteOnly);
    ClipMetaStore::save(fromTrades, QUrl::fromLocalFile(tradesClip));
    ClipMeta byHand;
    byHand.outcome = TradeOutcome::win;
    byHand.pnl = 3;
    byHand.trades = { brokerTrade("id:3", "NQ", "2024-05-09T10:00:00Z", -50) };
    const QString handClip = folder + QStringLiteral("/NQ_2024-05-09_10-00.mp4");
    QFile(handClip).open(QIODevice::WriteOnly);
    ClipMetaStore::save(byHand, QUrl::fromLocalFile(handClip));
    journal.add("ES_2024-05-10_10-00.mp4", TradeOutcome::breakeven, std::nullopt);
    ASSERT_TRUE(JournalTradesFile::save(folder,
        { brokerTrade("h:00aa", "CL", "2024-05-04T09:30:00Z", 40),
            brokerTrade("h:00bb", "CL", "2024-05-04T09:31:00Z", 0),
            brokerTrade("h:00cc", "6E", "2024-05-11T09:31:00Z", 1.5, PnLUnit::R) }));

    QTemporaryDir other;
    const QString csv = other.filePath("journal.csv");
    const CommandRun exported = run({ "--export", csv, "--folder", folder });
    ASSERT_EQ(exported.status, 0) << exported.err.toStdString();
    // Four hand-tagged dollar clips, one in R, one breakeven, the hand-tagged clip, two imported
    // trades and three without a clip.
    EXPECT_EQ(exported.out, QStringLiteral("Exported 12 rows to %1\n").arg(csv));

    const QString empty = other.filePath("empty");
    QDir().mkdir(empty);
    const CommandRun imported = run({ "--import", csv, "--folder", empty });
    ASSERT_EQ(imported.status, 0) << imported.err.toStdString();
    EXPECT_EQ(imported.out, "12 trades: 0 matched to clips, 12 without a clip, 0 rows skipped\n");
    for (const char* unit : { "dollars", "R" }) {
        const auto stats = [unit](const QString& f) {
            return QJsonDocument::fromJson(run({ "--folder", f, "--json", "--unit", unit }).out.toUtf8()).object();
        };
        const QJsonObject before = stats(folder);
        EXPECT_EQ(before["tradeCount"].toInt(), QLatin1StringView(unit) == "R" ? 2 : 9);
        expectSameFigures(before, stats(empty), unit);
    }
}

TEST(JournalCommand, ImportNamesWhatIsWrongWithTheFile)
{
    JournalFolder journal;
    QTemporaryDir other;
    const QString csv = other.filePath("fills.csv");
    QFile file(csv);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("Symbol,Price,Qty\nES,5000,1\n");
    file.close();
    const CommandRun r = run({ "--import", csv, "--folder", journal.path() });
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "velotape journal: fills.csv: no time and no P&L column (the columns are: Symbol, Price, Qty)\n");
    EXPECT_EQ(run({ "--import", csv, "--export", csv }).status, 2);
    EXPECT_EQ(run({ "--import", csv, "--json" }).status, 2);
    EXPECT_FALSE(QFile::exists(JournalTradesFile::path(journal.path())));
}

TEST(JournalCommand, AnEmptySaveFolderSettingIsRefusedAndTheDefaultFolderIsRead)
{
    JournalFolder journal;
    QTemporaryDir home;
    ASSERT_TRUE(QFile::link(journal.path(), home.filePath("Desktop")));
    const QByteArray savedHome = qgetenv("HOME");
    qputenv("HOME", QFile::encodeName(home.path()));
    QTemporaryDir config;
    auto store = std::make_unique<QSettings>(config.filePath("Velotape.conf"), QSettings::IniFormat);
    store->setValue("vt2.savePath", QString());
    AppSettings settings(std::move(store));
    const CommandRun r = run({ "--json" }, &settings);
    qputenv("HOME", savedHome);
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.err,
        QStringLiteral("velotape journal: No save folder is set; clips go to %1/Desktop.\n").arg(home.path()));
    EXPECT_EQ(QJsonDocument::fromJson(r.out.toUtf8()).object()["taggedCount"].toInt(), 5);
}
