#pragma once

#include "journal/PnLUnit.h"
#include "journal/TradeOutcome.h"

#include <QJsonObject>
#include <QString>

#include <optional>

// One closed trade from the broker's file, kept in the sidecar of the clip it was matched to, or in
// the save folder's file of trades without a clip. A plain value, compared field by field.
struct ClipTrade {
    // Identifies the trade across imports: the file's trade id ("id:…"), else a hash of its fields
    // ("h:…"), so that importing the same file again adds nothing.
    QString key;
    QString symbol;
    // "long" or "short" when the file's word is one we know, else the file's word as it stands.
    QString side;
    std::optional<double> quantity;
    // Seconds since 2001-01-01 00:00:00 UTC, like every journal date.
    std::optional<double> entryTime;
    double exitTime = 0;
    // Realised P&L net of fees: what the trade added to the account. Absent for a row that carries
    // only an outcome (a clip tagged without an amount, exported and read back).
    std::optional<double> pnl;
    // What the broker charged, as a magnitude; already taken out of `pnl`.
    double fees = 0;
    TradeOutcome outcome = TradeOutcome::unset;
    PnLUnit unit = PnLUnit::dollars;
    QString notes;

    // The amount every statistic uses, by the same rule as a clip's: the outcome decides the sign.
    double signedPnL() const;

    QJsonObject toJson() const;
    // Nothing when a required key is missing or of the wrong type, or a number is not finite.
    static std::optional<ClipTrade> fromJson(const QJsonValue& value);

    friend bool operator==(const ClipTrade& a, const ClipTrade& b) = default;
};
