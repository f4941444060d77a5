#pragma once

#include "journal/ClipEntry.h"
#include "journal/JournalMetrics.h"
#include "journal/PnLUnit.h"

#include <QList>
#include <QObject>
#include <QUrl>

#include <optional>

// The observable model of the journal: every clip of the save folder with its sidecar, newest first,
// and the unit in which the journal is viewed. It keeps no journal data of its own: the files are
// the truth and `clips` is a cache that `rescan` rebuilds whole. There is no file-system watching;
// between a change on disk and the next rescan the list is stale by design.
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
    std::optional<QUrl> savePath() const { return savePathValue; }
    PnLUnit displayUnit() const { return displayUnitValue; }

    // Every assignment notifies and queues a rescan, also when the folder did not change: the
    // session controller assigns after the setting changed, and a queued rescan always runs after
    // the assignment.
    void setSavePath(std::optional<QUrl> path);
    // Not persisted; only re-filters the statistics, so it needs neither the disk nor a rescan.
    void setDisplayUnit(PnLUnit unit);

    // Lists the folder again and replaces `clips` in one assignment, so observers see one change.
    // Without a folder, or when it can't be listed, the journal is empty; nothing is reported.
    void rescan();

    // Saves the record to disk first (without looking at the outcome), then replaces the record of
    // the first clip equal to `entry` in all four fields, in place. A stale `entry` is a dead end
    // on purpose: the disk is updated, the list catches up at the next rescan.
    void update(const ClipEntry& entry, const ClipMeta& meta);

    // The clips of a folder as a rescan makes them: flat, hidden files skipped, ".mp4" in any case,
    // newest first with ties in listing (name) order. Empty if the folder can't be listed.
    static QList<ClipEntry> scanFolder(const QString& folder);

    // The statistics over the current clips in the current unit.
    JournalMetrics metrics() const { return JournalMetrics(clipList, displayUnitValue); }

signals:
    void clipsChanged();
    void savePathChanged();
    void displayUnitChanged();

private:
    void scheduleRescan();

    QList<ClipEntry> clipList;
    std::optional<QUrl> savePathValue;
    PnLUnit displayUnitValue = PnLUnit::dollars;
};
