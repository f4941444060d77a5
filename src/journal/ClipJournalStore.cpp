#include "journal/ClipJournalStore.h"

#include "journal/ClipMetaStore.h"
#include "journal/ClipNameParser.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <vector>

ClipJournalStore::ClipJournalStore(std::optional<QUrl> savePath, QObject* parent)
    : QObject(parent)
    , savePathValue(std::move(savePath))
{
    scheduleRescan();
}

void ClipJournalStore::setSavePath(std::optional<QUrl> path)
{
    savePathValue = std::move(path);
    emit savePathChanged();
    scheduleRescan();
}

void ClipJournalStore::setDisplayUnit(PnLUnit unit)
{
    displayUnitValue = unit;
    emit displayUnitChanged();
}

void ClipJournalStore::scheduleRescan()
{
    // Queued on this object's thread: it runs after the current assignment has finished, and not at
    // all if the store is gone by then.
    QMetaObject::invokeMethod(this, &ClipJournalStore::rescan, Qt::QueuedConnection);
}

void ClipJournalStore::rescan()
{
    clipList = savePathValue ? scanFolder(savePathValue->toLocalFile()) : QList<ClipEntry> {};
    emit clipsChanged();
}

QList<ClipEntry> ClipJournalStore::scanFolder(const QString& folder)
{
    if (folder.isEmpty()) return {};
    const QDir dir(folder);
    // Without QDir::Hidden, names that begin with a dot are skipped. Sorted by name so that clips of
    // equal date come out in the same order on every run.
    const QStringList names = dir.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name);

    struct Dated {
        double date;
        ClipEntry entry;
    };
    std::vector<Dated> dated;
    dated.reserve(static_cast<size_t>(names.size()));
    for (const QString& name : names) {
        const qsizetype dot = name.lastIndexOf(u'.');
        if (dot <= 0 || name.size() - dot != 4 || name.mid(dot + 1).toLower() != QLatin1StringView("mp4")) continue;
        ClipEntry entry;
        entry.url = QUrl::fromLocalFile(dir.filePath(name));
        const ClipNameParser::Parsed parsed = ClipNameParser::parse(entry.url);
        entry.parsedDate = parsed.date;
        entry.parsedTicker = parsed.ticker;
        entry.meta = ClipMetaStore::load(entry.url);
        // The date is taken once per entry: a clip without any date sorts by "now", and asking the
        // clock inside the comparison would not give a consistent order.
        const double date = entry.date();
        dated.push_back({ date, std::move(entry) });
    }
    std::stable_sort(dated.begin(), dated.end(), [](const Dated& a, const Dated& b) { return a.date > b.date; });

    QList<ClipEntry> clips;
    clips.reserve(static_cast<qsizetype>(dated.size()));
    for (Dated& d : dated)
        clips.push_back(std::move(d.entry));
    return clips;
}

void ClipJournalStore::update(const ClipEntry& entry, const ClipMeta& meta)
{
    ClipMetaStore::save(meta, entry.url);
    const auto found = std::find(clipList.begin(), clipList.end(), entry);
    if (found == clipList.end()) return;
    found->meta = meta;
    emit clipsChanged();
}
