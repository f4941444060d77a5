#pragma once

#include <QString>

#include <array>
#include <atomic>
#include <cstdint>

// The one place where every frame and audio buffer that the recording loses on its way between
// threads is counted, by why it was lost. The capture engine, the ring and the audio path report
// here; the status line and the ring's per-segment log read it. Previews the window never got are
// not losses and are not counted.
//
// Called from any thread: counts are relaxed atomics, and a snapshot is a consistent-enough copy
// for reading, not a transaction.
class DropCounters {
public:
    enum class Cause {
        // The capture let a change of the screen go: every picture buffer was still held downstream.
        captureBacklog,
        // A frame came while the ring's queue already held as many as it may: the ring was behind.
        ringBacklog,
        // The encoder's queue was full: it could not keep up.
        encoderBusy,
        // No segment was open to take the frame (its writer could not be made, or had failed).
        noSegment,
        // A buffer of sound came while the ring's queue already held as many as it may.
        audioBacklog,
        // The sound encoder's queue was full.
        audioEncoderBusy,
        // Sound that came later than sound already in the track (a lagging second source).
        audioLate,
        // Sound for a moment too far beyond the ring's present time to be held until then.
        audioAhead,
    };
    static constexpr int causeCount = int(Cause::audioAhead) + 1;

    struct Snapshot {
        std::array<int64_t, causeCount> counts {};
        int64_t operator[](Cause cause) const { return counts[size_t(cause)]; }
        bool isEmpty() const;
        int64_t total() const;
        // What was counted since `earlier`.
        Snapshot since(const Snapshot& earlier) const;
        // "12 frames (ring behind), 3 audio buffers (sound encoder busy)"; empty when nothing was lost.
        QString describe() const;
    };

    void add(Cause cause, int64_t count = 1) { counts[size_t(cause)].fetch_add(count, std::memory_order_relaxed); }
    int64_t count(Cause cause) const { return counts[size_t(cause)].load(std::memory_order_relaxed); }
    Snapshot snapshot() const;

private:
    std::array<std::atomic<int64_t>, causeCount> counts {};
};
