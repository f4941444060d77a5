#include "core/DropCounters.h"

#include <QStringList>

namespace {

bool isSound(DropCounters::Cause cause)
{
    return cause == DropCounters::Cause::audioBacklog || cause == DropCounters::Cause::audioEncoderBusy
        || cause == DropCounters::Cause::audioLate || cause == DropCounters::Cause::audioAhead;
}

QString why(DropCounters::Cause cause)
{
    switch (cause) {
    case DropCounters::Cause::captureBacklog:
        return QStringLiteral("capture buffers all in use");
    case DropCounters::Cause::ringBacklog:
    case DropCounters::Cause::audioBacklog:
        return QStringLiteral("ring behind");
    case DropCounters::Cause::encoderBusy:
        return QStringLiteral("encoder busy");
    case DropCounters::Cause::noSegment:
        return QStringLiteral("no segment open");
    case DropCounters::Cause::audioEncoderBusy:
        return QStringLiteral("sound encoder busy");
    case DropCounters::Cause::audioLate:
        return QStringLiteral("late");
    case DropCounters::Cause::audioAhead:
        return QStringLiteral("too far ahead");
    }
    return {};
}

} // namespace

bool DropCounters::Snapshot::isEmpty() const
{
    for (int64_t n : counts)
        if (n != 0) return false;
    return true;
}

int64_t DropCounters::Snapshot::total() const
{
    int64_t sum = 0;
    for (int64_t n : counts)
        sum += n;
    return sum;
}

DropCounters::Snapshot DropCounters::Snapshot::since(const Snapshot& earlier) const
{
    Snapshot difference;
    for (size_t i = 0; i < counts.size(); ++i)
        difference.counts[i] = counts[i] - earlier.counts[i];
    return difference;
}

QString DropCounters::Snapshot::describe() const
{
    QStringList parts;
    for (int i = 0; i < causeCount; ++i) {
        const auto cause = Cause(i);
        const int64_t n = counts[size_t(i)];
        if (n == 0) continue;
        const QString what = isSound(cause)
            ? (n == 1 ? QStringLiteral("audio buffer") : QStringLiteral("audio buffers"))
            : (n == 1 ? QStringLiteral("frame") : QStringLiteral("frames"));
        parts.append(QStringLiteral("%1 %2 (%3)").arg(n).arg(what, why(cause)));
    }
    return parts.join(QStringLiteral(", "));
}

DropCounters::Snapshot DropCounters::snapshot() const
{
    Snapshot copy;
    for (size_t i = 0; i < counts.size(); ++i)
        copy.counts[i] = counts[i].load(std::memory_order_relaxed);
    return copy;
}
