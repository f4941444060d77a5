#pragma once

#include <QString>
#include <QStringView>
#include <QUrl>

#include <optional>

// Reads a ticker and a date from a clip's file name of the form TICKER_yyyy-MM-dd_HH-mm.
//
// This is not the form in which the recorder names its clips ("Safari, Mar 5, 14-07-33.mp4"), and
// the two are deliberately not made to agree: a recorder-made name has no underscore, so it parses
// to no ticker and the file's modification time. A user who renames a clip to
// AAPL_2024-11-05_09-30.mp4 gets ticker AAPL and that minute.
//
// Stateless; callable from any thread. Reads the system time zone at each call.
namespace ClipNameParser {

struct Parsed {
    std::optional<QString> ticker;
    // Seconds since 2001-01-01 00:00:00 UTC.
    std::optional<double> date;
};

Parsed parse(const QUrl& url);

// "yyyy-MM-dd_HH-mm" in the system time zone, the whole text and nothing else, ASCII digits in
// fixed widths. Seconds since 2001-01-01 UTC, or nothing for any other text.
std::optional<double> parseDate(QStringView text);

// The file's own modification time (of a link itself, not its target), or nothing when it is gone.
std::optional<double> mtime(const QUrl& url);

// The last path component without its last extension: "a.b.mp4" gives "a.b".
QString stem(const QString& fileName);

} // namespace ClipNameParser
