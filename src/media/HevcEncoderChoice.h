#pragma once

#include "media/HevcEncoderProbe.h"

#include <QSize>
#include <QString>

#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <utility>
#include <vector>

// Which HEVC encoder records: the probe's choice, made once, and then held to what the encoder does
// at the stream's own size. A hardware encoder that passes the probe's small pictures can still
// fail at 1920x1080 (a chip or driver limited to smaller surfaces): before it records at a size for
// the first time it must turn two pictures of that size into packets, and if it cannot, or does not
// open there, libx265 records instead, from then on, and the log says why, as the probe's line
// does. The check costs a moment once per size, and no picture of the stream.
//
// Threads: any. chosen() and open() block while a probe or a check runs; chosenSoFar() never does.
class HevcEncoderChoice {
public:
    // Chooses among `candidates` in their order; libx265 is added at the end when they lack it.
    explicit HevcEncoderChoice(std::vector<HevcEncoderProbe::Candidate> candidates = HevcEncoderProbe::candidates());

    // The process's one: what the ring records with unless told otherwise, and what the status
    // reports.
    static const std::shared_ptr<HevcEncoderChoice>& process();

    // The encoder chosen so far, probing (and logging) first if no choice has been made.
    QString chosen();
    std::optional<QString> chosenSoFar() const;
    // The chosen encoder opened for recording at `settings`; libx265 when the chosen one fails at
    // that size (see above). Null with *error when even libx265 cannot open.
    std::unique_ptr<HevcEncoderProbe::Encoder> open(const VideoEncoder::Settings& settings, QString* error);

private:
    const HevcEncoderProbe::Candidate& candidate(const QString& name) const;
    void chooseIfNeeded(); // with `choosing` held
    // Records why the current choice fails at `size` and moves to libx265. With `choosing` held.
    void passOver(const QSize& size, const QString& failure);

    const std::vector<HevcEncoderProbe::Candidate> candidates;
    std::mutex choosing; // one probe, check or open at a time
    mutable std::mutex mutex; // guards the fields below; never held while an encoder runs
    std::optional<HevcEncoderProbe::Choice> choice;
    std::set<std::pair<int, int>> provenSizes; // where the choice has made packets
};
