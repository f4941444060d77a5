#include "journal/PnLUnit.h"

QString rawValue(PnLUnit unit)
{
    switch (unit) {
    case PnLUnit::dollars:
        return QStringLiteral("dollars");
    case PnLUnit::R:
        return QStringLiteral("R");
    case PnLUnit::points:
        return QStringLiteral("points");
    case PnLUnit::ticks:
        return QStringLiteral("ticks");
    }
    return QStringLiteral("dollars");
}

QString shortLabel(PnLUnit unit)
{
    switch (unit) {
    case PnLUnit::dollars:
        return QStringLiteral("$");
    case PnLUnit::R:
        return QStringLiteral("R");
    case PnLUnit::points:
        return QStringLiteral("pts");
    case PnLUnit::ticks:
        return QStringLiteral("ticks");
    }
    return QStringLiteral("$");
}

QString menuLabel(PnLUnit unit)
{
    switch (unit) {
    case PnLUnit::dollars:
        return QStringLiteral("Dollars ($)");
    case PnLUnit::R:
        return QStringLiteral("Risk multiples (R)");
    case PnLUnit::points:
        return QStringLiteral("Points (pts)");
    case PnLUnit::ticks:
        return QStringLiteral("Ticks");
    }
    return QStringLiteral("Dollars ($)");
}

std::optional<PnLUnit> pnlUnitFromRaw(QStringView raw)
{
    for (PnLUnit unit : allPnLUnits) {
        if (raw == rawValue(unit)) return unit;
    }
    return std::nullopt;
}
