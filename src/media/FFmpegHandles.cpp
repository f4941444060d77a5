#include "media/FFmpegHandles.h"

QString avErrorText(int errnum)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(errnum, text, sizeof(text));
    return QString::fromUtf8(text);
}

InputFormatPtr openInput(const QString& path, QString* error)
{
    AVFormatContext* raw = nullptr;
    const int rc = avformat_open_input(&raw, path.toUtf8().constData(), nullptr, nullptr);
    if (rc < 0) {
        if (error) *error = avErrorText(rc);
        return nullptr;
    }
    return InputFormatPtr(raw);
}

int drainEncoder(AVCodecContext* codec, AVPacket* packet, const PacketSink& sink)
{
    for (;;) {
        int rc = avcodec_receive_packet(codec, packet);
        if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return 0;
        if (rc < 0) return rc;
        rc = sink(packet);
        av_packet_unref(packet);
        if (rc < 0) return rc;
    }
}
