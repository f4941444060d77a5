#include "media/HevcEncoderProbe.h"

#include "media/HevcEncoderChoice.h"

#include <QPainter>

namespace {

class RealEncoder : public HevcEncoderProbe::Encoder {
public:
    explicit RealEncoder(std::unique_ptr<VideoEncoder> encoder)
        : encoder(std::move(encoder))
    {
    }
    int send(const QImage& image, int64_t pts, bool forceKeyFrame, const PacketSink& sink,
        const std::vector<QRect>* changed) override
    {
        return encoder->send(image, pts, forceKeyFrame, sink, changed);
    }
    int sendCovered(const QImage& image, const QImage& overlay, QPoint overlayAt, int64_t pts, bool forceKeyFrame,
        const PacketSink& sink, const std::vector<QRect>* changed) override
    {
        return encoder->send(image, pts, forceKeyFrame, sink, changed, overlay, overlayAt);
    }
    int finish(const PacketSink& sink) override { return encoder->finish(sink); }
    const AVCodecContext* context() const override { return encoder->context(); }

private:
    std::unique_ptr<VideoEncoder> encoder;
};

} // namespace

int HevcEncoderProbe::Encoder::sendCovered(const QImage& image, const QImage& overlay, QPoint overlayAt, int64_t pts,
    bool forceKeyFrame, const PacketSink& sink, const std::vector<QRect>* changed)
{
    if (overlay.isNull()) return send(image, pts, forceKeyFrame, sink, changed);
    QImage covered = image.convertToFormat(QImage::Format_RGB32);
    QPainter painter(&covered);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(overlayAt, overlay);
    painter.end();
    return send(covered, pts, forceKeyFrame, sink, nullptr);
}

std::vector<HevcEncoderProbe::Candidate> HevcEncoderProbe::candidates()
{
    std::vector<Candidate> list;
    for (const char* name : { "hevc_vaapi", "hevc_nvenc", "hevc_qsv", "libx265" }) {
        const QString encoder = QString::fromLatin1(name);
        list.push_back({ encoder, [encoder](const VideoEncoder::Settings& settings, QString* error) {
                            std::unique_ptr<VideoEncoder> opened = VideoEncoder::open(encoder, settings, error);
                            return opened ? std::make_unique<RealEncoder>(std::move(opened))
                                          : std::unique_ptr<Encoder>();
                        } });
    }
    return list;
}

QString HevcEncoderProbe::check(const Candidate& candidate, const VideoEncoder::Settings& settings)
{
    QString error;
    std::unique_ptr<Encoder> encoder = candidate.open ? candidate.open(settings, &error) : nullptr;
    if (!encoder) return error.isEmpty() ? QStringLiteral("does not open") : error;

    int packets = 0;
    const PacketSink count = [&packets](AVPacket*) {
        ++packets;
        return 0;
    };
    QImage picture(settings.width, settings.height, QImage::Format_RGB32);
    for (int i = 0; i < 2; ++i) {
        // Two different pictures: an encoder that fails only once it has something to predict
        // from fails here too.
        picture.fill(i == 0 ? Qt::gray : Qt::darkCyan);
        const int64_t pts
            = int64_t(i) * settings.timeBase.den / (std::max(1, settings.expectedFPS) * settings.timeBase.num);
        if (const int rc = encoder->send(picture, pts, i == 0, count, nullptr); rc < 0)
            return QStringLiteral("opens, but picture %1 fails: %2").arg(i + 1).arg(avErrorText(rc));
    }
    if (const int rc = encoder->finish(count); rc < 0)
        return QStringLiteral("opens, but ending the stream fails: %1").arg(avErrorText(rc));
    if (packets == 0) return QStringLiteral("opens, but gives no packets");
    return {};
}

HevcEncoderProbe::Choice HevcEncoderProbe::probe(const std::vector<Candidate>& candidates)
{
    VideoEncoder::Settings small;
    small.width = 256;
    small.height = 144;
    small.averageBitRate = 1000000;
    small.expectedFPS = 30;
    small.globalHeader = true;
    // Failures are expected on most machines: FFmpeg's complaints about missing drivers would only
    // alarm the user, and the log line says what counts.
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);
    Choice choice;
    for (const Candidate& candidate : candidates) {
        const QString failure = check(candidate, small);
        if (failure.isEmpty()) {
            choice.encoder = candidate.name;
            break;
        }
        choice.passedOver << QStringLiteral("%1: %2").arg(candidate.name, failure);
    }
    av_log_set_level(level);
    if (choice.encoder.isEmpty()) choice.encoder = QStringLiteral("libx265");
    return choice;
}

QString HevcEncoderProbe::describe(const Choice& choice)
{
    QString line = QStringLiteral("Video encoder: %1").arg(choice.encoder);
    if (!choice.passedOver.isEmpty())
        line += QStringLiteral(" (passed over %1)").arg(choice.passedOver.join(QStringLiteral("; ")));
    return line;
}

QString HevcEncoderProbe::chosen()
{
    return HevcEncoderChoice::process()->chosen();
}

std::optional<QString> HevcEncoderProbe::chosenSoFar()
{
    return HevcEncoderChoice::process()->chosenSoFar();
}
