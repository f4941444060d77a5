#pragma once

#include "core/MediaTime.h"
#include "media/MediaSample.h"
#include "recorder/SegmentEncoder.h"

#include <QString>

#include <memory>
#include <optional>

// The writer of one segment file (MP4): HEVC video from BGRA frames and, optionally, AAC mono
// 44100 Hz audio. The encoding runs on a SegmentEncoder's thread behind a small bounded queue; a
// full queue means "not ready", and the caller drops the sample rather than wait. Writers that
// share one encoder (the ring's) share its encoders too: a new file costs no start-up and the sound
// runs on from one file into the next. A writer made without an encoder has one of its own.
//
// Threads: one owner drives it (the recorder's queue, or the closing that took it over);
// isReadyForMoreMediaData and status may be read from any thread.
class SegmentWriter {
public:
    enum class Status { unknown, writing, completed, failed, cancelled };
    using VideoSettings = SegmentEncoder::VideoSettings;

    // Fails (status failed, error set) when a regular file already exists at `path`.
    explicit SegmentWriter(QString path, std::shared_ptr<SegmentEncoder> encoder = {});
    // Abandons an unfinished file: what was written stays, without an index.
    ~SegmentWriter();
    SegmentWriter(const SegmentWriter&) = delete;
    SegmentWriter& operator=(const SegmentWriter&) = delete;

    // Before startWriting. False when the input cannot be added.
    bool addVideoInput(const VideoSettings& settings);
    bool addAudioInput();
    bool hasVideoInput() const;
    bool hasAudioInput() const;
    // True (the default): a full queue makes the writer "not ready" and the caller drops the
    // sample, as a live source must. False: isReadyFor… waits for room instead, so that a source
    // faster than real time (a test, a benchmark) is paced rather than thinned. Applies to the
    // encoder, and so to every writer that shares it.
    void setExpectsMediaDataInRealTime(bool realTime);
    // How long finishWriting waits for the sound of the file's last moments, which comes a little
    // after the picture; 0 (the default): not at all.
    void setSoundGraceMilliseconds(int milliseconds) { soundGraceMs = milliseconds; }

    // Opens the file. False with error() on failure.
    bool startWriting();
    // The file's time zero is this source time; earlier samples are not written.
    void startSession(const MediaTime& sourceTime);
    // The file ends at this source time: the last picture lasts until then, however long ago it
    // came (a still screen sends no frames). Without it the last picture lasts as long as the
    // interval before it. Before finishWriting.
    void endSession(const MediaTime& sourceTime);

    bool isReadyForMoreMediaData() const; // the video input
    bool isReadyForMoreAudioData() const; // the audio input
    // Whether a frame at `pts`, appended next, would be a key frame of this file.
    bool isKeyFrameDue(const MediaTime& pts) const;
    // Queue a frame / audio buffer; false (and nothing queued) when not ready or not writing.
    // Sound goes to the encoder, which puts it into the file whose span it falls in.
    bool append(const VideoFrame& frame);
    bool appendAudio(const AudioBuffer& buffer);
    // No more pictures will come.
    void markAsFinished();
    // Writes what is left and the index; returns when the file is complete (or has failed). Blocks.
    Status finishWriting();

    Status status() const;
    QString error() const;
    const QString& path() const { return filePath; }

private:
    QString filePath;
    std::shared_ptr<SegmentEncoder> encoder;
    std::shared_ptr<SegmentEncoder::File> file;
    std::optional<VideoSettings> video;
    bool audio = false;
    bool started = false;
    bool finished = false;
    int soundGraceMs = 0;
    MediaTime end;
    QString openError;
};
