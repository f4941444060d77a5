#include "journal/TradeOutcome.h"

#include <cmath>

QString rawValue(TradeOutcome outcome)
{
    switch (outcome) {
    case TradeOutcome::unset:
        return QStringLiteral("unset");
    case TradeOutcome::win:
        return QStringLiteral("win");
    case TradeOutcome::loss:
        return QStringLiteral("loss");
    case TradeOutcome::breakeven:
        return QStringLiteral("breakeven");
    }
    return QStringLiteral("unset");
}

QString label(TradeOutcome outcome)
{
    switch (outcome) {
    case TradeOutcome::unset:
        return QStringLiteral("—");
    case TradeOutcome::win:
        return QStringLiteral("Win");
    case TradeOutcome::loss:
        return QStringLiteral("Loss");
    case TradeOutcome::breakeven:
        return QStringLiteral("BE");
    }
    return QStringLiteral("—");
}

std::optional<TradeOutcome> tradeOutcomeFromRaw(QStringView raw)
{
    for (TradeOutcome outcome : allTradeOutcomes) {
        if (raw == rawValue(outcome)) return outcome;
    }
    return std::nullopt;
}

double signedAmount(TradeOutcome outcome, std::optional<double> pnl)
{
    if (!pnl) return 0;
    switch (outcome) {
    case TradeOutcome::unset:
        return *pnl;
    case TradeOutcome::win:
        return std::fabs(*pnl);
    case TradeOutcome::loss:
        return -std::fabs(*pnl);
    case TradeOutcome::breakeven:
        return 0;
    }
    return 0;
}
