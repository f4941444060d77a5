#pragma once

#include "journal/ClipEntry.h"
#include "journal/ClipTrade.h"
#include "journal/JournalFilter.h"
#include "journal/JournalMetrics.h"
#include "journal/PnLUnit.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QUrl>

#include <optional>

class KeyedJobs;
class QFileSystemWatcher;
class QTimer;

// The observable model of the journal: every clip of the save folder with its sidecar, newest first,
// and the unit in which the journal is viewed. It keeps no journal data of its own: the files are
// the truth and `clips` is a cache that `rescan` rebuilds whole.
//
// The store follows the folder by itself: a clip or sidecar created, renamed, removed or rewritten
// there by another program (a script, an editor, `velotape detect --write`) is read once the
// folder has been quiet for `settleMilliseconds`, so a burst of writes costs one rescan. That
// rescan lists the folder on a background thread, since a large folder takes a noticeable time,
// and replaces `clips` only if something changed and no rescan or update came after it started.
//
// Main thread only. The statistics are computed from `clips` and `displayUnit` on every read.
class ClipJournalStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<ClipEntry> clips READ clips NOTIFY clipsChanged)
    Q_PROPERTY(std::optional<QUrl> savePath READ savePath WRITE setSavePath NOTIFY savePathChanged)
    Q_PROPERTY(PnLUnit displayUnit READ displayUnit WRITE setDisplayUnit NOTIFY displayUnitChanged)

public:
    // Queues a rescan on the main loop; the caller does not wait for it.
    explicit ClipJournalStore(std::optional<QUrl> savePath, QObject* parent = nullptr);

    const QList<ClipEntry>& clips() const { return clipList; }
    // The imported trades that no clip saw (JournalTradesFile), read with the clips; they change
    // with them, under the same signal.
    const QList<ClipTrade>& tradesWithoutClip() const { return withoutClipList; }
    std::optional<QUrl> savePath() const { return savePathValue; }
    PnLUnit displayUnit() const { return displayUnitValue; }

    // Every assignment notifies and queues a rescan, also when the folder did not change: the
    // session controller assigns after the setting changed, and a queued rescan always runs after
    // the assignment.
    void setSavePath(std::optional<QUrl> path);
    // Not persisted; only re-filters the statistics, so it needs neither the disk nor a rescan.
    void setDisplayUnit(PnLUnit unit);
    // The symbol or tag the statistics are narrowed to; like the unit, not persisted.
    const JournalFilter& filter() const { return filterValue; }
    void setFilter(const JournalFilter& filter);

    // Lists the folder again and replaces `clips` in one assignment, so observers see one change.
    // Without a folder, or when it can't be listed, the journal is empty; nothing is reported.
    void rescan();

    // Saves the record to disk first (without looking at the outcome), then replaces the record of
    // the first clip equal to `entry` in all four fields, in place. A stale `entry` is a dead end
    // on purpose: the disk is updated, the list catches up at the next rescan.
    void update(const ClipEntry& entry, const ClipMeta& meta);

    // How long the save folder must be quiet after a change before it is read again.
    static constexpr int settleMilliseconds = 300;
    // The longest a rescan waits for a folder that keeps changing.
    static constexpr int maxSettleMilliseconds = 2000;
    // Sidecars are watched one by one (a folder watch does not see a file rewritten in place), those
    // of the newest clips first and no more than this many: watches are a per-user resource.
    static constexpr int maxWatchedSidecars = 1000;

    struct Scan {
        QList<ClipEntry> clips;
        // The paths of the sidecars that exist beside the clips, in the order of `clips`.
        QStringList sidecars;
        QList<ClipTrade> withoutClip;
    };
    // The clips of a folder as a rescan makes them: flat, hidden files skipped, ".mp4" in any case,
    // newest first with ties in listing (name) order. Empty if the folder can't be listed. Touches
    // nothing but the files, so it may run on any thread.
    static Scan scan(const QString& folder);
    static QList<ClipEntry> scanFolder(const QString& folder) { return scan(folder).clips; }

    // The files being watched for changes: the save folder and the sidecars of its newest clips.
    QStringList watchedPaths() const;

    // The statistics over the current clips and trades in the current unit, through the filter.
    JournalMetrics metrics() const { return JournalMetrics(clipList, displayUnitValue, withoutClipList, filterValue); }

signals:
    void clipsChanged();
    void savePathChanged();
    void displayUnitChanged();
    void filterChanged();

private:
    void scheduleRescan();
    QString folderPath() const;
    // Watches the folder (again: it may have been removed and made anew) and exactly the sidecars
    // of the newest clips of the last scan.
    void watch(const QStringList& sidecars);
    void changedOnDisk();
    void rescanInBackground();

    QList<ClipEntry> clipList;
    QList<ClipTrade> withoutClipList;
    JournalFilter filterValue;
    std::optional<QUrl> savePathValue;
    PnLUnit displayUnitValue = PnLUnit::dollars;
    QFileSystemWatcher* watcher;
    QTimer* settle;
    QElapsedTimer unsettled; // since the first change the settle timer waits on
    KeyedJobs* jobs;
    // Counts the changes of `clips` and `savePath` made here, so that a background scan that
    // started before one of them does not overwrite it with what it read.
    quint64 generation = 0;
    // A change on disk arrived while a background scan ran: it may have missed it.
    bool changedDuringScan = false;
};
