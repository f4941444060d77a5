#pragma once

#include <QString>
#include <QStringView>

#include <array>
#include <optional>

// The result of a trade as the user tagged it. The raw values are the sidecar's; the order of
// declaration is the order of every picker.
enum class TradeOutcome { unset, win, loss, breakeven };

constexpr std::array<TradeOutcome, 4> allTradeOutcomes { TradeOutcome::unset, TradeOutcome::win, TradeOutcome::loss,
    TradeOutcome::breakeven };

QString rawValue(TradeOutcome outcome);
// "—", "Win", "Loss", "BE".
QString label(TradeOutcome outcome);
// Exact match only: "Win" or "WIN" is no outcome at all.
std::optional<TradeOutcome> tradeOutcomeFromRaw(QStringView raw);

// An amount with the sign its outcome gives it: a win counts positive and a loss negative whatever
// sign was typed, breakeven counts nothing, and an unset outcome keeps the amount's own sign. No
// amount counts nothing.
double signedAmount(TradeOutcome outcome, std::optional<double> pnl);
