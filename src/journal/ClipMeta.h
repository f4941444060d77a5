#pragma once

#include "journal/ClipTrade.h"
#include "journal/PnLUnit.h"
#include "journal/TagOrigin.h"
#include "journal/TradeOutcome.h"

#include <QList>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QStringList>

#include <optional>

// What the user (or the P&L detector) says about one clip as a trade; the content of its sidecar.
// A plain value, compared field by field and exactly (QRectF's own == is fuzzy, this one is not).
struct ClipMeta {
    // No real account moves more than this in one trade; a larger amount is a typo or a broken file.
    static constexpr double maxPnLMagnitude = 1e12;
    // Finite and no larger than maxPnLMagnitude either way.
    static bool isPlausiblePnL(double value);

    TradeOutcome outcome = TradeOutcome::unset;
    // As typed or detected; its sign need not agree with `outcome` (see signedPnL).
    std::optional<double> pnl;
    PnLUnit unit = PnLUnit::dollars;
    QString notes;
    QString mistakes;
    // Takes the place of the ticker parsed from the file name where one is shown.
    std::optional<QString> ticker;
    // Seconds since 2001-01-01 00:00:00 UTC; overrides the date parsed from the file name.
    std::optional<double> date;
    // The last three are kept for the format's sake: nothing in the program fills them, but a value
    // found in a file survives a load and save.
    std::optional<QRectF> monitorRect;
    std::optional<QSizeF> recordedSize;
    std::optional<QSizeF> sourcePointSize;

    // Who set `outcome` and `pnl`, when it was not the user (see TagOrigin).
    std::optional<TagOrigin> tagOrigin;
    // The broker's trades matched to this clip, in the order they were imported. While the tag comes
    // from them, the statistics count each trade by itself and the clip's amount is their sum.
    QList<ClipTrade> trades;
    // Free setup tags ("breakout", "A+"), in the order the user added them.
    QStringList tags;

    // True when every field holds its empty value: such a record is what a clip without a usable
    // sidecar loads as, and saving it removes the sidecar.
    bool isEmpty() const;

    // The amount every statistic uses: the outcome decides the sign, so 50 typed on a loss is -50
    // and -50 typed on a win is +50. Untagged clips keep the sign as typed; breakeven is always 0.
    double signedPnL() const;

    friend bool operator==(const ClipMeta& a, const ClipMeta& b);
};
