#include "media/AudioEncoder.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cstring>

namespace {

// Capture clocks wander by a few milliseconds between buffers; closer than this is "contiguous".
constexpr int64_t jitterSamples = AudioEncoder::sampleRate / 100;

} // namespace

std::unique_ptr<AudioEncoder> AudioEncoder::open(QString* error)
{
    auto fail = [&](const QString& why) {
        if (error) *error = why;
        return std::unique_ptr<AudioEncoder>();
    };
    const AVCodec* aac = avcodec_find_encoder_by_name("aac");
    if (!aac) return fail(QStringLiteral("no AAC encoder"));
    std::unique_ptr<AudioEncoder> encoder(new AudioEncoder);
    encoder->codec.reset(avcodec_alloc_context3(aac));
    AVCodecContext* c = encoder->codec.get();
    if (!c) return fail(QStringLiteral("out of memory"));
    c->sample_fmt = AV_SAMPLE_FMT_FLTP;
    c->sample_rate = sampleRate;
    c->bit_rate = bitRate;
    c->time_base = AVRational { 1, sampleRate };
    av_channel_layout_default(&c->ch_layout, 1);
    c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const int rc = avcodec_open2(c, aac, nullptr);
    if (rc < 0) return fail(avErrorText(rc));
    encoder->fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, 1, c->frame_size * 4));
    encoder->packet.reset(av_packet_alloc());
    if (!encoder->fifo || !encoder->packet) return fail(QStringLiteral("out of memory"));
    return encoder;
}

AudioEncoder::~AudioEncoder() = default;

int AudioEncoder::convert(const AudioBuffer& buffer, FramePtr& out)
{
    if (!resampler || resamplerFormat != buffer.format || resamplerRate != buffer.sampleRate
        || resamplerChannels != buffer.channels) {
        AVChannelLayout inLayout {};
        av_channel_layout_default(&inLayout, buffer.channels);
        AVChannelLayout outLayout {};
        av_channel_layout_default(&outLayout, 1);
        SwrContext* raw = nullptr;
        const AVSampleFormat inFormat
            = buffer.format == AudioBuffer::SampleFormat::Float32 ? AV_SAMPLE_FMT_FLT : AV_SAMPLE_FMT_S16;
        int rc = swr_alloc_set_opts2(
            &raw, &outLayout, AV_SAMPLE_FMT_FLTP, sampleRate, &inLayout, inFormat, buffer.sampleRate, 0, nullptr);
        av_channel_layout_uninit(&inLayout);
        av_channel_layout_uninit(&outLayout);
        if (rc < 0) return rc;
        resampler.reset(raw);
        rc = swr_init(raw);
        if (rc < 0) {
            resampler.reset();
            return rc;
        }
        resamplerFormat = buffer.format;
        resamplerRate = buffer.sampleRate;
        resamplerChannels = buffer.channels;
    }
    const int inCount = buffer.frameCount();
    const int capacity = swr_get_out_samples(resampler.get(), inCount);
    out.reset(av_frame_alloc());
    if (!out) return AVERROR(ENOMEM);
    out->format = AV_SAMPLE_FMT_FLTP;
    out->sample_rate = sampleRate;
    av_channel_layout_default(&out->ch_layout, 1);
    out->nb_samples = std::max(capacity, 1);
    int rc = av_frame_get_buffer(out.get(), 0);
    if (rc < 0) return rc;
    const uint8_t* in[1] = { reinterpret_cast<const uint8_t*>(buffer.data.constData()) };
    rc = swr_convert(resampler.get(), out->data, out->nb_samples, in, inCount);
    if (rc < 0) return rc;
    out->nb_samples = rc;
    return 0;
}

