#pragma once

#include <QString>
#include <QStringView>

#include <optional>

// Who set a clip's outcome and amount when it was not the user: the P&L detector reading the last
// frames, or the broker's file. A record without an origin was tagged by the user, and nothing
// writes over that; the detector's guess gives way to the broker's figures.
enum class TagOrigin { detected, imported };

QString rawValue(TagOrigin origin);
// Exact match only.
std::optional<TagOrigin> tagOriginFromRaw(QStringView raw);
