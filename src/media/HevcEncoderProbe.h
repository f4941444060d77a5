#pragma once

#include <QString>
#include <QStringList>

// Which HEVC encoder the segment writers use. Hardware encoders are tried first, in the order
// hevc_vaapi, hevc_nvenc, hevc_qsv; libx265 is the fall-back that is always there. A candidate
// counts when it opens and encodes one small picture; on a machine without the hardware each
// one fails within milliseconds and nothing is printed.
class HevcEncoderProbe {
public:
    static QStringList candidates();
    // The first of `names` that works, or "libx265" if none does. Any thread.
    static QString probe(const QStringList& names);
    // probe(candidates()), worked out once per process (the answer cannot change while the
    // program runs). Any thread.
    static QString chosen();
};
