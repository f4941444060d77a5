#include "journal/PnLTextParser.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

using namespace PnLTextParser;

TEST(PnLTextParser, ReadsCurrencyParenthesesDashesAndSeparators)
{
    const struct {
        QString text;
        std::optional<double> value;
    } cases[] = {
        { QStringLiteral("+$1,234.56"), 1234.56 },
        { QStringLiteral("-$12.00"), -12.0 },
        // The "$" goes first, so the parentheses are seen.
        { QStringLiteral("$(45.10)"), -45.1 },
        { QStringLiteral("(12.50)"), -12.5 },
        { QStringLiteral("(-5)"), 5.0 },
        { QStringLiteral("\u22128"), -8.0 },
        { QStringLiteral("\u20133.5"), -3.5 },
        { QStringLiteral("$ 1\u00A0000.25"), 1000.25 },
        // A lone comma is a decimal comma, even where it was meant for thousands.
        { QStringLiteral("12,50"), 12.5 },
        { QStringLiteral("1,234"), 1.234 },
        { QStringLiteral("1.234,56"), 1.23456 },
        { QStringLiteral("1,234,567"), 1234567.0 },
        { QStringLiteral("5."), 5.0 },
        { QStringLiteral("0.00"), 0.0 },
        { QStringLiteral("1'234"), std::nullopt },
        { QStringLiteral("12.50-"), std::nullopt },
        { QStringLiteral("-(12.50)"), std::nullopt },
        { QStringLiteral("1.2.3"), std::nullopt },
        { QStringLiteral("--5"), std::nullopt },
        { QStringLiteral("1e5"), std::nullopt },
        { QStringLiteral("nan"), std::nullopt },
        { QStringLiteral("()"), std::nullopt },
        { QStringLiteral("\u0663"), std::nullopt }, // an Arabic-Indic three
        { QString(400, u'9'), std::nullopt },
        { QStringLiteral("0.") + QString(400, u'0') + QStringLiteral("1"), 0.0 },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text.toStdString());
        const auto value = parseNumber(c.text);
        ASSERT_EQ(value.has_value(), c.value.has_value());
        if (value) {
            EXPECT_DOUBLE_EQ(*value, *c.value);
        }
    }
}

TEST(PnLTextParser, LastAmountInReadingOrderWinsAndHugeOnesAreSkipped)
{
    auto candidate = lastCandidate({ QStringLiteral("Qty 3  P&L -120.50  Fees 1.20") });
    ASSERT_TRUE(candidate);
    EXPECT_DOUBLE_EQ(candidate->value, 1.2);
    EXPECT_EQ(candidate->text, QStringLiteral("1.20"));

    candidate = lastCandidate({ QStringLiteral("P&L $(45.10)"), QStringLiteral("Volume 2,000,000"), QString() });
    ASSERT_TRUE(candidate);
    EXPECT_DOUBLE_EQ(candidate->value, -45.1);
    EXPECT_EQ(candidate->text, QStringLiteral("(45.10)"));

    EXPECT_FALSE(lastCandidate({ QStringLiteral("no figures here"), QStringLiteral("1'234") }));
    // The tail of a garbled figure, or one with a minus after it: no sign can be told.
    EXPECT_FALSE(lastCandidate({ QStringLiteral("-/.25") }));
    EXPECT_FALSE(lastCandidate({ QStringLiteral("12.50-") }));
    candidate = lastCandidate({ QStringLiteral("P&L:-7.25 USD") });
    ASSERT_TRUE(candidate);
    EXPECT_DOUBLE_EQ(candidate->value, -7.25);
}

