#include "journal/ClipTrade.h"

#include <cmath>

namespace {

const QLatin1StringView originImported("imported");

std::optional<double> finiteNumber(const QJsonObject& object, QLatin1StringView key, bool& ok)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) return std::nullopt;
    if (!value.isDouble() || !std::isfinite(value.toDouble())) {
        ok = false;
        return std::nullopt;
    }
    return value.toDouble();
}

} // namespace

double ClipTrade::signedPnL() const
{
    return signedAmount(outcome, pnl);
}

QJsonObject ClipTrade::toJson() const
{
    QJsonObject o;
    o.insert(QLatin1StringView("key"), key);
    o.insert(QLatin1StringView("symbol"), symbol);
    o.insert(QLatin1StringView("side"), side);
    if (quantity) o.insert(QLatin1StringView("quantity"), *quantity);
    if (entryTime) o.insert(QLatin1StringView("entryTime"), *entryTime);
    o.insert(QLatin1StringView("exitTime"), exitTime);
    if (pnl) o.insert(QLatin1StringView("pnl"), *pnl);
    o.insert(QLatin1StringView("fees"), fees);
    o.insert(QLatin1StringView("outcome"), rawValue(outcome));
    o.insert(QLatin1StringView("unit"), rawValue(unit));
    if (!notes.isEmpty()) o.insert(QLatin1StringView("notes"), notes);
    // Where the figures came from, for whoever reads the sidecar.
    o.insert(QLatin1StringView("origin"), originImported);
    return o;
}

std::optional<ClipTrade> ClipTrade::fromJson(const QJsonValue& value)
{
    if (!value.isObject()) return std::nullopt;
    const QJsonObject o = value.toObject();
    ClipTrade t;
    const QJsonValue key = o.value(QLatin1StringView("key"));
    const QJsonValue exit = o.value(QLatin1StringView("exitTime"));
    const auto outcome = tradeOutcomeFromRaw(o.value(QLatin1StringView("outcome")).toString());
    const auto unit = pnlUnitFromRaw(o.value(QLatin1StringView("unit")).toString());
    if (!key.isString() || key.toString().isEmpty() || !exit.isDouble() || !std::isfinite(exit.toDouble()) || !outcome
        || !unit) {
        return std::nullopt;
    }
    t.key = key.toString();
    t.exitTime = exit.toDouble();
    t.outcome = *outcome;
    t.unit = *unit;
    t.symbol = o.value(QLatin1StringView("symbol")).toString();
    t.side = o.value(QLatin1StringView("side")).toString();
    t.notes = o.value(QLatin1StringView("notes")).toString();
    bool ok = true;
    t.quantity = finiteNumber(o, QLatin1StringView("quantity"), ok);
    t.entryTime = finiteNumber(o, QLatin1StringView("entryTime"), ok);
    t.pnl = finiteNumber(o, QLatin1StringView("pnl"), ok);
    t.fees = finiteNumber(o, QLatin1StringView("fees"), ok).value_or(0);
    if (!ok) return std::nullopt;
    return t;
}
