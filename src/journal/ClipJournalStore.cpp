#include "journal/ClipJournalStore.h"

#include "core/KeyedJobs.h"
#include "journal/ClipMetaStore.h"
#include "journal/ClipNameParser.h"
#include "journal/JournalTradesFile.h"

#include <QDir>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QSet>
#include <QTimer>

#include <algorithm>
#include <vector>

namespace {

const QString scanJob = QStringLiteral("rescan");

} // namespace

ClipJournalStore::ClipJournalStore(std::optional<QUrl> savePath, QObject* parent)
    : QObject(parent)
    , savePathValue(std::move(savePath))
    , watcher(new QFileSystemWatcher(this))
    , settle(new QTimer(this))
    , jobs(new KeyedJobs(1, this))
{
    settle->setSingleShot(true);
    settle->setInterval(settleMilliseconds);
    connect(settle, &QTimer::timeout, this, &ClipJournalStore::rescanInBackground);
    connect(watcher, &QFileSystemWatcher::directoryChanged, this, &ClipJournalStore::changedOnDisk);
    connect(watcher, &QFileSystemWatcher::fileChanged, this, &ClipJournalStore::changedOnDisk);
    scheduleRescan();
}

void ClipJournalStore::setSavePath(std::optional<QUrl> path)
{
    savePathValue = std::move(path);
    ++generation;
    emit savePathChanged();
    scheduleRescan();
}

void ClipJournalStore::setDisplayUnit(PnLUnit unit)
{
    displayUnitValue = unit;
    emit displayUnitChanged();
}

void ClipJournalStore::setFilter(const JournalFilter& filter)
{
    if (filter == filterValue) return;
    filterValue = filter;
    emit filterChanged();
}

void ClipJournalStore::scheduleRescan()
{
    // Queued on this object's thread: it runs after the current assignment has finished, and not at
    // all if the store is gone by then.
    QMetaObject::invokeMethod(this, &ClipJournalStore::rescan, Qt::QueuedConnection);
}

QString ClipJournalStore::folderPath() const
{
    return savePathValue ? savePathValue->toLocalFile() : QString();
}

void ClipJournalStore::rescan()
{
    Scan found = scan(folderPath());
    ++generation;
    clipList = std::move(found.clips);
    withoutClipList = std::move(found.withoutClip);
    watch(found.sidecars);
    emit clipsChanged();
}

void ClipJournalStore::watch(const QStringList& sidecars)
{
    const QString folder = folderPath();
    QStringList wanted;
    if (!folder.isEmpty() && QFileInfo(folder).isDir()) {
        wanted << QDir::cleanPath(folder);
        wanted << sidecars.mid(0, maxWatchedSidecars);
    }
    const QStringList watched = watchedPaths();
    const QSet<QString> keep(wanted.begin(), wanted.end());
    QSet<QString> have(watched.begin(), watched.end());
    QStringList gone;
    for (const QString& path : watched)
        if (!keep.contains(path)) gone << path;
    QStringList added;
    // Two clips that differ only in extension share a sidecar: each path once.
    for (const QString& path : wanted)
        if (!have.contains(path)) {
            have.insert(path);
            added << path;
        }
    if (!gone.isEmpty()) watcher->removePaths(gone);
    // A path that cannot be watched (the limit of watches reached) is simply not followed: the
    // folder's own watch and the journal screen's rescan on showing still catch up.
    if (!added.isEmpty()) watcher->addPaths(added);
}

QStringList ClipJournalStore::watchedPaths() const
{
    return watcher->directories() + watcher->files();
}

void ClipJournalStore::changedOnDisk()
{
    if (jobs->isRunning(scanJob)) changedDuringScan = true;
    // Each change restarts the wait, but a folder that never falls quiet (a program rewriting a
    // sidecar over and over) is still read at least every so often.
    if (!settle->isActive()) {
        unsettled.start();
    } else if (unsettled.elapsed() >= maxSettleMilliseconds) {
        return;
    }
    settle->start();
}

void ClipJournalStore::rescanInBackground()
{
    const QString folder = folderPath();
    const quint64 startedAt = generation;
    changedDuringScan = false;
    const bool started = jobs->start(
        scanJob, [folder] { return scan(folder); },
        [this, folder, startedAt](Scan found) {
            if (changedDuringScan) {
                // What was read may already be old: read once more when the folder is quiet.
                changedDuringScan = false;
                settle->start();
            }
            if (generation != startedAt || folder != folderPath()) return;
            watch(found.sidecars);
            if (found.clips == clipList && found.withoutClip == withoutClipList) return;
            ++generation;
            clipList = std::move(found.clips);
            withoutClipList = std::move(found.withoutClip);
            emit clipsChanged();
        });
    // One scan at a time: the one under way was started before this change, so another follows it.
    if (!started) changedDuringScan = true;
}

ClipJournalStore::Scan ClipJournalStore::scan(const QString& folder)
{
    if (folder.isEmpty()) return {};
    const QDir dir(folder);
    // Without QDir::Hidden, names that begin with a dot are skipped. Sorted by name so that clips of
    // equal date come out in the same order on every run.
    const QStringList names = dir.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    const QSet<QString> listed(names.begin(), names.end());

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

    Scan found;
    // A trades file that can't be read counts as none; the import says so and leaves it alone.
    found.withoutClip = JournalTradesFile::load(folder).trades;
    found.clips.reserve(static_cast<qsizetype>(dated.size()));
    for (Dated& d : dated) {
        const QString sidecar = ClipMetaStore::sidecarPath(d.entry.url);
        if (listed.contains(QFileInfo(sidecar).fileName())) found.sidecars << QDir::cleanPath(sidecar);
        found.clips.push_back(std::move(d.entry));
    }
    return found;
}

void ClipJournalStore::update(const ClipEntry& entry, const ClipMeta& meta)
{
    ClipMetaStore::save(meta, entry.url);
    const auto found = std::find(clipList.begin(), clipList.end(), entry);
    if (found == clipList.end()) return;
    found->meta = meta;
    emit clipsChanged();
}
