#pragma once

#include "core/Guarded.h"
#include "core/PeriodicTicker.h"
#include "core/SettingsEnums.h"
#include "monitor/AreaGrabber.h"

#include <QByteArray>
#include <QImage>
#include <QObject>
#include <QRectF>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

// Watches one rectangle of the screen and asks for a recording for as long as it looks different
// from a stored reference picture. Four times a second while armed it grabs the rectangle, reduces
// it to a 16x16 gray signature and sums the byte differences to the reference. One tick over the
// threshold asks for a recording; 3 seconds of uninterrupted match end the one it asked for.
//
// It owns no recorder and no window: it talks to its owner through the callbacks below, and sees
// the screen only through an AreaGrabber.
//
// Threads: the state and every method are the main thread's, and so are the callbacks, which are
// called synchronously from tick(), disarm() and the poll's results. The poll runs on the monitor's
// own thread ("vt2.monitor.poll"): its clock, the window's present place and the area's signature,
// one grab at a time, so a window that is busy keeps neither the polls nor their moments from
// happening. What each poll saw, and when, waits for the main thread in a bounded line and drives
// the state table there in order, timed by when it was seen: a change that came and went while the
// window was busy still asks for a recording, and says how long ago it was seen. A sighting from
// before the area or its reference changed is thrown away.

class AreaMonitor : public QObject {
    Q_OBJECT

public:
    enum class MonitorPhase { idle, matching, divergent };
    Q_ENUM(MonitorPhase)
    enum class ArmFailure { noRect, captureFailed };
    Q_ENUM(ArmFailure)

private:
    Q_PROPERTY(MonitorPhase phase READ phase NOTIFY phaseChanged)
    Q_PROPERTY(double currentDiff READ currentDiff NOTIFY currentDiffChanged)
    Q_PROPERTY(bool isArmed READ isArmed NOTIFY isArmedChanged)
    Q_PROPERTY(std::optional<QImage> referenceThumbnail READ referenceThumbnail NOTIFY referenceThumbnailChanged)
    Q_PROPERTY(AreaSensitivity sensitivity READ sensitivity WRITE setSensitivity NOTIFY sensitivityChanged)
    Q_PROPERTY(std::optional<QRectF> rect READ rect WRITE setRect NOTIFY rectChanged)

public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    // Seconds of uninterrupted match that end a self-triggered recording.
    static constexpr double stopDebounce = 3.0;
    // Seconds between ticks while armed.
    static constexpr double pollInterval = 0.25;

    // A null grabber makes every grab fail. Without a clock, the steady clock is used; the poll reads
    // it on the monitor's thread. The grabber is called on the main thread and on the monitor's
    // thread, never on both at once for a poll, but a reference may be taken while a poll's grab
    // runs: it must be safe for that.
    explicit AreaMonitor(std::unique_ptr<AreaGrabber> grabber, Clock clock = {}, QObject* parent = nullptr);
    ~AreaMonitor() override;

    MonitorPhase phase() const { return phaseValue; }
    // The last metric, 0 to 65280; disarming leaves it as it was.
    double currentDiff() const { return currentDiffValue; }
    bool isArmed() const { return isArmedValue; }
    // The full picture taken with the reference, for the user interface.
    std::optional<QImage> referenceThumbnail() const { return referenceThumbnailValue; }
    // Read afresh on every tick.
    AreaSensitivity sensitivity() const { return sensitivityValue; }
    void setSensitivity(AreaSensitivity value);

    // The watched area in global display space, points. Assigning a different rectangle (unless
    // hydrating) drops the reference and sets the phase to idle; an armed monitor stays armed but
    // does nothing until a new reference is captured. Assigning none also drops the window scope.
    std::optional<QRectF> rect() const { return rectValue; }
    void setRect(const std::optional<QRectF>& value);
    // Sets the area tied to a window: with both an id and the window's frame, the area is kept
    // relative to the window and followed wherever it moves; otherwise the scope is cleared.
    void setRect(const QRectF& value, std::optional<uint32_t> scopedTo, std::optional<QRectF> windowFrame);

    // The window the area belongs to, and the area relative to its top-left corner. Memory only.
    std::optional<uint32_t> scopedWindowID() const { return scopedWindowIDValue; }
    std::optional<QRectF> windowLocalRect() const { return windowLocalRectValue; }
    void clearWindowScope();

    // Always 256 bytes when present.
    std::optional<QByteArray> referenceSignature() const { return referenceSignatureValue; }
    // True while the monitor has asked for a recording and still owes it a stop.
    bool selfTriggeredRecording() const { return selfTriggeredRecordingValue; }
    std::optional<std::chrono::steady_clock::time_point> matchStreakStart() const { return matchStreakStartValue; }
    // True from arm() to disarm(): the poll runs.
    bool isPolling() const { return poller.isRunning(); }

