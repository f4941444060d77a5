#include "journal/TradeFileReader.h"

#include "journal/CsvReader.h"
#include "journal/ReferenceDate.h"
#include "journal/TradeColumns.h"
#include "journal/TradeValues.h"

#include <QDateTime>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

double utc(int y, int mo, int d, int h, int mi, int s = 0)
{
    return ReferenceDate::fromDateTime(QDateTime(QDate(y, mo, d), QTime(h, mi, s), QTimeZone::utc()));
}

// Runs the test in a time zone of its choice, and gives the previous one back.
class InZone {
public:
    explicit InZone(const char* zone)
    {
        if (const char* tz = std::getenv("TZ")) before = tz;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~InZone()
    {
        if (before.empty()) {
            unsetenv("TZ");
        } else {
            setenv("TZ", before.c_str(), 1);
        }
        tzset();
    }

private:
    std::string before;
};

} // namespace

TEST(TradeValues, TimesWithAndWithoutAnOffset)
{
    using TradeValues::parseTime;
    const double t = utc(2024, 3, 5, 14, 7, 33);
    EXPECT_EQ(parseTime(u"2024-03-05T14:07:33Z"), t);
    EXPECT_EQ(parseTime(u"2024-03-05T15:07:33+01:00"), t);
    EXPECT_EQ(parseTime(u"2024-03-05 09:07:33-0500"), t);
    EXPECT_EQ(parseTime(u" 2024-03-05T16:07:33+02 "), t);
    EXPECT_DOUBLE_EQ(*parseTime(u"2024-03-05T14:07:33.250Z"), t + 0.25);
    EXPECT_EQ(parseTime(u"2024/03/05 14:07:33Z"), t);

    {
        // Without an offset the time is the system zone's wall clock, summer time included.
        InZone zone("America/New_York");
        EXPECT_EQ(parseTime(u"2024-03-05 09:07:33"), t);
        EXPECT_EQ(parseTime(u"2024-03-05 09:07"), t - 33);
        EXPECT_EQ(parseTime(u"2024-07-05T10:00"), utc(2024, 7, 5, 14, 0));
    }

    for (const char16_t* bad : { u"", u"2024-03-05", u"2024-13-05 10:00", u"2024-02-30 10:00", u"2024-03-05 24:00",
             u"05/03/2024 10:00", u"2024-03-05 10:00 PM", u"2024-03-05T10:00+25:00", u"2024-03-05T10:00:00.Z" }) {
        EXPECT_FALSE(parseTime(bad).has_value()) << QString::fromUtf16(bad).toStdString();
    }
}

TEST(TradeValues, AmountsInTheFormsBrokersWriteThem)
{
    using TradeValues::parseAmount;
    const struct {
        const char16_t* text;
        double value;
    } good[] = { { u"-12.50", -12.5 }, { u"12.50-", -12.5 }, { u"(12.50)", -12.5 }, { u"($1,234.56)", -1234.56 },
        { u"$1,234.56", 1234.56 }, { u"1,234", 1234 }, { u"12,5", 12.5 }, { u"1.234,56 €", 1234.56 },
        { u"USD 1 234,56", 1234.56 }, { u"\u22128", -8 }, { u"+40", 40 }, { u"1,234,567.8", 1234567.8 },
        { u"1.234.567", 1234567 }, { u"0.00", 0 }, { u"-0", 0 }, { u"£ -3", -3 } };
    for (const auto& g : good) {
        const auto v = parseAmount(g.text);
        ASSERT_TRUE(v.has_value()) << QString::fromUtf16(g.text).toStdString();
        EXPECT_DOUBLE_EQ(*v, g.value) << QString::fromUtf16(g.text).toStdString();
    }
    for (const char16_t* bad : { u"", u"-", u"abc", u"12.5.3,1", u"1,23,4", u"--5", u"(5)-", u"1e5", u"5 x", u"12-3",
             u"1.2.3", u"9999999999999999" }) {
        EXPECT_FALSE(parseAmount(bad).has_value()) << QString::fromUtf16(bad).toStdString();
    }
}

