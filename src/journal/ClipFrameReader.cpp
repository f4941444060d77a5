#include "journal/ClipFrameReader.h"

#include "core/LocalFileName.h"

#include <QTransform>

extern "C" {
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
}

#include <algorithm>
#include <cmath>
#include <sys/stat.h>

namespace {

// A damaged index can ask for any number of packets; a clip's key frames are a second apart, so
// this many packets after the seek means something is wrong.
constexpr int maxPacketsAfterSeek = 20'000;

bool isIntact(const AVFrame* frame)
{
    return frame->decode_error_flags == 0 && !(frame->flags & AV_FRAME_FLAG_CORRUPT);
}

} // namespace

ClipFrameReader::ClipFrameReader(const QString& path)
{
    clock.start();
    // Only regular files: a pipe or a device would block the open. The name as bytes, which is
    // what it is when it is not UTF-8.
    const QByteArray native = LocalFileName::encode(path);
    struct stat info { };
    if (::stat(native.constData(), &info) != 0 || !S_ISREG(info.st_mode)) return;
    AVFormatContext* raw = avformat_alloc_context();
    if (!raw) return;
    raw->interrupt_callback.callback = &ClipFrameReader::interrupted;
    raw->interrupt_callback.opaque = this;
    // Through the file protocol by name, so that a file called "pipe:0" or "http:x" is that file.
    const QByteArray location = QByteArrayLiteral("file:") + native;
    // Clips are MP4: a file of anything else must not reach the probing of other formats.
    const AVInputFormat* mp4 = av_find_input_format("mp4");
    if (avformat_open_input(&raw, location.constData(), mp4, nullptr) < 0) return; // frees `raw`
    input.reset(raw);
    videoStream = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (videoStream < 0) return;
    if (indexRunsPastEnd()) return;
    const AVCodecParameters* parameters = input->streams[videoStream]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    if (!codec) return;
    CodecContextPtr context(avcodec_alloc_context3(codec));
    if (!context || avcodec_parameters_to_context(context.get(), parameters) < 0) return;
    context->pkt_timebase = input->streams[videoStream]->time_base;
    // One picture is wanted, not speed: a single thread keeps a thumbnail from crowding recording.
    context->thread_count = 1;
    if (avcodec_open2(context.get(), codec, nullptr) < 0) return;
    decoder = std::move(context);
}

int ClipFrameReader::interrupted(void* reader)
{
    return static_cast<ClipFrameReader*>(reader)->clock.elapsed() > timeLimitMilliseconds ? 1 : 0;
}

bool ClipFrameReader::indexRunsPastEnd() const
{
    const int64_t fileSize = avio_size(input->pb);
    if (fileSize <= 0) return false; // a stream without a known size: nothing to compare with
    AVStream* stream = input->streams[videoStream];
    const int entries = avformat_index_get_entries_count(stream);
    for (int i = 0; i < entries; ++i) {
        const AVIndexEntry* entry = avformat_index_get_entry(stream, i);
        if (entry && entry->pos + entry->size > fileSize) return true;
    }
    return false;
}

double ClipFrameReader::duration() const
{
    if (!isOpen()) return 0;
    const AVStream* stream = input->streams[videoStream];
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0)
        return double(stream->duration) * av_q2d(stream->time_base);
    if (input->duration != AV_NOPTS_VALUE && input->duration > 0) return double(input->duration) / AV_TIME_BASE;
    return 0;
}

