#include "journal/ClipMeta.h"

#include <cmath>

namespace {

bool sameRect(const std::optional<QRectF>& a, const std::optional<QRectF>& b)
{
    if (a.has_value() != b.has_value()) return false;
    if (!a) return true;
    return a->x() == b->x() && a->y() == b->y() && a->width() == b->width() && a->height() == b->height();
}

bool sameSize(const std::optional<QSizeF>& a, const std::optional<QSizeF>& b)
{
    if (a.has_value() != b.has_value()) return false;
    if (!a) return true;
    return a->width() == b->width() && a->height() == b->height();
}

} // namespace

bool ClipMeta::isPlausiblePnL(double value)
{
    return std::isfinite(value) && std::fabs(value) <= maxPnLMagnitude;
}

bool ClipMeta::isEmpty() const
{
    return *this == ClipMeta {};
}

double ClipMeta::signedPnL() const
{
    return signedAmount(outcome, pnl);
}

bool operator==(const ClipMeta& a, const ClipMeta& b)
{
    return a.outcome == b.outcome && a.pnl == b.pnl && a.unit == b.unit && a.notes == b.notes
        && a.mistakes == b.mistakes && a.ticker == b.ticker && a.date == b.date
        && sameRect(a.monitorRect, b.monitorRect) && sameSize(a.recordedSize, b.recordedSize)
        && sameSize(a.sourcePointSize, b.sourcePointSize) && a.tagOrigin == b.tagOrigin && a.trades == b.trades
        && a.tags == b.tags && a.otherFields == b.otherFields;
}
