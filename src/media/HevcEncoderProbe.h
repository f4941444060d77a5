#pragma once

#include "media/FFmpegHandles.h"
#include "media/VideoEncoder.h"

#include <QImage>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

// Which HEVC encoder the segment writers use, chosen once at start-up. Hardware encoders are tried
// first, in the order hevc_vaapi, hevc_nvenc, hevc_qsv; libx265 is the fall-back that is always
// there. Many machines have a hardware encoder that is present but broken: it fails to open, or
// opens and then fails on the first picture. So a candidate counts only when it opens at a small
// size and turns two pictures into packets without an error; otherwise the next one is tried.
class HevcEncoderProbe {
public:
    // An encoder on trial: what the probe needs of a VideoEncoder.
    class Trial {
    public:
        virtual ~Trial() = default;
        virtual int send(const QImage& image, int64_t pts, bool forceKeyFrame, const PacketSink& sink) = 0;
        virtual int finish(const PacketSink& sink) = 0;
    };
    // Opens a candidate with `settings`; null with the reason in *error when it can't.
    using Opener = std::function<std::unique_ptr<Trial>(const VideoEncoder::Settings& settings, QString* error)>;
    struct Candidate {
        QString name;
        Opener open;
    };
    struct Choice {
        QString encoder;
        // "name: reason" for each candidate that was tried before it and failed.
        QStringList passedOver;
    };

    // The four encoders in their order, each opened through VideoEncoder.
    static std::vector<Candidate> candidates();
    // The first candidate that works, or libx265 if none does (the writer then says why it
    // cannot record). Any thread.
    static Choice probe(const std::vector<Candidate>& candidates);
    // The log line of a choice: which encoder records, and why the others were passed over.
    static QString describe(const Choice& choice);
    // probe(candidates()), worked out once per process (the answer cannot change while the
    // program runs) and logged then. Blocks while the probe runs. Any thread.
    static QString chosen();
    // The choice, if it has been made; never waits. Any thread.
    static std::optional<QString> chosenSoFar();
};
