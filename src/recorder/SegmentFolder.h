#pragma once

#include <QString>

#include <cstdint>

// One run's folder of segment files, <temp>/Velotape2/segments-XXXXXXXX, with the proof that its
// owner still runs: a lock file inside it, held with flock() for the life of this object. The
// kernel lets go of the lock when the process ends, however it ends, so a later start tells the
// folders of crashed runs from those of running ones without trusting process ids, which get
// reused.
//
// Not thread-safe; made and destroyed by the recorder's owner.
class SegmentFolder {
public:
    // Hidden, so that a listing of the segment files does not show it.
    static constexpr const char* lockFileName = ".lock";

    // <temp>/Velotape2: where every run makes its folder.
    static QString defaultParent();

    // Makes a fresh folder under `parent` and takes its lock. A failure is logged; the path is
    // still given, and writers that cannot open there say the rest.
    explicit SegmentFolder(const QString& parent = defaultParent());
    // Removes the folder.
    ~SegmentFolder();
    SegmentFolder(const SegmentFolder&) = delete;
    SegmentFolder& operator=(const SegmentFolder&) = delete;

    const QString& path() const { return folder; }
    // Whether the lock is held, that is, whether a sweep of another run will leave the folder alone.
    bool isLocked() const { return lockFd >= 0; }
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
    static SweepResult sweepStale(const QString& parent = defaultParent(), const QString& own = {});

private:
    QString folder;
    int lockFd = -1;
};
