#include "journal/JournalFilter.h"

#include <QSet>

namespace {

QString clipSymbol(const ClipEntry& clip)
{
    if (clip.meta.ticker && !clip.meta.ticker->trimmed().isEmpty()) return clip.meta.ticker->trimmed();
    return clip.parsedTicker.value_or(QString()).trimmed();
}

bool sameText(const QString& a, const QString& b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

bool hasTag(const ClipEntry& clip, const QString& tag)
{
    for (const QString& t : clip.meta.tags)
        if (sameText(t, tag)) return true;
    return false;
}

// Each text once (the first spelling seen), sorted without regard to case.
QStringList distinct(const QStringList& texts)
{
    QSet<QString> seen;
    QStringList out;
    for (const QString& t : texts) {
        const QString trimmed = t.trimmed();
        if (trimmed.isEmpty() || seen.contains(trimmed.toLower())) continue;
        seen.insert(trimmed.toLower());
        out << trimmed;
    }
    out.sort(Qt::CaseInsensitive);
    return out;
}

} // namespace

bool JournalFilter::accepts(const ClipEntry& clip) const
{
    if (tag && !hasTag(clip, *tag)) return false;
    if (!symbol) return true;
    if (sameText(clipSymbol(clip), *symbol)) return true;
    // A clip the user tagged by hand still shows the instruments its trades were in.
    for (const ClipTrade& t : clip.meta.trades)
        if (sameText(t.symbol, *symbol)) return true;
    return false;
}

bool JournalFilter::accepts(const ClipTrade& trade, const ClipEntry* clip) const
{
    if (tag && (!clip || !hasTag(*clip, *tag))) return false;
    if (!symbol) return true;
    const QString own = trade.symbol.trimmed();
    return sameText(own.isEmpty() && clip ? clipSymbol(*clip) : own, *symbol);
}

QStringList JournalFilter::symbols(const QList<ClipEntry>& clips, const QList<ClipTrade>& withoutClip)
{
    QStringList all;
    for (const ClipEntry& c : clips) {
        all << clipSymbol(c);
        for (const ClipTrade& t : c.meta.trades)
            all << t.symbol;
    }
    for (const ClipTrade& t : withoutClip)
        all << t.symbol;
    return distinct(all);
}

QStringList JournalFilter::tags(const QList<ClipEntry>& clips)
{
    QStringList all;
    for (const ClipEntry& c : clips)
        all += c.meta.tags;
    return distinct(all);
}