int AudioEncoder::send(const AudioBuffer& buffer, int64_t position, const PacketSink& sink)
{
    if (buffer.channels <= 0 || buffer.sampleRate <= 0 || buffer.frameCount() == 0) return AVERROR(EINVAL);
    FramePtr converted;
    int rc = convert(buffer, converted);
    if (rc < 0) return rc;
    int64_t count = converted->nb_samples;
    int64_t skip = 0;
    if (nextPosition < 0) {
        // The first samples: the stream begins where they belong, never before the file's zero.
        skip = std::max<int64_t>(0, -position);
        nextPosition = framePosition = std::max<int64_t>(0, position);
    } else {
        const int64_t drift = position - nextPosition;
        if (drift > jitterSamples) {
            // A gap in the source: silence keeps later audio at its time.
            std::vector<float> silence(static_cast<size_t>(drift), 0.0f);
            void* planes[1] = { silence.data() };
            rc = av_audio_fifo_write(fifo.get(), planes, static_cast<int>(drift));
            if (rc < 0) return rc;
            nextPosition += drift;
        } else if (drift < -jitterSamples) {
            skip = std::min(count, -drift); // overlap: the head is already in the stream
        }
    }
    if (count > skip) {
        float* start = reinterpret_cast<float*>(converted->data[0]) + skip;
        void* planes[1] = { start };
        rc = av_audio_fifo_write(fifo.get(), planes, static_cast<int>(count - skip));
        if (rc < 0) return rc;
        nextPosition += count - skip;
    }
    return encodeFullFrames(false, sink);
}

int AudioEncoder::padTo(int64_t position, const PacketSink& sink)
{
    if (nextPosition < 0) nextPosition = framePosition = 0;
    const int64_t missing = position - nextPosition;
    if (missing <= 0) return 0;
    std::vector<float> silence(static_cast<size_t>(missing), 0.0f);
    void* planes[1] = { silence.data() };
    const int rc = av_audio_fifo_write(fifo.get(), planes, static_cast<int>(missing));
    if (rc < 0) return rc;
    nextPosition += missing;
    return encodeFullFrames(false, sink);
}

int AudioEncoder::encodeFullFrames(bool includePartial, const PacketSink& sink)
{
    const int frameSize = codec->frame_size;
    while (av_audio_fifo_size(fifo.get()) >= frameSize || (includePartial && av_audio_fifo_size(fifo.get()) > 0)) {
        const int n = std::min(frameSize, av_audio_fifo_size(fifo.get()));
        FramePtr frame(av_frame_alloc());
        if (!frame) return AVERROR(ENOMEM);
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->sample_rate = sampleRate;
        av_channel_layout_default(&frame->ch_layout, 1);
        frame->nb_samples = n;
        int rc = av_frame_get_buffer(frame.get(), 0);
        if (rc < 0) return rc;
        rc = av_audio_fifo_read(fifo.get(), reinterpret_cast<void**>(frame->data), n);
        if (rc < 0) return rc;
        frame->pts = framePosition;
        framePosition += n;
        rc = avcodec_send_frame(codec.get(), frame.get());
        if (rc < 0) return rc;
        rc = drainEncoder(codec.get(), packet.get(), sink);
        if (rc < 0) return rc;
    }
    return 0;
}

int AudioEncoder::finish(const PacketSink& sink)
{
    if (resampler && nextPosition >= 0) {
        // What the resampler still holds belongs to the end of the stream.
        FramePtr tail(av_frame_alloc());
        if (!tail) return AVERROR(ENOMEM);
        tail->format = AV_SAMPLE_FMT_FLTP;
        av_channel_layout_default(&tail->ch_layout, 1);
        tail->nb_samples = std::max(1, swr_get_out_samples(resampler.get(), 0));
        if (av_frame_get_buffer(tail.get(), 0) == 0) {
            const int n = swr_convert(resampler.get(), tail->data, tail->nb_samples, nullptr, 0);
            if (n > 0) {
                av_audio_fifo_write(fifo.get(), reinterpret_cast<void**>(tail->data), n);
                nextPosition += n;
            }
        }
    }
    int rc = encodeFullFrames(true, sink);
    if (rc < 0) return rc;
    rc = avcodec_send_frame(codec.get(), nullptr);
    if (rc < 0) return rc;
    return drainEncoder(codec.get(), packet.get(), sink);
}
