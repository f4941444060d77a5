#pragma once

#include "media/FFmpegHandles.h"
#include "media/MediaSample.h"

#include <QString>

#include <functional>
#include <memory>

// AAC, mono, 44100 Hz, 128 kb/s, with FFmpeg's native encoder, fed with PCM in whatever format the
// source delivers (float or 16-bit, any rate, any channel count; libswresample converts and
// downmixes). Audio is kept as one continuous stream of samples: a buffer that starts later than
// the stream's end leaves silence in between, one that starts earlier loses its overlapping head,
// and differences within a few milliseconds count as the clock's jitter. Not thread-safe.
class AudioEncoder {
public:
    static constexpr int sampleRate = 44100;
    static constexpr int bitRate = 128000;

    // Receives every packet the encoder gives (time base 1/44100); a negative result stops the
    // encoding with that error.

    static std::unique_ptr<AudioEncoder> open(QString* error);
    ~AudioEncoder();

    // Takes `buffer` whose first sample belongs at `position` (in samples of 44100 Hz from the
    // file's zero; negative positions lose their part before zero). 0 or a negative FFmpeg error.
    int send(const AudioBuffer& buffer, int64_t position, const PacketSink& sink);
    // Silence from where the stream stands (the file's zero before the first buffer) up to
    // `position`, so that a source that starts late or stalls leaves no hole. 0 or an FFmpeg error.
    int padTo(int64_t position, const PacketSink& sink);
    // Encodes what is left and drains the encoder.
    int finish(const PacketSink& sink);

    AVCodecContext* context() const { return codec.get(); }
    // Where the next sample would go if it came without a gap; -1 before the first.
    int64_t endPosition() const { return nextPosition; }

private:
    AudioEncoder() = default;
    int convert(const AudioBuffer& buffer, FramePtr& out);
    int encodeFullFrames(bool includePartial, const PacketSink& sink);

    CodecContextPtr codec;
    SwrContextPtr resampler;
    AudioBuffer::SampleFormat resamplerFormat = AudioBuffer::SampleFormat::Float32;
    int resamplerRate = 0;
    int resamplerChannels = 0;
    AudioFifoPtr fifo;
    PacketPtr packet;
    int64_t nextPosition = -1; // position of the sample after the last one in the fifo
    int64_t framePosition = 0; // position of the fifo's first sample
};
