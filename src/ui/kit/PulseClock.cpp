#include "ui/kit/PulseClock.h"

#include <QPointF>

PulseClock::PulseClock(std::function<void()> onTick, QObject* parent)
    : QObject(parent)
    , onTick(std::move(onTick))
    , easeInOut(QEasingCurve::BezierSpline)
{
    // The usual ease-in-out timing curve, (0.42, 0) and (0.58, 1).
    easeInOut.addCubicBezierSegment(QPointF(0.42, 0.0), QPointF(0.58, 1.0), QPointF(1.0, 1.0));
    // A slow glow needs no more than 30 steps a second; coarse timers let the system batch wake-ups.
    timer.setInterval(33);
    connect(&timer, &QTimer::timeout, this, [this] {
        if (this->onTick) this->onTick();
    });
}

void PulseClock::start()
{
    if (timer.isActive()) return;
    elapsed.start();
    timer.start();
}

void PulseClock::stop()
{
    timer.stop();
    elapsed.invalidate();
}

double PulseClock::value() const
{
    if (!timer.isActive() || !elapsed.isValid()) return 0.0;
    const qint64 inPeriod = elapsed.elapsed() % (2 * halfPeriodMs);
    const double forward = double(inPeriod) / halfPeriodMs; // 0..2
    const double progress = forward <= 1.0 ? forward : 2.0 - forward;
    return easeInOut.valueForProgress(progress);
}
