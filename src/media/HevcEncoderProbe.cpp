#include "media/HevcEncoderProbe.h"

#include "core/Log.h"

#include <mutex>

namespace {

class EncoderTrial : public HevcEncoderProbe::Trial {
public:
    explicit EncoderTrial(std::unique_ptr<VideoEncoder> encoder)
        : encoder(std::move(encoder))
    {
    }
    int send(const QImage& image, int64_t pts, bool forceKeyFrame, const PacketSink& sink) override
    {
        return encoder->send(image, pts, forceKeyFrame, sink);
    }
    int finish(const PacketSink& sink) override { return encoder->finish(sink); }

private:
    std::unique_ptr<VideoEncoder> encoder;
};

// Why a candidate can't record, or empty when it can.
QString tryCandidate(const HevcEncoderProbe::Candidate& candidate)
{
    VideoEncoder::Settings small;
    small.width = 256;
    small.height = 144;
    small.averageBitRate = 1000000;
    small.expectedFPS = 30;
    small.globalHeader = true;
    QString error;
    std::unique_ptr<HevcEncoderProbe::Trial> trial = candidate.open ? candidate.open(small, &error) : nullptr;
    if (!trial) return error.isEmpty() ? QStringLiteral("does not open") : error;

    int packets = 0;
    const PacketSink count = [&packets](AVPacket*) {
        ++packets;
        return 0;
    };
    QImage picture(small.width, small.height, QImage::Format_RGB32);
    for (int i = 0; i < 2; ++i) {
        // Two different pictures: an encoder that fails only once it has something to predict
        // from fails here too.
        picture.fill(i == 0 ? Qt::gray : Qt::darkCyan);
        const int64_t pts = int64_t(i) * small.timeBase.den / (small.expectedFPS * small.timeBase.num);
        if (const int rc = trial->send(picture, pts, i == 0, count); rc < 0)
            return QStringLiteral("opens, but picture %1 fails: %2").arg(i + 1).arg(avErrorText(rc));
    }
    if (const int rc = trial->finish(count); rc < 0)
        return QStringLiteral("opens, but ending the stream fails: %1").arg(avErrorText(rc));
    if (packets == 0) return QStringLiteral("opens, but gives no packets");
    return {};
}

// The one choice of the process.
struct ChoiceState {
    std::once_flag once;
    std::mutex mutex;
    std::optional<QString> encoder; // guarded by mutex
};

ChoiceState& choiceState()
{
    static ChoiceState state;
    return state;
}

} // namespace

std::vector<HevcEncoderProbe::Candidate> HevcEncoderProbe::candidates()
{
    std::vector<Candidate> list;
    for (const char* name : { "hevc_vaapi", "hevc_nvenc", "hevc_qsv", "libx265" }) {
        const QString encoder = QString::fromLatin1(name);
        list.push_back({ encoder, [encoder](const VideoEncoder::Settings& settings, QString* error) {
                            std::unique_ptr<VideoEncoder> opened = VideoEncoder::open(encoder, settings, error);
                            return opened ? std::make_unique<EncoderTrial>(std::move(opened))
                                          : std::unique_ptr<Trial>();
                        } });
    }
    return list;
}

HevcEncoderProbe::Choice HevcEncoderProbe::probe(const std::vector<Candidate>& candidates)
{
    // Failures are expected on most machines: FFmpeg's complaints about missing drivers would only
    // alarm the user, and the log line says what counts.
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);
    Choice choice;
    for (const Candidate& candidate : candidates) {
        const QString failure = tryCandidate(candidate);
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
    ChoiceState& state = choiceState();
    std::call_once(state.once, [&state] {
        const Choice choice = probe(candidates());
        logLine(describe(choice));
        std::lock_guard lock(state.mutex);
        state.encoder = choice.encoder;
    });
    std::lock_guard lock(state.mutex);
    return *state.encoder;
}

std::optional<QString> HevcEncoderProbe::chosenSoFar()
{
    ChoiceState& state = choiceState();
    std::lock_guard lock(state.mutex);
    return state.encoder;
}
