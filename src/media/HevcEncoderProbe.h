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
// Passing at a small size proves nothing at the stream's: HevcEncoderChoice checks again there.
class HevcEncoderProbe {
public:
    // An HEVC encoder as the probe and the ring use it: a VideoEncoder, or a test's stand-in.
    class Encoder {
    public:
        virtual ~Encoder() = default;
        // `changed`: see VideoEncoder::send.
        virtual int send(const QImage& image, int64_t pts, bool forceKeyFrame, const PacketSink& sink,
            const std::vector<QRect>* changed)
            = 0;
        // As send, with `overlay` covering the picture at `overlayAt`. By default drawn into a copy
        // of the picture, converted whole; the real encoder puts it in as it converts, without the copy.
        virtual int sendCovered(const QImage& image, const QImage& overlay, QPoint overlayAt, int64_t pts,
            bool forceKeyFrame, const PacketSink& sink, const std::vector<QRect>* changed);
        virtual int finish(const PacketSink& sink) = 0;
        // What a file's stream is told of the encoder (parameter sets, size, profile).
        virtual const AVCodecContext* context() const = 0;
    };
    // Opens a candidate with `settings`; null with the reason in *error when it can't.
    using Opener = std::function<std::unique_ptr<Encoder>(const VideoEncoder::Settings& settings, QString* error)>;
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
    // Why `candidate` cannot turn two pictures of `settings` into packets; empty when it can.
    static QString check(const Candidate& candidate, const VideoEncoder::Settings& settings);
    // The log line of a choice: which encoder records, and why the others were passed over.
    static QString describe(const Choice& choice);
    // The process's choice (HevcEncoderChoice::process()): the encoder the ring records with,
    // worked out once and logged then. Blocks while the probe runs. Any thread.
    static QString chosen();
    // The choice, if it has been made; never waits. Any thread.
    static std::optional<QString> chosenSoFar();
};