TEST(PnLTextParser, FirstNonZeroFrameDecidesAndZeroOnlyCountsWhenNothingElseShows)
{
    // Every figure read again from the same text: always confirmed.
    const auto frames = [](std::vector<std::optional<QStringList>> shown, int* asked = nullptr) {
        return choose(
            static_cast<int>(shown.size()),
            [shown, asked](int frame) {
                if (asked) ++*asked;
                return shown[static_cast<size_t>(frame)];
            },
            [shown](int frame, const Candidate& c) { return confirms(*shown[static_cast<size_t>(frame)], c); })
            .result;
    };

    int asked = 0;
    auto result = frames({ std::nullopt, QStringList { QStringLiteral("0.00") },
                             QStringList { QStringLiteral("-5.00") }, QStringList { QStringLiteral("7") } },
        &asked);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->outcome, TradeOutcome::loss);
    EXPECT_DOUBLE_EQ(result->pnl, 5.0);
    EXPECT_EQ(result->rawText, QStringLiteral("-5.00"));
    EXPECT_EQ(asked, 3); // no frame is read after the figure is found

    result = frames({ QStringList { QStringLiteral("+$40") } });
    ASSERT_TRUE(result);
    EXPECT_EQ(result->outcome, TradeOutcome::win);
    EXPECT_DOUBLE_EQ(result->pnl, 40.0);

    // The first zero is kept, whatever the later ones look like.
    result = frames(
        { QStringList { QStringLiteral("0.00") }, QStringList {}, QStringList { QStringLiteral("-0.00001") } });
    ASSERT_TRUE(result);
    EXPECT_EQ(result->outcome, TradeOutcome::breakeven);
    EXPECT_EQ(result->pnl, 0.0);
    EXPECT_EQ(result->rawText, QStringLiteral("0.00"));

    EXPECT_FALSE(frames({ std::nullopt, QStringList { QStringLiteral("P&L") } }));
}

TEST(PnLTextParser, ASecondReadingMustShowTheSameDigitsWithTheSameSign)
{
    const auto read = [](const char* text) { return *lastCandidate({ QString::fromUtf8(text) }); };
    // The minus lost in the first reading and seen in the second: a dispute, not a win.
    EXPECT_FALSE(confirms({ QStringLiteral("-7.25") }, read("7.25")));
    EXPECT_FALSE(confirms({ QStringLiteral("7.25") }, read("-7.25")));
    EXPECT_FALSE(confirms({ QStringLiteral("7.26") }, read("7.25")));
    EXPECT_FALSE(confirms({ QStringLiteral("no digits") }, read("7.25")));
    // Letters read as digits beside the figure, another separator, the sign as parentheses or a
    // true minus: the same figure.
    EXPECT_TRUE(confirms({ QStringLiteral("8 -7.25 0") }, read("P&L -7.25")));
    EXPECT_TRUE(confirms({ QStringLiteral("+1.234.50") }, read("+1,234.50")));
    EXPECT_TRUE(confirms({ QStringLiteral("12.0002,500,000") }, read("12.00 Vol 2,500,000")));
    EXPECT_FALSE(confirms({ QStringLiteral("-12.0002,500,000") }, read("12.00 Vol 2,500,000")));
    EXPECT_FALSE(confirms({ QStringLiteral("17.25") }, read("7.25")));
    EXPECT_TRUE(confirms({ QStringLiteral("$(45.25)") }, read("(45.25)")));
    EXPECT_TRUE(confirms({ QStringLiteral("\u22128") }, read("-8")));
    EXPECT_FALSE(confirms({ QStringLiteral("(45.25") }, read("(45.25)")));
    // A zero has no sign to lose.
    EXPECT_TRUE(confirms({ QStringLiteral("-0.00") }, read("0.00")));

    // A weaker reading only speaks up when it sees the same digits with the other sign: one that
    // misses the figure is no contradiction, as one that agrees is none.
    EXPECT_TRUE(contradicts({ QStringLiteral("-\u20AC45.10") }, read("\u20AC45.10")));
    EXPECT_TRUE(contradicts({ QStringLiteral("(45.10)") }, read("45.10")));
    EXPECT_FALSE(contradicts({ QStringLiteral("\u20AC45.10") }, read("\u20AC45.10")));
    EXPECT_FALSE(contradicts({ QStringLiteral("E"), QStringLiteral("-4") }, read("\u20AC45.10")));
    EXPECT_FALSE(contradicts({ QStringLiteral("-0.00") }, read("0.00")));

    // A disputed frame ends the search: an older frame is no answer for the newest one.
    int asked = 0;
    const QStringList first { QStringLiteral("7.25") };
    const Choice choice = choose(
        3,
        [&](int) -> std::optional<QStringList> {
            ++asked;
            return first;
        },
        [](int, const Candidate&) { return false; });
    EXPECT_FALSE(choice.result);
    EXPECT_EQ(choice.disputed, QStringLiteral("7.25"));
    EXPECT_EQ(asked, 1);
}
