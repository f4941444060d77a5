#pragma once

#include "journal/ClipMeta.h"

#include <QString>
#include <QUrl>

#include <optional>

// A clip file paired with its sidecar's record. Compared field by field, all four fields.
struct ClipEntry {
    QUrl url;
    // From the file name (or the file's modification time); seconds since 2001-01-01 UTC.
    std::optional<double> parsedDate;
    std::optional<QString> parsedTicker;
    ClipMeta meta;

    // The date every statistic groups and orders by: the sidecar's date, else the parsed one, else
    // the current time at the moment of asking.
    double date() const;

    friend bool operator==(const ClipEntry& a, const ClipEntry& b) = default;
};