TEST(CsvReader, QuotesSeparatorsAndLineNumbers)
{
    // A quoted field with the separator, a doubled quote and a line break; CRLF endings; a blank line.
    const QByteArray text = "\xEF\xBB\xBFname;note\r\n\"a;b\";\"say \"\"hi\"\"\"\r\n\r\nc;\"two\nlines\"\r\nd;e";
    const CsvReader::Table t = CsvReader::read(text);
    EXPECT_EQ(t.delimiter, u';');
    EXPECT_FALSE(t.readAsLatin1);
    ASSERT_EQ(t.rows.size(), 4u);
    EXPECT_EQ(t.rows[0].fields, QStringList({ "name", "note" }));
    EXPECT_EQ(t.rows[1].fields, QStringList({ "a;b", "say \"hi\"" }));
    EXPECT_EQ(t.rows[2].line, 4);
    EXPECT_EQ(t.rows[2].fields, QStringList({ "c", "two\nlines" }));
    EXPECT_EQ(t.rows[3].line, 6);

    // What quoted() writes reads back as the same field.
    const QString awkward = QStringLiteral(" Safari, Mar 5, \"14-07\"\nx ");
    const CsvReader::Table back = CsvReader::read((CsvReader::quoted(awkward) + QStringLiteral(",z\n")).toUtf8());
    ASSERT_EQ(back.rows.size(), 1u);
    EXPECT_EQ(back.rows[0].fields, QStringList({ awkward, "z" }));

    // Bytes that are not UTF-8 are read as Latin-1, and said to be.
    const CsvReader::Table latin = CsvReader::read("sym\tp\xe9riode\nES\t\xa3"
                                                   "5\n");
    EXPECT_TRUE(latin.readAsLatin1);
    EXPECT_EQ(latin.delimiter, u'\t');
    EXPECT_EQ(latin.rows[1].fields[1], QStringLiteral("£5"));
}

TEST(TradeColumns, NamesAndSynonymsWithTheStrongestNameWinning)
{
    using TradeColumns::Field;
    const TradeColumns::Mapping m = TradeColumns::recognise({ "Time", "Ticker", "Buy/Sell", "Shares", "Opened",
        "Exit_Time", "Profit", "Net P&L (USD)", "Commission", "Trade ID", "Comment" });
    EXPECT_EQ(m.at(Field::exitTime), 5); // "Exit Time" over "Time"
    EXPECT_EQ(m.at(Field::entryTime), 4);
    EXPECT_EQ(m.at(Field::symbol), 1);
    EXPECT_EQ(m.at(Field::side), 2);
    EXPECT_EQ(m.at(Field::quantity), 3);
    EXPECT_EQ(m.at(Field::pnl), 7); // "Net P&L" over "Profit"
    EXPECT_TRUE(m.pnlIsNet);
    EXPECT_EQ(m.at(Field::fees), 8);
    EXPECT_EQ(m.at(Field::id), 9);
    EXPECT_EQ(m.at(Field::notes), 10);
    EXPECT_TRUE(m.usable());

    const TradeColumns::Mapping gross = TradeColumns::recognise({ "INSTRUMENT", "close time", "gross pnl", "fees" });
    EXPECT_EQ(gross.at(Field::pnl), 2);
    EXPECT_FALSE(gross.pnlIsNet);
    EXPECT_FALSE(TradeColumns::recognise({ "Symbol", "Qty", "Price" }).usable());
}

