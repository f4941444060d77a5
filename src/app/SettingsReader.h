#pragma once

#include "core/HotkeyBinding.h"

#include <QByteArray>
#include <QRectF>
#include <QString>

#include <optional>

class QSettings;

// Reads one stored setting as a given type, the way the settings model wants it: the stored object,
// converted to the type if it can be, and no value at all for a missing key or one that can't be
// converted. The store's file format keeps most values as text, so text that spells a number or a
// boolean counts as one. NaN and infinities are no numbers here.
class SettingsReader {
public:
    // The closed range a number is held to.
    struct Range {
        double min;
        double max;
    };

    explicit SettingsReader(const QSettings& store)
        : store(store)
    {
    }

    std::optional<double> readDouble(const char* key) const;
    // A number outside `range` is held to its nearer end, with one line in the log; the stored
    // value itself is left as it is.
    std::optional<double> readDouble(const char* key, Range range) const;
    // "true"/"false" (any case) and the numbers 1 and 0.
    std::optional<bool> readBool(const char* key) const;
    std::optional<QString> readString(const char* key) const;
    // The text of the key, empty when missing or not text.
    QString rawString(const char* key) const;
    // The integer getter: 0 for a missing key or one that isn't a number; fractions are truncated.
    long long integer(const char* key) const;
    // Stored JSON bytes (or JSON text, for a hand-edited file).
    std::optional<HotkeyBinding> hotkey(const char* key) const;
    // Exactly four numbers: min x, min y, width, height; the corner held to `origin` and the size
    // to `length`, as readDouble does, with one line in the log for the rectangle.
    std::optional<QRectF> rect(const char* key, Range origin, Range length) const;
    std::optional<QByteArray> data(const char* key) const;

private:
    const QSettings& store;
};
