#include "ui/clips/ClipEdits.h"

#include "journal/FormatPnL.h"
#include "journal/ReferenceDate.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>

#include <algorithm>
#include <cmath>

namespace ClipEdits {

std::optional<QString> renameTarget(const QString& clipPath, const QString& text)
{
    const QFileInfo clip(clipPath);
    QString name = text.trimmed();
    if (name.isEmpty() || name == clip.completeBaseName()) return std::nullopt;
    // Neither may stand in a file name here; the stem's own dots stay.
    name.replace(u'/', u'-').replace(u':', u'-');
    if (!clip.suffix().isEmpty()) name += u'.' + clip.suffix();
    return clip.dir().filePath(name);
}

ClipMeta committedPnL(ClipMeta meta, const QString& text)
{
    QString number = text;
    number.replace(u',', u'.');
    number = number.trimmed();
    bool ok = false;
    const double value = number.toDouble(&ok);
    // "inf" and "nan" read as numbers but cannot stand in a sidecar.
    if (!ok || !ClipMeta::isPlausiblePnL(value)) {
        meta.pnl.reset();
        return meta;
    }
    meta.pnl = std::abs(value);
    if (meta.outcome == TradeOutcome::unset) {
        if (value < 0) meta.outcome = TradeOutcome::loss;
        if (value > 0) meta.outcome = TradeOutcome::win;
    }
    return meta;
}

ClipMeta madeByUser(const ClipMeta& before, ClipMeta after)
{
    if (after.outcome != before.outcome || after.pnl != before.pnl || after.unit != before.unit)
        after.tagOrigin.reset();
    return after;
}

QStringList withTag(const QStringList& tags, const QString& text)
{
    const QString tag = text.simplified();
    if (tag.isEmpty() || tags.contains(tag, Qt::CaseInsensitive)) return tags;
    return tags + QStringList { tag };
}

QStringList withoutTag(const QStringList& tags, const QString& tag)
{
    QStringList rest = tags;
    rest.removeAll(tag);
    return rest;
}

QString tradeLine(const ClipTrade& trade)
{
    QStringList parts { QLocale::c().toString(
        ReferenceDate::toDateTime(trade.exitTime), QStringLiteral("MMM d, HH:mm")) };
    if (!trade.symbol.isEmpty()) parts << trade.symbol;
    QString position = trade.side;
    if (trade.quantity)
        position += (position.isEmpty() ? QString() : QStringLiteral(" ")) + QString::number(*trade.quantity);
    if (!position.isEmpty()) parts << position;
    parts << (trade.pnl ? formatPnL(trade.signedPnL(), trade.unit, 2) : label(trade.outcome));
    return parts.join(QStringLiteral(" · "));
}

QString pnlText(const ClipMeta& meta)
{
    if (!meta.pnl) return {};
    const QString magnitude = QString::asprintf("%.2f", std::abs(*meta.pnl));
    return meta.outcome == TradeOutcome::loss ? u'-' + magnitude : magnitude;
}

QString pnlPlaceholder(PnLUnit unit)
{
    switch (unit) {
    case PnLUnit::dollars:
        return QStringLiteral("0.00");
    case PnLUnit::R:
        return QStringLiteral("0.0R");
    case PnLUnit::points:
        return QStringLiteral("0 pts");
    case PnLUnit::ticks:
        return QStringLiteral("0 ticks");
    }
    return {};
}

PnLUnit nextUnit(PnLUnit unit)
{
    switch (unit) {
    case PnLUnit::dollars:
        return PnLUnit::R;
    case PnLUnit::R:
        return PnLUnit::points;
    case PnLUnit::points:
        return PnLUnit::ticks;
    case PnLUnit::ticks:
        return PnLUnit::dollars;
    }
    return PnLUnit::dollars;
}

TradeOutcome toggledOutcome(TradeOutcome current, TradeOutcome pressed)
{
    return current == pressed ? TradeOutcome::unset : pressed;
}

QString formatDuration(double seconds)
{
    const long long total = std::llround(std::max(seconds, 0.0));
    if (total < 3600) return QString::asprintf("%lld:%02lld", total / 60, total % 60);
    return QString::asprintf("%lld:%02lld:%02lld", total / 3600, total / 60 % 60, total % 60);
}

QString relativeDate(const QDateTime& date, const QDateTime& now)
{
    if (!date.isValid()) return QStringLiteral("—");
    const qint64 delta = date.secsTo(now);
    const qint64 span = std::abs(delta);
    struct Unit {
        qint64 seconds;
        const char* one;
        const char* many;
    };
    static constexpr Unit units[] = { { 365 * 86400, "year", "years" }, { 30 * 86400, "month", "months" },
        { 7 * 86400, "week", "weeks" }, { 86400, "day", "days" }, { 3600, "hour", "hours" },
        { 60, "minute", "minutes" }, { 1, "second", "seconds" } };
    if (span < 1) return QStringLiteral("now");
    for (const Unit& unit : units) {
        if (span < unit.seconds) continue;
        const qint64 count = span / unit.seconds;
        if (unit.seconds == 86400 && count == 1)
            return delta > 0 ? QStringLiteral("yesterday") : QStringLiteral("tomorrow");
        const QString amount = QStringLiteral("%1 %2").arg(count).arg(QLatin1String(count == 1 ? unit.one : unit.many));
        return delta > 0 ? amount + QStringLiteral(" ago") : QStringLiteral("in ") + amount;
    }
    return QStringLiteral("now");
}

QString byteCount(qint64 bytes)
{
    if (bytes < 1000) return bytes == 1 ? QStringLiteral("1 byte") : QStringLiteral("%1 bytes").arg(bytes);
    return QLocale::c().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

} // namespace ClipEdits
