#include "journal/JournalExport.h"

#include "journal/CsvReader.h"
#include "journal/ReferenceDate.h"

#include <QDateTime>
#include <QLocale>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <vector>

namespace JournalExport {

namespace {

QString time(double seconds)
{
    const QDateTime local
        = QDateTime::fromMSecsSinceEpoch(std::llround((seconds + ReferenceDate::unixOffset) * 1000.0), Qt::LocalTime);
    return local.toOffsetFromUtc(local.offsetFromUtc()).toString(Qt::ISODateWithMs);
}

QString number(double value)
{
    return QString::number(value, 'f', QLocale::FloatingPointShortest);
}

QString number(const std::optional<double>& value)
{
    return value ? number(*value) : QString();
}

struct Line {
    double time;
    QStringList fields;
};

Line tradeLine(const QString& clip, const ClipTrade& t)
{
    return { t.exitTime,
        { clip, time(t.exitTime), t.symbol, t.side, number(t.quantity), rawValue(t.outcome), number(t.pnl),
            number(t.fees), rawValue(t.unit), t.notes,
            t.key.startsWith(QLatin1StringView("id:")) ? t.key.mid(3) : t.key,
            t.entryTime ? time(*t.entryTime) : QString() } };
}

} // namespace

QByteArray csv(const QList<ClipEntry>& clips, const QList<ClipTrade>& withoutClip)
{
    std::vector<Line> lines;
    for (const ClipEntry& e : clips) {
        const ClipMeta& m = e.meta;
        const QString path = e.url.toLocalFile();
        if (m.tagOrigin == TagOrigin::imported && !m.trades.isEmpty()) {
            for (const ClipTrade& t : m.trades)
                lines.push_back(tradeLine(path, t));
        } else if (m.outcome != TradeOutcome::unset) {
            const double date = e.date();
            lines.push_back({ date,
                { path, time(date), m.ticker.value_or(e.parsedTicker.value_or(QString())), QString(), QString(),
                    rawValue(m.outcome), m.pnl ? number(m.signedPnL()) : QString(), QString(), rawValue(m.unit),
                    m.notes, QString(), QString() } });
        }
    }
    for (const ClipTrade& t : withoutClip)
        lines.push_back(tradeLine(QString(), t));
    std::stable_sort(lines.begin(), lines.end(), [](const Line& a, const Line& b) { return a.time < b.time; });

    QString text
        = QStringLiteral("clip,time,symbol,side,quantity,outcome,net pnl,fees,unit,notes,trade id,entry time\n");
    for (const Line& line : lines) {
        QStringList fields;
        for (const QString& f : line.fields)
            fields << CsvReader::quoted(f);
        text += fields.join(u',') + u'\n';
    }
    return text.toUtf8();
}

} // namespace JournalExport
