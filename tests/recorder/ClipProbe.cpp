#include "ClipProbe.h"

#include "IndexedFrames.h"
#include "media/FFmpegHandles.h"

#include <QFile>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

bool moovBeforeMdat(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return false;
    qint64 at = 0;
    while (at + 8 <= f.size()) {
        f.seek(at);
        const QByteArray header = f.read(8);
        const quint32 size
            = (quint8(header[0]) << 24) | (quint8(header[1]) << 16) | (quint8(header[2]) << 8) | quint8(header[3]);
        const QByteArray type = header.mid(4, 4);
        if (type == "moov") return true;
        if (type == "mdat") return false;
        if (size < 8) return false;
        at += size;
    }
    return false;
}

} // namespace

ClipProbe ClipProbe::read(const QString& path)
{
    ClipProbe probe;
    InputFormatPtr in = openInput(path);
    if (!in || avformat_find_stream_info(in.get(), nullptr) < 0) return probe;
    probe.opened = true;
    probe.container = QString::fromUtf8(in->iformat->name);
    probe.faststart = moovBeforeMdat(path);
    const int v = av_find_best_stream(in.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    const int a = av_find_best_stream(in.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    CodecContextPtr videoDecoder, audioDecoder;
    auto openDecoder = [&](int index) {
        const AVCodecParameters* par = in->streams[index]->codecpar;
        CodecContextPtr c(avcodec_alloc_context3(avcodec_find_decoder(par->codec_id)));
        avcodec_parameters_to_context(c.get(), par);
        c->pkt_timebase = in->streams[index]->time_base;
        avcodec_open2(c.get(), c->codec, nullptr);
        return c;
    };
    if (v >= 0) {
        const AVCodecParameters* par = in->streams[v]->codecpar;
        probe.videoCodec = QString::fromUtf8(avcodec_get_name(par->codec_id));
        probe.width = par->width;
        probe.height = par->height;
        videoDecoder = openDecoder(v);
    }
    if (a >= 0) {
        const AVCodecParameters* par = in->streams[a]->codecpar;
        probe.audioCodec = QString::fromUtf8(avcodec_get_name(par->codec_id));
        probe.audioSampleRate = par->sample_rate;
        probe.audioChannels = par->ch_layout.nb_channels;
        probe.audioBitRate = double(par->bit_rate);
        audioDecoder = openDecoder(a);
    }

    PacketPtr packet(av_packet_alloc());
    FramePtr frame(av_frame_alloc());
    auto drain = [&](AVCodecContext* c, int index) {
        const AVRational tb = in->streams[index]->time_base;
        for (;;) {
            const int rc = avcodec_receive_frame(c, frame.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return;
            if (rc < 0) {
                ++probe.decodeErrors;
                return;
            }
            if (frame->decode_error_flags || (frame->flags & AV_FRAME_FLAG_CORRUPT)) ++probe.decodeErrors;
            const double t = frame->best_effort_timestamp == AV_NOPTS_VALUE
                ? -1
                : double(frame->best_effort_timestamp) * av_q2d(tb);
            if (index == v) {
                probe.videoEnd = std::max(probe.videoEnd, t + double(frame->pkt_duration) * av_q2d(tb));
                long corner = 0;
                const int side = std::min({ 64, frame->width, frame->height });
                for (int y = 0; y < side; ++y)
                    for (int x = 0; x < side; ++x)
                        corner += frame->data[0][y * frame->linesize[0] + x];
                probe.frames.push_back(
                    { t, IndexedFrames::indexFromLuma(frame->data[0], frame->linesize[0], frame->width, frame->height),
                        frame->key_frame != 0, side > 0 ? int(corner / (side * side)) : 0, {} });
                std::vector<long> sums(16 * 9, 0), counts(16 * 9, 0);
                for (int y = 0; y < frame->height; y += 8)
                    for (int x = 0; x < frame->width; x += 8) {
                        const int cell = (y * 9 / frame->height) * 16 + x * 16 / frame->width;
                        sums[cell] += frame->data[0][y * frame->linesize[0] + x];
                        ++counts[cell];
                    }
                for (int i = 0; i < 16 * 9; ++i)
                    probe.frames.back().cells.push_back(uint8_t(counts[i] ? sums[i] / counts[i] : 0));
            } else {
                if (probe.audioStart < 0) probe.audioStart = t;
                probe.audioSeconds += double(frame->nb_samples) / frame->sample_rate;
                if (frame->format == AV_SAMPLE_FMT_FLTP || frame->format == AV_SAMPLE_FMT_FLT) {
                    const auto* samples = reinterpret_cast<const float*>(frame->data[0]);
                    const int step = frame->format == AV_SAMPLE_FMT_FLT ? frame->ch_layout.nb_channels : 1;
                    for (int i = 0; i < frame->nb_samples; ++i)
                        probe.audio.push_back(samples[i * step]);
                }
            }
            av_frame_unref(frame.get());
        }
    };
    while (av_read_frame(in.get(), packet.get()) >= 0) {
        AVCodecContext* c = packet->stream_index == v ? videoDecoder.get()
            : packet->stream_index == a               ? audioDecoder.get()
                                                      : nullptr;
        if (packet->stream_index == v) {
            ++probe.videoPackets;
            if (packet->pts != packet->dts) ++probe.reorderedPackets;
        }
        if (c) {
            if (avcodec_send_packet(c, packet.get()) < 0) ++probe.decodeErrors;
            drain(c, packet->stream_index);
        }
        av_packet_unref(packet.get());
    }
    if (videoDecoder) {
        avcodec_send_packet(videoDecoder.get(), nullptr);
        drain(videoDecoder.get(), v);
    }
    if (audioDecoder) {
        avcodec_send_packet(audioDecoder.get(), nullptr);
        drain(audioDecoder.get(), a);
    }
    return probe;
}

double ClipProbe::longestQuietStretch(float level) const
{
    size_t longest = 0, run = 0;
    for (float x : audio) {
        run = std::abs(x) < level ? run + 1 : 0;
        longest = std::max(longest, run);
    }
    return audioSampleRate > 0 ? double(longest) / audioSampleRate : 0;
}

const ClipProbe::Frame* ClipProbe::frameAt(double seconds) const
{
    const Frame* shown = nullptr;
    for (const Frame& f : frames)
        if (f.seconds <= seconds + 1e-6 && (!shown || f.seconds >= shown->seconds)) shown = &f;
    return shown;
}

double ClipProbe::duration() const
{
    if (frames.size() < 2) return 0;
    return frames.back().seconds - frames.front().seconds;
}

bool ClipProbe::differ(const Frame& a, const Frame& b)
{
    if (a.cells.size() != b.cells.size()) return true;
    for (size_t i = 0; i < a.cells.size(); ++i)
        if (std::abs(int(a.cells[i]) - int(b.cells[i])) > 2) return true;
    return false;
}
