#include "media/HevcEncoderProbe.h"

#include "media/VideoEncoder.h"

#include <mutex>

QStringList HevcEncoderProbe::candidates()
{
    return { QStringLiteral("hevc_vaapi"), QStringLiteral("hevc_nvenc"), QStringLiteral("hevc_qsv"),
        QStringLiteral("libx265") };
}

QString HevcEncoderProbe::probe(const QStringList& names)
{
    // Probing failures are expected on most machines: FFmpeg's complaints about missing drivers
    // would only alarm the user, so they are silenced for the few milliseconds this takes.
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);
    QString found;
    for (const QString& name : names) {
        VideoEncoder::Settings small;
        small.width = 256;
        small.height = 144;
        small.averageBitRate = 1000000;
        small.expectedFPS = 30;
        small.globalHeader = true;
        QString error;
        auto encoder = VideoEncoder::open(name, small, &error);
        if (!encoder) continue;
        QImage picture(small.width, small.height, QImage::Format_RGB32);
        picture.fill(Qt::gray);
        bool gotPacket = false;
        auto sink = [&](AVPacket*) {
            gotPacket = true;
            return 0;
        };
        if (encoder->send(picture, 0, true, sink) < 0 || encoder->finish(sink) < 0) continue;
        if (gotPacket) {
            found = name;
            break;
        }
    }
    av_log_set_level(level);
    return found.isEmpty() ? QStringLiteral("libx265") : found;
}

QString HevcEncoderProbe::chosen()
{
    static std::once_flag once;
    static QString answer;
    std::call_once(once, [] { answer = probe(candidates()); });
    return answer;
}