    // Starts watching. Captures a reference first only if there is none (a restored one is kept).
    // None on success; the first comparison comes one poll interval later.
    std::optional<ArmFailure> arm();
    // Stops watching; a recording that the monitor asked for is stopped at once.
    void disarm();
    // Grabs the area now and makes it the reference; an existing reference survives a failure.
    bool captureReference();
    // Grabs `value` (tied to a window as setRect does) and, only if that works, makes it the area
    // and the picture its reference. On failure nothing changes: the old area and reference stay.
    bool captureReferenceOf(const QRectF& value, std::optional<uint32_t> scopedTo, std::optional<QRectF> windowFrame);
    // Drops the reference and its thumbnail, and reports the change.
    void clearReference();
    // Restores the persisted area and reference at launch: no reference is cleared, nothing is
    // reported, and a signature of any length but 256 is ignored. The thumbnail is a fresh grab.
    void hydrate(const std::optional<QRectF>& rect, const std::optional<QByteArray>& signatureData);
    // Forgets a requested recording and the match streak. The owner calls it whenever a recording
    // ends, whoever stopped it, so a recording stopped by hand is no longer the monitor's.
    void monitorReset();

    // One comparison, grabbing here and now; public so that a test can drive the state table with
    // its own clock. The poll does the same with the grab on the monitor's thread.
    void tick();

    // Polls whose sightings may wait for the main thread; older ones give way (a minute's worth).
    static constexpr size_t sightingsWaitingLimit = 240;

    // Called when a tick first finds the area changed, with how long before the call it saw the
    // change (a busy window holds the call back), and when it has matched again for 3 s.
    std::function<void(std::chrono::nanoseconds seenAgo)> onShouldStartRecording;
    std::function<void()> onShouldStopRecording;
    // Every change of the reference (none when dropped), for persistence. Not called by hydrate().
    std::function<void(const std::optional<QByteArray>&)> onReferenceChanged;

signals:
    void phaseChanged();
    void currentDiffChanged();
    void isArmedChanged();
    void referenceThumbnailChanged();
    void sensitivityChanged();
    void rectChanged();

private:
    // Where a grab looks: the window-scoped area at the window's present place, or the rectangle.
    struct GrabTarget {
        std::optional<uint32_t> windowID;
        QRectF area;
    };
    // For the watched area; none when it has none or its window is gone.
    std::optional<GrabTarget> grabTarget();
    // For an area watched on its own or through a window.
    std::optional<GrabTarget> grabTargetOf(
        const QRectF& area, std::optional<uint32_t> windowID, const QRectF& windowLocal);
    // The picture, for a reference and its thumbnail.
    std::optional<QImage> screenshot();
    std::optional<QImage> screenshotOf(const GrabTarget& target);
    void adoptReference(QImage image, const QByteArray& signature);
    // The signature alone, for a tick: the grabber may get it without making the picture.
    std::optional<QByteArray> liveSignature();
    // The signature of the area as it is now (none when it can't be seen), on any thread.
    static std::optional<QByteArray> signatureOf(AreaGrabber& grabber, const QRectF& area,
        std::optional<uint32_t> windowID, const std::optional<QRectF>& windowLocal);
    // What a poll grabs, as the main thread last set it; none while there is nothing to compare.
    struct PollTarget {
        QRectF area;
        std::optional<uint32_t> windowID;
        std::optional<QRectF> windowLocal;
        uint64_t generation = 0;
    };
    // What a poll saw, and when.
    struct Sighting {
        std::optional<QByteArray> live;
        std::chrono::steady_clock::time_point at;
        uint64_t generation = 0;
    };
    struct Sightings {
        std::deque<Sighting> waiting;
        // A call to takeSightings is on its way to the main thread.
        bool posted = false;
    };
    // Marks every sighting so far as about something else and tells the poll what to grab now.
    void retarget();
    // On the monitor's thread: one grab, handed to the main thread.
    void poll();
    void takeSightings();
    // The state table, on the signature a tick found at `seenAt`.
    void compare(const std::optional<QByteArray>& live, std::chrono::steady_clock::time_point seenAt);
    void setPhase(MonitorPhase value);
    void setCurrentDiff(double value);
    void setIsArmed(bool value);
    void setReferenceThumbnail(std::optional<QImage> value);

    std::unique_ptr<AreaGrabber> grabber;
    Clock clock;

    MonitorPhase phaseValue = MonitorPhase::idle;
    double currentDiffValue = 0.0;
    bool isArmedValue = false;
    std::optional<QImage> referenceThumbnailValue;
    AreaSensitivity sensitivityValue = AreaSensitivity::medium;
    std::optional<QRectF> rectValue;
    std::optional<uint32_t> scopedWindowIDValue;
    std::optional<QRectF> windowLocalRectValue;
    std::optional<QByteArray> referenceSignatureValue;
    std::optional<std::chrono::steady_clock::time_point> matchStreakStartValue;
    bool selfTriggeredRecordingValue = false;
    bool hydrating = false;
    // Raised whenever the area or its reference changes or the monitor disarms: a sighting from
    // before is about something else.
    uint64_t pollGeneration = 0;
    Guarded<std::optional<PollTarget>> pollTarget;
    Guarded<Sightings> sightings;
    // Last: stopped first, so that a grab still running finishes while the grabber exists.
    PeriodicTicker poller { QStringLiteral("vt2.monitor.poll") };
};
