#pragma once

#include <QString>
#include <QStringView>

#include <array>
#include <optional>

// The unit of a P&L amount. There is no conversion between units: statistics count only the clips
// tagged in the unit being viewed.
enum class PnLUnit { dollars, R, points, ticks };

constexpr std::array<PnLUnit, 4> allPnLUnits { PnLUnit::dollars, PnLUnit::R, PnLUnit::points, PnLUnit::ticks };

QString rawValue(PnLUnit unit);
// "$", "R", "pts", "ticks": the unit as the journal's sentences name it.
QString shortLabel(PnLUnit unit);
// "Dollars ($)", "Risk multiples (R)", "Points (pts)", "Ticks": the entries of the unit menu.
QString menuLabel(PnLUnit unit);
// Exact match only, as in the sidecar: "euro" or "r" is no unit.
std::optional<PnLUnit> pnlUnitFromRaw(QStringView raw);
