#pragma once

#include <QEasingCurve>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <functional>

// A value that swings from 0 to 1 and back for ever, each way an ease-in-out of 1.4 seconds: the
// breathing of a glow or a dot. It ticks only between start() and stop(), so that a control that is
// not on screen costs no CPU.
class PulseClock : public QObject {
    Q_OBJECT
public:
    static constexpr int halfPeriodMs = 1400;

    // `onTick` runs at each step (about 30 a second) while running; usually the owner's update().
    explicit PulseClock(std::function<void()> onTick, QObject* parent = nullptr);

    void start();
    void stop();
    bool isRunning() const { return timer.isActive(); }
    // 0 when stopped; otherwise where the swing stands.
    double value() const;

private:
    std::function<void()> onTick;
    QTimer timer;
    QElapsedTimer elapsed;
    QEasingCurve easeInOut;
};