TEST(TradeFileReader, ThreeBrokerShapesReadToTheSameTrades)
{
    // The same three trades as three brokers write them: names, separators, time and amount forms.
    const QByteArray comma = "Account: U123\n"
                             "Symbol,Side,Qty,Entry Time,Exit Time,Realized P&L,Commission,Trade ID\n"
                             "ES,Buy,2,2024-03-05T14:00:00Z,2024-03-05T14:05:00Z,\"$1,250.00\",4.50,T1\n"
                             "NQ,Sell,1,2024-03-05T15:00:00Z,2024-03-05T15:01:30Z,(300.00),2.25,T2\n"
                             "ES,Sell,1,2024-03-05T16:00:00Z,2024-03-05T16:10:00Z,0,0,T3\n";
    const QByteArray semicolon = "instrument;direction;contracts;opened;closed;net profit;fees\n"
                                 "ES;long;2;2024-03-05 15:00:00+01:00;2024-03-05 15:05:00+01:00;1.245,50;4,50\n"
                                 "NQ;short;1;2024-03-05 16:00:00+01:00;2024-03-05 16:01:30+01:00;302,25-;2,25\n"
                                 "ES;short;1;2024-03-05 17:00:00+01:00;2024-03-05 17:10:00+01:00;0,00;0\n";
    const QByteArray tabs = "ticker\taction\tsize\ttime\tpnl\n"
                            "ES\tBOT\t2\t2024-03-05T14:05:00Z\t1245.50\n"
                            "NQ\tSLD\t1\t2024-03-05T15:01:30Z\t-302.25\n"
                            "ES\tSLD\t1\t2024-03-05T16:10:00Z\t0\n";
    for (const QByteArray& file : { comma, semicolon, tabs }) {
        const TradeFileReader::Result r = TradeFileReader::read(file);
        ASSERT_TRUE(r.error.isEmpty()) << r.error.toStdString();
        EXPECT_TRUE(r.skipped.empty());
        ASSERT_EQ(r.trades.size(), 3);
        const ClipTrade& es = r.trades[0];
        EXPECT_EQ(es.symbol, "ES");
        EXPECT_EQ(es.side, "long");
        EXPECT_EQ(es.quantity, 2.0);
        EXPECT_EQ(es.exitTime, utc(2024, 3, 5, 14, 5));
        // Net of fees: 1250 gross less 4.50, or a net column as it stands.
        EXPECT_DOUBLE_EQ(*es.pnl, 1245.5);
        EXPECT_EQ(es.outcome, TradeOutcome::win);
        EXPECT_EQ(r.trades[1].side, "short");
        EXPECT_DOUBLE_EQ(*r.trades[1].pnl, -302.25);
        EXPECT_EQ(r.trades[1].outcome, TradeOutcome::loss);
        EXPECT_EQ(r.trades[2].outcome, TradeOutcome::breakeven);
    }
    EXPECT_EQ(TradeFileReader::read(comma).trades[0].key, "id:T1");
    EXPECT_EQ(TradeFileReader::read(comma).trades[0].entryTime, utc(2024, 3, 5, 14, 0));
    // Without an id the key is a hash of the fields: the same on every read, different per trade.
    const auto a = TradeFileReader::read(tabs);
    const auto b = TradeFileReader::read(tabs);
    EXPECT_TRUE(a.trades[0].key.startsWith("h:"));
    EXPECT_EQ(a.trades[0].key, b.trades[0].key);
    EXPECT_NE(a.trades[0].key, a.trades[2].key);
}

TEST(TradeFileReader, BadRowsAreSkippedByLineAndTwinRowsStayTwo)
{
    const QByteArray file = "symbol,time,pnl,fees\n"
                            "ES,2024-03-05T14:05:00Z,10,1\n"
                            "ES,yesterday,10,0\n"
                            "ES,2024-03-05T14:06:00Z,ten,0\n"
                            "\n"
                            "ES,,5,0\n"
                            "ES,2024-03-05T14:07:00Z,5,1\n"
                            "ES,2024-03-05T14:07:00Z,5,1\n";
    const TradeFileReader::Result r = TradeFileReader::read(file);
    ASSERT_EQ(r.skipped.size(), 3u);
    EXPECT_EQ(r.skipped[0].line, 3);
    EXPECT_EQ(r.skipped[1].line, 4);
    EXPECT_EQ(r.skipped[2].line, 6);
    EXPECT_EQ(r.skipped[1].reason, "unreadable P&L \"ten\"");
    ASSERT_EQ(r.trades.size(), 3);
    EXPECT_DOUBLE_EQ(*r.trades[0].pnl, 9);
    // Two fills alike in every field are two trades, with two keys.
    EXPECT_NE(r.trades[1].key, r.trades[2].key);

    // A trade id listed twice is one trade: the second row is skipped and says where the first is.
    const auto twice = TradeFileReader::read("id,time,pnl\nA,2024-03-05T14:07:00Z,5\nA,2024-03-05T14:08:00Z,6\n");
    ASSERT_EQ(twice.trades.size(), 1);
    ASSERT_EQ(twice.skipped.size(), 1u);
    EXPECT_EQ(twice.skipped[0].reason, "trade id \"A\" again (first on line 2)");
}

TEST(TradeFileReader, AFileWithoutTheNeededColumnsNamesWhatItHas)
{
    const auto noPnL = TradeFileReader::read("Symbol,Qty,Close Time\nES,1,2024-03-05 10:00\n");
    EXPECT_EQ(noPnL.error, "no P&L column (the columns are: Symbol, Qty, Close Time)");
    EXPECT_TRUE(noPnL.trades.isEmpty());
    const auto noTime = TradeFileReader::read("Symbol,Profit\nES,5\n");
    EXPECT_EQ(noTime.error, "no time column (the columns are: Symbol, Profit)");
    EXPECT_FALSE(TradeFileReader::read("").error.isEmpty());
}
