#pragma once

#include "app/session/SessionModels.h"
#include "journal/ClipEntry.h"
#include "journal/ClipTrade.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QUrl>

#include <optional>

class ClipThumbnailer;
class KeyedJobs;

// What the clips screen knows and does, apart from how it looks: its own listing of the save
// folder (the card is about the file), the one clip being renamed and the one whose journal panel
// is open, and the operations on a clip. The journal records are read from and written through the
// controller's journal store; every failure reaches the user through the controller's toast.
//
// Main thread only, like the file operations it runs; only the thumbnails are made elsewhere.
class ClipsScreenModel : public QObject {
    Q_OBJECT
public:
    // A listed clip file. Not the journal's ClipEntry: this one is about the file.
    struct ClipEntry {
        QUrl id;
        qint64 size = 0; // bytes, 0 if unknown
        QDateTime modified; // invalid if unknown, which sorts as the distant past
    };

    // Keeps at most this many thumbnails beyond the cards in view: with thousands of clips a cache
    // of every preview would hold gigabytes once the user had scrolled through them all.
    static constexpr int thumbnailsKept = 160;

    explicit ClipsScreenModel(const SessionModels& m, QObject* parent = nullptr);

    const QList<ClipEntry>& clips() const { return listing; }
    ClipThumbnailer* thumbs() const { return thumbnailer; }
    QString saveFolder() const;

    // Lists the save folder again (flat, hidden files skipped, ".mp4" in any case), newest first,
    // and drops the thumbnails of clips no longer listed. A folder that can't be listed lists
    // nothing.
    void scanClips();
    static QList<ClipEntry> listFolder(const QString& folder);

    // The rename field: one clip at a time, its text kept here so that it outlives the card.
    const std::optional<QUrl>& renamingId() const { return renaming; }
    const QString& renameText() const { return renameBuffer; }
    void startRename(const QUrl& clip);
    void setRenameText(const QString& text);
    void cancelRename();
    // Moves the clip to the name in the field (see ClipEdits::renameTarget); a name taken by
    // another file, or a failed move, is a toast and changes nothing. Ends the rename in any case.
    // Only the MP4 moves: its sidecar keeps the old name, so the clip shows untagged.
    void commitRename(const QUrl& clip);

    // Into the freedesktop trash, with no question asked (the file manager restores it). The
    // sidecar stays in the folder.
    void deleteClip(const QUrl& clip);
    void openClip(const QUrl& clip);
    void revealClip(const QUrl& clip);
    void openSaveFolder();
    // The clip on the clipboard as a file, which pastes into a file manager or a chat application.
    void copyClip(const QUrl& clip);
    void copyPath(const QUrl& clip);

    // The clip's journal record: the store's, or the sidecar's when the store has not listed it.
    ClipMeta meta(const QUrl& clip) const;
    // Writes the record through the store when it lists the clip, else to the sidecar directly,
    // and then has the store list the folder again.
    void applyMeta(const QUrl& clip, const ClipMeta& meta);

    // Every setup tag of the journal, each once, for the tag field's completion.
    QStringList knownTags() const;
    // The imported trades that no clip saw, newest first: the screen lists them as lines.
    QList<ClipTrade> tradesWithoutClip() const;

    // Reads a broker's file of closed trades into the save folder's journal, off the main thread
    // (every clip's length is read). The summary, or why nothing was imported, comes as a toast and
    // as importFinished; the journal is then read again. One import at a time: false while one runs.
    bool importTrades(const QString& csvPath);
    bool isImporting() const;

    // The one clip whose journal panel is open.
    const std::optional<QUrl>& expandedId() const { return expanded; }
    void toggleJournal(const QUrl& clip);

    const std::optional<QUrl>& hoveredId() const { return hovered; }
    void setHovered(const QUrl& clip, bool inside);

    // Keeps the thumbnails of `near` (the cards in and around view) once the cache has grown past
    // thumbnailsKept.
    void trimThumbnails(const QList<QUrl>& near);

signals:
    // The listing was replaced.
    void clipsChanged();
    // A journal record may have changed (a tag written here, or the store listed the folder again).
    void metaChanged();
    // The rename field or the open journal panel moved to another clip, or closed.
    void editingChanged();
    void hoveredChanged();
    // An import ended: `summary` is what the toast said, `details` everything the import reported.
    void importFinished(const QString& summary, const QStringList& details);

private:
    const ::ClipEntry* journalEntry(const QUrl& clip) const;
    void toast(const QString& text);

    SessionModels models;
    ClipThumbnailer* thumbnailer;
    QList<ClipEntry> listing;
    std::optional<QUrl> renaming;
    QString renameBuffer;
    std::optional<QUrl> expanded;
    std::optional<QUrl> hovered;
    // Where each clip stands in the store's list; rebuilt on first use after the store changed.
    mutable QHash<QUrl, qsizetype> journalIndex;
    mutable bool journalIndexStale = true;
    mutable QStringList tagsKnown;
    mutable bool tagsStale = true;
    KeyedJobs* jobs;
};
