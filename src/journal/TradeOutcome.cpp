#include "journal/TradeOutcome.h"

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
