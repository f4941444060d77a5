#include "journal/ClipNameParser.h"

#include "core/LocalFileName.h"
#include "journal/ReferenceDate.h"

#include <QDate>
#include <QDateTime>
#include <QTime>

#include <sys/stat.h>

namespace ClipNameParser {

namespace {

// Digits at [from, from + count) of text as a number, or -1 if any is not an ASCII digit.
int digits(QStringView text, qsizetype from, qsizetype count)
{
    int value = 0;
    for (qsizetype i = from; i < from + count; ++i) {
        const char16_t c = text[i].unicode();
        if (c < u'0' || c > u'9') return -1;
        value = value * 10 + (c - u'0');
    }
    return value;
}

} // namespace

QString stem(const QString& fileName)
{
    const qsizetype dot = fileName.lastIndexOf(u'.');
    return dot > 0 ? fileName.left(dot) : fileName;
}

std::optional<double> parseDate(QStringView text)
{
    // yyyy-MM-dd_HH-mm
    // 0123456789012345
    if (text.size() != 16 || text[4] != u'-' || text[7] != u'-' || text[10] != u'_' || text[13] != u'-') {
        return std::nullopt;
    }
    const int year = digits(text, 0, 4);
    const int month = digits(text, 5, 2);
    const int day = digits(text, 8, 2);
    const int hour = digits(text, 11, 2);
    const int minute = digits(text, 14, 2);
    if (year < 0 || month < 0 || day < 0 || hour < 0 || minute < 0) return std::nullopt;
    const QDate date(year, month, day);
    const QTime time(hour, minute);
    if (!date.isValid() || !time.isValid()) return std::nullopt;
    // A minute that the clocks skip (spring forward) names no moment: such a name falls back to the
    // modification time like any other text that is not a date.
    const QDateTime local(date, time, Qt::LocalTime);
    if (!local.isValid()) return std::nullopt;
    return ReferenceDate::fromDateTime(local);
}

std::optional<double> mtime(const QUrl& url)
{
    const QByteArray path = LocalFileName::encode(url.toLocalFile());
    struct stat info { };
    if (path.isEmpty() || ::lstat(path.constData(), &info) != 0) return std::nullopt;
    return (static_cast<double>(info.st_mtim.tv_sec) - ReferenceDate::unixOffset)
        + static_cast<double>(info.st_mtim.tv_nsec) * 1e-9;
}

Parsed parse(const QUrl& url)
{
    const QString name = stem(url.fileName());
    // At most two splits, empty pieces kept: the third piece keeps any further underscores.
    const qsizetype first = name.indexOf(u'_');
    const qsizetype second = first < 0 ? -1 : name.indexOf(u'_', first + 1);
    if (second < 0) return { std::nullopt, mtime(url) };

    Parsed parsed;
    const QString ticker = name.left(first);
    if (!ticker.isEmpty()) parsed.ticker = ticker;
    const QString dateText = name.mid(first + 1);
    parsed.date = parseDate(dateText);
    if (!parsed.date) parsed.date = mtime(url);
    return parsed;
}

} // namespace ClipNameParser
