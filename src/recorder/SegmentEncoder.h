#pragma once

#include "core/MediaTime.h"
#include "media/MediaSample.h"

#include <QString>

#include <memory>

class HevcEncoderChoice;

// The encoders of the ring, alive across its segment files: one HEVC and one AAC encoder on their
// own thread behind a small bounded queue. Segment files come and go; the encoders do not, so a
// new segment costs no encoder start-up, closing one has nothing to drain, and the sound runs on
// as one stream from file to file, with no gap or fade at the joins. Each packet goes into the
// file whose span holds its time; the first picture of every file is a key frame.
//
// Threads: every method may be called from any thread; files are written on the encoder's thread.
class SegmentEncoder {
public:
    enum class Status { unknown, writing, completed, failed };

    struct VideoSettings {
        int width = 1920;
        int height = 1080;
        int64_t averageBitRate = 20000000;
        int expectedFPS = 60;
        friend bool operator==(const VideoSettings&, const VideoSettings&) = default;
    };

    // One file of the ring: where packets of its span go.
    class File;

    // Video is encoded with what `choice` opens: the process's choice unless a test brings its own.
    explicit SegmentEncoder(std::shared_ptr<HevcEncoderChoice> choice = {});
    // Stops the thread; files not finished are abandoned unwritten.
    ~SegmentEncoder();
    SegmentEncoder(const SegmentEncoder&) = delete;
    SegmentEncoder& operator=(const SegmentEncoder&) = delete;

    // True (the default): a full queue makes the encoder "not ready" and the caller drops the
    // sample, as a live source must. False: readiness waits for room, so that a source faster than
    // real time (a test, a benchmark) is paced rather than thinned.
    void setExpectsMediaDataInRealTime(bool realTime);

    // Opens `path` for pictures of `video` and, if `withAudio`, sound. Fails (a file with status
    // failed and an error) when the file cannot be made.
    std::shared_ptr<File> openFile(const QString& path, const VideoSettings& video, bool withAudio);
    // The file's span starts at `start` (its time zero). Before anything is appended for it.
    void beginFile(const std::shared_ptr<File>& file, const MediaTime& start);
    // The file is given up: what was written stays as it is, without an index.
    void abandonFile(const std::shared_ptr<File>& file);

    bool isReadyForMoreMediaData() const;
    bool isReadyForMoreAudioData() const;
    // A picture for `file`. False (and nothing queued) when not ready or the file no longer takes any.
    bool append(const std::shared_ptr<File>& file, const VideoFrame& frame);
    // Whether a picture at `pts`, appended next for `file`, would be one of its key frames: the
    // first picture, one every expectedFPS pictures, and whatever keeps key frames at most a second
    // apart when pictures come slower than expected.
    bool keyFrameDue(const std::shared_ptr<File>& file, const MediaTime& pts) const;
    // Sound, in the order of its times; it goes into the files whose spans it falls in.
    bool appendAudio(const AudioBuffer& buffer);
    // The file's span ends at `end`; its last picture lasts until then. The file is complete once
    // the sound up to `end` has been encoded, or at once when `awaitSound` is false.
    void endFile(const std::shared_ptr<File>& file, const MediaTime& end, bool awaitSound);
    // Blocks until the file is complete or has failed; after `graceMs` without the sound of its
    // last moments it completes without it.
    Status finishFile(const std::shared_ptr<File>& file, int graceMs);

    Status status(const File& file) const;
    QString error(const File& file) const;

private:
    struct Impl;
    std::shared_ptr<Impl> impl;
};