std::optional<QImage> ClipFrameReader::frameAt(double seconds, QSize maxSize, double tolerance)
{
    if (!isOpen()) return std::nullopt;
    const AVStream* stream = input->streams[videoStream];
    const double timeBase = av_q2d(stream->time_base);
    const auto target = int64_t(std::llround(seconds / timeBase));
    // Back to the key frame at or before the time; if the index can't say, decoding starts at the
    // beginning, which is where the demuxer stands anyway.
    if (av_seek_frame(input.get(), videoStream, target, AVSEEK_FLAG_BACKWARD) >= 0)
        avcodec_flush_buffers(decoder.get());

    PacketPtr packet(av_packet_alloc());
    FramePtr frame(av_frame_alloc());
    FramePtr shown(av_frame_alloc());
    if (!packet || !frame || !shown) return std::nullopt;
    bool haveShown = false;
    const auto slack = int64_t(std::llround(tolerance / timeBase));

    // Takes the decoder's frames until the picture is settled or the file proves damaged.
    bool settled = false;
    bool damaged = false;
    auto receive = [&] {
        for (;;) {
            const int rc = avcodec_receive_frame(decoder.get(), frame.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return;
            if (rc < 0 || !isIntact(frame.get())) {
                damaged = true;
                return;
            }
            const int64_t pts = frame->best_effort_timestamp;
            const bool known = pts != AV_NOPTS_VALUE;
            const bool near = known && std::llabs(pts - target) <= slack;
            const bool after = known && pts > target;
            // Past the time: the frame before is the one on show.
            if (after && !near && haveShown) {
                settled = true;
                return;
            }
            av_frame_unref(shown.get());
            av_frame_move_ref(shown.get(), frame.get());
            haveShown = true;
            // Close enough, or the first frame of all when the time lies before it.
            if (near || after) {
                settled = true;
                return;
            }
        }
    };

    int packets = 0;
    while (!settled && !damaged) {
        const int rc = av_read_frame(input.get(), packet.get());
        if (rc == AVERROR_EOF) {
            // The end: what is on show at the last frame stays on show.
            avcodec_send_packet(decoder.get(), nullptr);
            receive();
            break;
        }
        if (rc < 0 || ++packets > maxPacketsAfterSeek) return std::nullopt;
        if (packet->stream_index == videoStream) {
            if (packet->flags & AV_PKT_FLAG_CORRUPT)
                damaged = true;
            else if (avcodec_send_packet(decoder.get(), packet.get()) < 0)
                damaged = true;
            else
                receive();
        }
        av_packet_unref(packet.get());
    }
    if (damaged || !haveShown) return std::nullopt;
    const QImage image = toImage(shown.get(), maxSize);
    if (image.isNull()) return std::nullopt;
    return image;
}

QImage ClipFrameReader::toImage(const AVFrame* frame, QSize maxSize) const
{
    if (frame->width <= 0 || frame->height <= 0 || frame->format < 0) return {};
    // The file's turn, if it asks for one: a display matrix of a quarter or half turn.
    double rotation = 0;
    if (const uint8_t* matrix
        = av_stream_get_side_data(input->streams[videoStream], AV_PKT_DATA_DISPLAYMATRIX, nullptr))
        rotation = -av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
    if (std::isnan(rotation)) rotation = 0;
    const int quarterTurns = ((int(std::lround(rotation / 90.0)) % 4) + 4) % 4;
    const bool sideways = quarterTurns % 2 == 1;

    // The size on show after the turn, scaled down (never up) to fit.
    QSize shown = sideways ? QSize(frame->height, frame->width) : QSize(frame->width, frame->height);
    if (shown.width() > maxSize.width() || shown.height() > maxSize.height())
        shown = shown.scaled(maxSize, Qt::KeepAspectRatio);
    shown = shown.expandedTo(QSize(1, 1));
    const QSize scaled = sideways ? shown.transposed() : shown;

    SwsContextPtr scaler(sws_getContext(frame->width, frame->height, AVPixelFormat(frame->format), scaled.width(),
        scaled.height(), AV_PIX_FMT_BGRA, SWS_AREA, nullptr, nullptr, nullptr));
    if (!scaler) return {};
    const int colourSpace = frame->colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_DEFAULT;
    const int* coefficients = sws_getCoefficients(colourSpace);
    const int* rgbCoefficients = sws_getCoefficients(SWS_CS_DEFAULT);
    sws_setColorspaceDetails(scaler.get(), coefficients, frame->color_range == AVCOL_RANGE_JPEG ? 1 : 0,
        rgbCoefficients, 1, 0, 1 << 16, 1 << 16);
    // swscale's vector code may write a little past the end of a row and of the last row: the
    // picture is made with room to spare, and handed out without it.
    const int stride = FFALIGN(scaled.width() * 4, 64) + 64;
    auto* buffer = static_cast<uchar*>(av_malloc(size_t(stride) * size_t(scaled.height() + 2)));
    if (!buffer) return {};
    QImage image(buffer, scaled.width(), scaled.height(), stride, QImage::Format_RGB32, av_free, buffer);
    uint8_t* planes[4] = { buffer, nullptr, nullptr, nullptr };
    int strides[4] = { stride, 0, 0, 0 };
    if (sws_scale(scaler.get(), frame->data, frame->linesize, 0, frame->height, planes, strides) <= 0) return {};
    if (quarterTurns == 0) return image;
    return image.transformed(QTransform().rotate(90.0 * quarterTurns));
}
