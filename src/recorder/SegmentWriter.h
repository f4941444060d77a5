#pragma once

#include "core/MediaTime.h"
#include "media/MediaSample.h"

#include <QString>

#include <memory>

// The writer of one segment file (MP4): HEVC video from BGRA frames and, optionally, AAC mono
// 44100 Hz audio. Encoding and muxing run on the writer's own thread behind a small bounded
// queue; a full queue means "not ready", and the caller drops the sample rather than wait.
//
// Threads: one owner drives it (the recorder's queue, or the closing that took it over);
// isReadyForMoreMediaData and status may be read from any thread.
class SegmentWriter {
public:
    enum class Status { unknown, writing, completed, failed, cancelled };

    struct VideoSettings {
        int width = 1920;
        int height = 1080;
        int64_t averageBitRate = 20000000;
        int expectedFPS = 60;
    };

    // Fails (status failed, error set) when a regular file already exists at `path`.
    explicit SegmentWriter(QString path);
    // Abandons an unfinished file: stops the encoding thread without writing the index.
    ~SegmentWriter();
    SegmentWriter(const SegmentWriter&) = delete;
    SegmentWriter& operator=(const SegmentWriter&) = delete;

    // Before startWriting. False when the input cannot be added (e.g. no encoder).
    bool addVideoInput(const VideoSettings& settings);
    bool addAudioInput();
    bool hasVideoInput() const;
    bool hasAudioInput() const;
    // True (the default): a full queue makes the writer "not ready" and the caller drops the
    // sample, as a live source must. False: isReadyFor… waits for room instead, so that a source
    // faster than real time (a test, a benchmark) is paced rather than thinned.
    void setExpectsMediaDataInRealTime(bool realTime);

    // Opens the encoders and the file. False with error() on failure.
    bool startWriting();
    // The file's time zero is this source time; earlier samples are not written.
    void startSession(const MediaTime& sourceTime);
    // The file ends at this source time: the last picture lasts until then, however long ago it
    // came (a still screen sends no frames). Without it the last picture lasts as long as the
    // interval before it. Before finishWriting.
    void endSession(const MediaTime& sourceTime);

    bool isReadyForMoreMediaData() const; // the video input
    bool isReadyForMoreAudioData() const; // the audio input
    // Queue a frame / audio buffer; false (and nothing queued) when not ready or not writing.
    bool append(const VideoFrame& frame);
    bool appendAudio(const AudioBuffer& buffer);
    // No more samples will come.
    void markAsFinished();
    // Drains the queue, flushes the encoders and writes the index; returns when the file is
    // complete (or has failed). Blocks.
    Status finishWriting();

    Status status() const;
    QString error() const;
    const QString& path() const { return filePath; }

private:
    struct Impl;
    QString filePath;
    std::unique_ptr<Impl> impl;
};
