#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

// One run's folder of segment files, <parent>/segments-XXXXXXXX, with the proof that its owner
// still runs: a lock file inside it, held with flock() for the life of this object. The kernel lets
// go of the lock when the process ends, however it ends, so a later start tells the folders of
// crashed runs from those of running ones without trusting process ids, which get reused.
//
// The segments show the user's screen: the folder and its parent are the user's alone (mode 700),
// and never a folder that another user made or can enter.
//
// Not thread-safe; made and destroyed by the recorder's owner.
class SegmentFolder {
public:
    // Hidden, so that a listing of the segment files does not show it.
    static constexpr const char* lockFileName = ".lock";

    // Where a run's folder may go, best first, from the environment as it is now:
    // $XDG_RUNTIME_DIR/velotape (the user's own, usually in memory), $XDG_CACHE_HOME/velotape
    // (~/.cache/velotape), $TMPDIR/velotape-<uid>. Missing variables leave their place out.
    static QStringList candidateParents();
    // The first of `candidates` that is private to this user (made with mode 700 when missing; one
    // that is not is passed over with a log line) and whose file system has `bytesNeeded` free. When
    // none has that room, the private one with the most; none when no candidate is private.
    static std::optional<QString> chooseParent(int64_t bytesNeeded, const QStringList& candidates = candidateParents());
    // Free bytes on the file system that holds `path`; -1 when it cannot be told.
    static int64_t freeBytesAt(const QString& path);

    // Makes a fresh folder for a ring that needs `bytesNeeded`, under chooseParent's choice, or in a
    // fresh private folder of the temporary directory when no candidate will do. A failure is
    // logged; the path is still given, and writers that cannot open there say the rest.
    explicit SegmentFolder(int64_t bytesNeeded);
    // Makes a fresh folder under `parent`, which must be private already, and takes its lock.
    explicit SegmentFolder(const QString& parent);
    // Removes the folder.
    ~SegmentFolder();
    SegmentFolder(const SegmentFolder&) = delete;
    SegmentFolder& operator=(const SegmentFolder&) = delete;

    const QString& path() const { return folder; }
    // Whether the lock is held, that is, whether a sweep of another run will leave the folder alone.
    bool isLocked() const { return lockFd >= 0; }
    // Whether the folder is still where it was made: something else may remove it under a running
    // program (a cleaner of temporary files, a careless command).
    bool exists() const;
    // Makes a removed folder again at its path, private and locked. False when it cannot be.
    bool recreate();
    // Removes the folder and everything in it, then lets go of the lock. Failures are ignored;
    // calling it again does nothing.
    void remove();

    struct SweepResult {
        int removed = 0; // folders of runs that are gone
        int64_t bytes = 0; // what they held
        int alive = 0; // folders of running instances (or of other users), left alone
    };
    // Removes the segment folders under `parent` whose owner has gone: a lock file that nobody
    // holds, or none at all (a run that died while making it, or a build from before the lock).
    // `own` is never touched nor counted.
    static SweepResult sweepStale(const QString& parent, const QString& own = {});
    // sweepStale under each of the candidate parents that is this user's alone: another user's
    // folders are never looked into.
    static SweepResult sweepStaleEverywhere(const QString& own = {});

private:
    // Makes <parent>/segments-XXXXXXXX and locks it; false (with *failure) when it cannot.
    bool makeUnder(const QString& parent, QString* failure);
    bool makeAndLock(QString* failure);

    QString folder;
    int lockFd = -1;
};
