#include "support/FirstShownPicture.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <vector>

QColor counterColour(int counter)
{
    return QColor((counter % 16) * 16 + 8, ((counter / 16) % 16) * 16 + 8, 0x80);
}

int counterFromColour(const QColor& colour)
{
    return (colour.green() / 16) * 16 + colour.red() / 16;
}

std::optional<FirstShownPicture> FirstShownPicture::read(const QString& path)
{
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, path.toUtf8().constData(), nullptr, nullptr) < 0) return std::nullopt;
    std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> formatGuard(
        format, [](AVFormatContext* f) { avformat_close_input(&f); });
    if (avformat_find_stream_info(format, nullptr) < 0) return std::nullopt;
    const int index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0) return std::nullopt;
    FirstShownPicture shown;
    shown.durationSeconds = format->duration / double(AV_TIME_BASE);
    const AVCodecParameters* parameters = format->streams[index]->codecpar;
    shown.size = QSize(parameters->width, parameters->height);
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)> decoder(
        avcodec_alloc_context3(codec), [](AVCodecContext* c) { avcodec_free_context(&c); });
    avcodec_parameters_to_context(decoder.get(), parameters);
    if (avcodec_open2(decoder.get(), codec, nullptr) < 0) return std::nullopt;
    std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(av_packet_alloc(), [](AVPacket* p) { av_packet_free(&p); });
    std::unique_ptr<AVFrame, void (*)(AVFrame*)> frame(av_frame_alloc(), [](AVFrame* f) { av_frame_free(&f); });
    bool found = false;
    auto take = [&] {
        while (!found && avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
            // Frames the edit list hides come out with the discard flag; a player skips them.
            if (frame->flags & AV_FRAME_FLAG_DISCARD) continue;
            SwsContext* sws = sws_getContext(frame->width, frame->height, AVPixelFormat(frame->format), frame->width,
                frame->height, AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr, nullptr);
            std::vector<uint8_t> rgb(size_t(frame->width) * frame->height * 3);
            uint8_t* destination[1] = { rgb.data() };
            int stride[1] = { frame->width * 3 };
            sws_scale(sws, frame->data, frame->linesize, 0, frame->height, destination, stride);
            sws_freeContext(sws);
            const size_t at = (size_t(frame->height / 5) * frame->width + frame->width / 5) * 3;
            shown.colour = QColor(rgb[at], rgb[at + 1], rgb[at + 2]);
            found = true;
        }
    };
    while (!found && av_read_frame(format, packet.get()) >= 0) {
        if (packet->stream_index == index) avcodec_send_packet(decoder.get(), packet.get());
        av_packet_unref(packet.get());
        take();
    }
    if (!found) return std::nullopt;
    return shown;
}
