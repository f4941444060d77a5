#include "monitor/AreaMonitor.h"

#include "monitor/AreaMonitorActions.h"
#include "monitor/AreaSignature.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QPainter>

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using Phase = AreaMonitor::MonitorPhase;

namespace {

// The screen, as the monitor sees it: one picture for any rectangle, and windows with frames. The
// poll timer grabs on the monitor's own thread: what a test reads while it runs, it reads under
// `mutex`.
struct FakeScreen {
    std::mutex mutex;
    QImage picture;
    bool failing = false;
    std::map<uint32_t, QRectF> windows;
    std::vector<QRectF> screenGrabs;
    std::vector<std::thread::id> screenGrabThreads;
    std::vector<std::pair<uint32_t, QRectF>> windowGrabs;
};

class FakeGrabber : public AreaGrabber {
public:
    explicit FakeGrabber(FakeScreen& screen)
        : screen(screen)
    {
    }
    std::optional<QImage> grabRect(const QRectF& rect) override
    {
        std::lock_guard lock(screen.mutex);
        screen.screenGrabs.push_back(rect);
        screen.screenGrabThreads.push_back(std::this_thread::get_id());
        if (screen.failing) return std::nullopt;
        return screen.picture;
    }
    std::optional<QImage> grabWindowRect(uint32_t id, const QRectF& rect) override
    {
        std::lock_guard lock(screen.mutex);
        screen.windowGrabs.emplace_back(id, rect);
        if (screen.failing || !screen.windows.count(id)) return std::nullopt;
        return screen.picture;
    }
    std::optional<QRectF> windowFrame(uint32_t id) override
    {
        std::lock_guard lock(screen.mutex);
        const auto it = screen.windows.find(id);
        if (it == screen.windows.end()) return std::nullopt;
        return it->second;
    }

private:
    FakeScreen& screen;
};

// A 160x160 black picture with `cells` whole cells (10x10 points each) painted white.
QImage withWhiteCells(int cells)
{
    QImage image(160, 160, QImage::Format_RGB32);
    image.fill(Qt::black);
    QPainter painter(&image);
    for (int i = 0; i < cells; ++i)
        painter.fillRect((i % 16) * 10, (i / 16) * 10, 10, 10, Qt::white);
    return image;
}

// A black picture whose signature differs from black's by exactly `total`: whole cells of one
// reachable gray and one cell for the remainder.
QImage withDifference(int total)
{
    // Dark grays: every byte up to about 60 is the signature of some sRGB gray.
    std::map<int, int> grayForByte;
    for (int s = 0; s < 256; ++s) {
        QImage one(16, 16, QImage::Format_RGB32);
        one.fill(QColor(s, s, s));
        grayForByte.emplace(static_cast<uint8_t>((*AreaSignature::downsampleToSignature(one))[0]), s);
    }
    QImage image(160, 160, QImage::Format_RGB32);
    image.fill(Qt::black);
    QPainter painter(&image);
    int cell = 0;
    for (; total >= 60; total -= 60, ++cell)
        painter.fillRect((cell % 16) * 10, (cell / 16) * 10, 10, 10,
            QColor(grayForByte.at(60), grayForByte.at(60), grayForByte.at(60)));
    if (total > 0) {
        const int s = grayForByte.at(total);
        painter.fillRect((cell % 16) * 10, (cell / 16) * 10, 10, 10, QColor(s, s, s));
    }
    return image;
}

class AreaMonitorTest : public ::testing::Test {
protected:
    AreaMonitorTest()
        : monitor(std::make_unique<FakeGrabber>(screen), [this] { return now; })
    {
        screen.picture = withWhiteCells(0);
        monitor.onShouldStartRecording = [this](std::chrono::nanoseconds) { ++starts; };
        monitor.onShouldStopRecording = [this] { ++stops; };
        monitor.onReferenceChanged = [this](const std::optional<QByteArray>& bytes) { references.push_back(bytes); };
    }

    // Armed over a black area with a black reference.
    void armOverBlack()
    {
        monitor.setRect(QRectF(100, 100, 160, 160));
        ASSERT_EQ(monitor.arm(), std::nullopt);
        references.clear();
    }

    void tickAt(std::chrono::milliseconds at)
    {
        now = start + at;
        monitor.tick();
    }

    FakeScreen screen;
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::time_point(1000s);
    std::chrono::steady_clock::time_point now = start;
    AreaMonitor monitor;
    int starts = 0;
    int stops = 0;
    std::vector<std::optional<QByteArray>> references;
};

} // namespace

TEST_F(AreaMonitorTest, ArmNeedsARectAndAReference)
{
    EXPECT_EQ(monitor.arm(), AreaMonitor::ArmFailure::noRect);
    monitor.setRect(QRectF(10, 20, 160, 160));
    // A new rectangle drops the (absent) reference and says so.
    ASSERT_EQ(references.size(), 1u);
    EXPECT_FALSE(references[0]);
    references.clear();
    screen.failing = true;
    EXPECT_EQ(monitor.arm(), AreaMonitor::ArmFailure::captureFailed);
    EXPECT_FALSE(monitor.isArmed());
    EXPECT_FALSE(monitor.isPolling());
    EXPECT_EQ(monitor.phase(), Phase::idle);

    screen.failing = false;
    EXPECT_EQ(monitor.arm(), std::nullopt);
    EXPECT_TRUE(monitor.isArmed());
    EXPECT_TRUE(monitor.isPolling());
    EXPECT_EQ(monitor.phase(), Phase::matching);
    ASSERT_TRUE(monitor.referenceSignature());
    EXPECT_EQ(monitor.referenceSignature()->size(), 256);
    ASSERT_TRUE(monitor.referenceThumbnail());
    EXPECT_EQ(monitor.referenceThumbnail()->size(), QSize(160, 160));
    ASSERT_EQ(references.size(), 1u);
    EXPECT_EQ(references[0], monitor.referenceSignature());
    EXPECT_EQ(screen.screenGrabs.back(), QRectF(10, 20, 160, 160));

    // Arming again keeps the reference.
    {
        std::lock_guard lock(screen.mutex);
        screen.picture = withWhiteCells(40);
    }
    EXPECT_EQ(monitor.arm(), std::nullopt);
    EXPECT_EQ(references.size(), 1u);
}

TEST_F(AreaMonitorTest, ThresholdsAreStrictlyGreaterThan)
{
    armOverBlack();
    screen.picture = withDifference(2500);
    monitor.tick();
    EXPECT_EQ(monitor.currentDiff(), 2500.0);
    EXPECT_EQ(monitor.phase(), Phase::matching);
    EXPECT_EQ(starts, 0);

    screen.picture = withDifference(2501);
    monitor.tick();
    EXPECT_EQ(monitor.currentDiff(), 2501.0);
    EXPECT_EQ(monitor.phase(), Phase::divergent);
    EXPECT_EQ(starts, 1);

    // Three changed cells (765) match at high (900), four (1020) don't; low (6000) needs 24.
    struct Case {
        AreaSensitivity sensitivity;
        int cells;
        Phase expected;
    };
    for (const Case c :
        { Case { AreaSensitivity::high, 3, Phase::matching }, Case { AreaSensitivity::high, 4, Phase::divergent },
            Case { AreaSensitivity::low, 23, Phase::matching }, Case { AreaSensitivity::low, 24, Phase::divergent } }) {
        monitor.setSensitivity(c.sensitivity);
        screen.picture = withWhiteCells(c.cells);
        monitor.tick();
        EXPECT_EQ(monitor.phase(), c.expected) << c.cells;
    }
}

TEST_F(AreaMonitorTest, DivergenceStartsOnceAndThreeSecondsOfMatchStopIt)
{
    armOverBlack();
    tickAt(250ms);
    EXPECT_EQ(monitor.phase(), Phase::matching);
    EXPECT_EQ(monitor.currentDiff(), 0.0);
    EXPECT_EQ(starts, 0);

    screen.picture = withWhiteCells(20);
    tickAt(500ms);
    tickAt(750ms);
    EXPECT_EQ(monitor.phase(), Phase::divergent);
    EXPECT_EQ(monitor.currentDiff(), 20 * 255.0);
    EXPECT_EQ(starts, 1);
    EXPECT_TRUE(monitor.selfTriggeredRecording());

    screen.picture = withWhiteCells(0);
    tickAt(1000ms); // the streak starts here
    tickAt(3750ms);
    EXPECT_EQ(monitor.phase(), Phase::matching);
    EXPECT_EQ(stops, 0);
    tickAt(4000ms);
    EXPECT_EQ(stops, 1);
    EXPECT_FALSE(monitor.selfTriggeredRecording());
    EXPECT_FALSE(monitor.matchStreakStart());
    tickAt(9000ms);
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(starts, 1);
}

TEST_F(AreaMonitorTest, OneDivergentTickRestartsTheStreak)
{
    armOverBlack();
    screen.picture = withWhiteCells(20);
    tickAt(250ms);
    screen.picture = withWhiteCells(0);
    tickAt(500ms);
    tickAt(2750ms);
    screen.picture = withWhiteCells(20);
    tickAt(3000ms);
    EXPECT_FALSE(monitor.matchStreakStart());
    EXPECT_EQ(starts, 1) << "the recording asked for is still running";
    screen.picture = withWhiteCells(0);
    tickAt(3250ms); // a new streak
    tickAt(3500ms); // 3 s after the first streak began: nothing
    tickAt(6000ms);
    EXPECT_EQ(stops, 0);
    tickAt(6250ms);
    EXPECT_EQ(stops, 1);
}

TEST_F(AreaMonitorTest, FailedTicksChangeNothingAndTheClockKeepsTheStreak)
{
    armOverBlack();
    screen.picture = withWhiteCells(20);
    tickAt(250ms);
    screen.picture = withWhiteCells(0);
    tickAt(500ms);
    const double diff = monitor.currentDiff();
    screen.failing = true;
    for (auto t : { 750ms, 1500ms, 3000ms, 3500ms })
        tickAt(t);
    EXPECT_EQ(monitor.phase(), Phase::matching);
    EXPECT_EQ(monitor.currentDiff(), diff);
    EXPECT_EQ(stops, 0);
    EXPECT_TRUE(monitor.isArmed());
    screen.failing = false;
    tickAt(3500ms);
    EXPECT_EQ(stops, 1);
}

TEST_F(AreaMonitorTest, DisarmStopsOnlyARecordingItAskedFor)
{
    armOverBlack();
    monitor.disarm();
    EXPECT_EQ(stops, 0);
    EXPECT_FALSE(monitor.isArmed());
    EXPECT_FALSE(monitor.isPolling());
    EXPECT_EQ(monitor.phase(), Phase::idle);

    ASSERT_EQ(monitor.arm(), std::nullopt);
    screen.picture = withWhiteCells(20);
    tickAt(250ms);
    EXPECT_EQ(starts, 1);
    monitor.disarm();
    EXPECT_EQ(stops, 1);
    EXPECT_FALSE(monitor.selfTriggeredRecording());
    EXPECT_EQ(monitor.phase(), Phase::idle);
    EXPECT_EQ(monitor.currentDiff(), 20 * 255.0) << "disarming keeps the last value";
}

TEST_F(AreaMonitorTest, AStartDuringAManualRecordingStartsNothingButStillOwesTheStop)
{
    // The controller's side, with a recorder that is just a flag.
    bool recording = true; // started by hand
    int started = 0;
    int stopped = 0;
    std::vector<QString> toasts;
    monitor.onShouldStartRecording = [&](std::chrono::nanoseconds) {
        if (auto toast = AreaMonitorActions::startRequested(recording, [&] {
                ++started;
                recording = true;
            }))
            toasts.push_back(*toast);
    };
    monitor.onShouldStopRecording = [&] {
        if (auto toast = AreaMonitorActions::stopRequested(recording, [&] {
                ++stopped;
                recording = false;
            }))
            toasts.push_back(*toast);
    };
    armOverBlack();
    screen.picture = withWhiteCells(20);
    tickAt(250ms);
    EXPECT_EQ(started, 0);
    EXPECT_TRUE(toasts.empty());
    EXPECT_TRUE(monitor.selfTriggeredRecording()) << "the flag records the request, not the outcome";

    // The manual recording is stopped by the monitor once the area has matched for 3 s.
    screen.picture = withWhiteCells(0);
    tickAt(500ms);
    tickAt(3500ms);
    EXPECT_EQ(stopped, 1);
    ASSERT_EQ(toasts.size(), 1u);
    EXPECT_EQ(toasts[0], QStringLiteral("Area back to default — saving…"));

    // Idle again: a divergence starts a recording, with its toast.
    screen.picture = withWhiteCells(20);
    tickAt(3750ms);
    EXPECT_EQ(started, 1);
    EXPECT_EQ(toasts.back(), QStringLiteral("Area changed — recording…"));
}

TEST_F(AreaMonitorTest, ResetAfterAStopByHandLetsTheNextTickStartAgain)
{
    armOverBlack();
    screen.picture = withWhiteCells(20);
    tickAt(250ms);
    tickAt(500ms);
    EXPECT_EQ(starts, 1);
    monitor.monitorReset(); // the user stopped the recording while the area still differs
    tickAt(750ms);
    EXPECT_EQ(starts, 2);
    EXPECT_EQ(monitor.phase(), Phase::divergent);
}

TEST_F(AreaMonitorTest, ArmingWithAStoredReferenceComparesWithIt)
{
    monitor.hydrate(QRectF(100, 100, 160, 160), *AreaSignature::downsampleToSignature(withWhiteCells(0)));
    screen.picture = withWhiteCells(30);
    const size_t grabs = screen.screenGrabs.size();
    ASSERT_EQ(monitor.arm(), std::nullopt);
    EXPECT_EQ(screen.screenGrabs.size(), grabs) << "no fresh reference";
    tickAt(250ms);
    EXPECT_EQ(starts, 1);
    EXPECT_TRUE(references.empty());
}

TEST_F(AreaMonitorTest, HydrateRestoresWithoutSideEffects)
{
    const QByteArray stored = *AreaSignature::downsampleToSignature(withWhiteCells(5));
    screen.picture = withWhiteCells(9);
    monitor.hydrate(QRectF(1, 2, 160, 160), stored);
    EXPECT_EQ(monitor.rect(), QRectF(1, 2, 160, 160));
    EXPECT_EQ(monitor.referenceSignature(), stored);
    ASSERT_TRUE(monitor.referenceThumbnail()) << "a grab of the screen at launch";
    EXPECT_EQ(monitor.phase(), Phase::idle);
    EXPECT_TRUE(references.empty());

    // A second hydration with nothing stored keeps the reference too.
    monitor.hydrate(QRectF(5, 5, 160, 160), std::nullopt);
    EXPECT_EQ(monitor.referenceSignature(), stored);
    EXPECT_TRUE(references.empty());

    // A later assignment of a different rectangle drops it and says so.
    monitor.setRect(QRectF(6, 6, 160, 160));
    EXPECT_FALSE(monitor.referenceSignature());
    EXPECT_FALSE(monitor.referenceThumbnail());
    ASSERT_EQ(references.size(), 1u);
    EXPECT_FALSE(references[0]);

    // Without a screen the reference is kept, without a thumbnail.
    AreaMonitor blind(nullptr);
    blind.hydrate(QRectF(1, 2, 3, 4), stored);
    EXPECT_EQ(blind.referenceSignature(), stored);
    EXPECT_FALSE(blind.referenceThumbnail());
}

TEST_F(AreaMonitorTest, StoredSignaturesOfOtherLengthsAreIgnored)
{
    for (int length : { 255, 257, 0 }) {
        AreaMonitor fresh(std::make_unique<FakeGrabber>(screen));
        int changes = 0;
        fresh.onReferenceChanged = [&](const std::optional<QByteArray>& bytes) {
            ++changes;
            EXPECT_EQ(bytes->size(), 256);
        };
        fresh.hydrate(QRectF(0, 0, 160, 160), QByteArray(length, '\x7f'));
        EXPECT_FALSE(fresh.referenceSignature()) << length;
        EXPECT_FALSE(fresh.referenceThumbnail()) << length;
        // The next arm() captures a new one.
        EXPECT_EQ(fresh.arm(), std::nullopt);
        EXPECT_EQ(changes, 1);
        EXPECT_TRUE(fresh.referenceSignature());
    }
}

TEST_F(AreaMonitorTest, ChangingTheRectDropsTheReferenceAndLeavesAnArmedMonitorInert)
{
    armOverBlack();
    monitor.setRect(QRectF(100, 100, 160, 160)); // the same again
    EXPECT_TRUE(monitor.referenceSignature());
    EXPECT_TRUE(references.empty());

    monitor.setRect(QRectF(50, 50, 160, 160));
    EXPECT_FALSE(monitor.referenceSignature());
    EXPECT_EQ(monitor.phase(), Phase::idle);
    EXPECT_TRUE(monitor.isArmed());
    EXPECT_TRUE(monitor.isPolling());
    const size_t grabs = screen.screenGrabs.size();
    screen.picture = withWhiteCells(100);
    tickAt(250ms);
    EXPECT_EQ(screen.screenGrabs.size(), grabs);
    EXPECT_EQ(starts, 0);

    // A new reference brings it back to life.
    EXPECT_TRUE(monitor.captureReference());
    EXPECT_EQ(monitor.phase(), Phase::matching);
    screen.picture = withWhiteCells(0);
    tickAt(500ms);
    EXPECT_EQ(starts, 1);
}

TEST_F(AreaMonitorTest, CaptureReferenceKeepsTheOldOneOnFailure)
{
    EXPECT_FALSE(monitor.captureReference()) << "no rect";
    monitor.setRect(QRectF(0, 0, 160, 160));
    references.clear();
    ASSERT_TRUE(monitor.captureReference());
    EXPECT_EQ(monitor.phase(), Phase::idle) << "not armed";
    const auto reference = monitor.referenceSignature();
    screen.failing = true;
    EXPECT_FALSE(monitor.captureReference());
    EXPECT_EQ(monitor.referenceSignature(), reference);
    EXPECT_TRUE(monitor.referenceThumbnail());
    EXPECT_EQ(references.size(), 1u);

    monitor.clearReference();
    EXPECT_FALSE(monitor.referenceSignature());
    EXPECT_FALSE(monitor.referenceThumbnail());
    ASSERT_EQ(references.size(), 2u);
    EXPECT_FALSE(references[1]);
}

TEST_F(AreaMonitorTest, AWindowScopedAreaFollowsItsWindow)
{
    screen.windows[42] = QRectF(300, 200, 800, 600);
    monitor.setRect(QRectF(350, 260, 160, 160), 42, screen.windows[42]);
    EXPECT_EQ(monitor.scopedWindowID(), 42u);
    EXPECT_EQ(monitor.windowLocalRect(), QRectF(50, 60, 160, 160));
    ASSERT_EQ(monitor.arm(), std::nullopt);
    ASSERT_EQ(screen.windowGrabs.size(), 1u);
    EXPECT_EQ(screen.windowGrabs[0], std::make_pair(42u, QRectF(350, 260, 160, 160)));
    EXPECT_TRUE(screen.screenGrabs.empty());

    // The window moves; its content is the same, so nothing changes but where the grab looks.
    screen.windows[42] = QRectF(0, 10, 800, 600);
    tickAt(250ms);
    EXPECT_EQ(screen.windowGrabs.back().second, QRectF(50, 70, 160, 160));
    EXPECT_EQ(monitor.currentDiff(), 0.0);
    EXPECT_EQ(monitor.rect(), QRectF(350, 260, 160, 160)) << "rect keeps the position of the pick";

    // The window closes while the area differs: the monitor freezes, still armed.
    screen.picture = withWhiteCells(30);
    tickAt(500ms);
    EXPECT_EQ(monitor.phase(), Phase::divergent);
    screen.windows.clear();
    screen.picture = withWhiteCells(0);
    tickAt(750ms);
    tickAt(5000ms);
    EXPECT_EQ(monitor.phase(), Phase::divergent);
    EXPECT_TRUE(monitor.isArmed());
    EXPECT_EQ(stops, 0);

    // A rectangle without a window drops the scope, and none drops it too.
    monitor.setRect(QRectF(1, 1, 160, 160), 42, std::nullopt);
    EXPECT_FALSE(monitor.scopedWindowID());
    monitor.setRect(QRectF(2, 2, 160, 160), 7, QRectF(0, 0, 10, 10));
    EXPECT_TRUE(monitor.scopedWindowID());
    monitor.setRect(std::nullopt);
    EXPECT_FALSE(monitor.scopedWindowID());
    EXPECT_FALSE(monitor.windowLocalRect());
}

TEST_F(AreaMonitorTest, ThePollTimerTicksFourTimesASecond)
{
    armOverBlack();
    const auto grabCount = [this] {
        std::lock_guard lock(screen.mutex);
        return screen.screenGrabs.size();
    };
    const size_t grabs = grabCount();
    QElapsedTimer elapsed;
    elapsed.start();
    while (grabCount() < grabs + 2 && elapsed.elapsed() < 2000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    EXPECT_EQ(grabCount(), grabs + 2);
    // Two ticks take two intervals; allow a loaded machine some slack, but not a tick at arm().
    EXPECT_GE(elapsed.elapsed(), 450);
    EXPECT_LT(elapsed.elapsed(), 1500);
    monitor.disarm();
    const size_t after = grabCount();
    elapsed.restart();
    while (elapsed.elapsed() < 400)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    EXPECT_EQ(grabCount(), after);
}

TEST_F(AreaMonitorTest, ThePollGrabsOffTheMainThreadAndItsResultDrivesTheStateTable)
{
    armOverBlack();
    size_t before = 0;
    {
        std::lock_guard lock(screen.mutex);
        before = screen.screenGrabs.size();
        screen.picture = withWhiteCells(40);
    }
    QElapsedTimer elapsed;
    elapsed.start();
    while (starts == 0 && elapsed.elapsed() < 3000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    EXPECT_EQ(starts, 1);
    EXPECT_EQ(monitor.phase(), Phase::divergent);
    monitor.disarm();
    std::lock_guard lock(screen.mutex);
    ASSERT_GT(screen.screenGrabs.size(), before);
    for (size_t i = before; i < screen.screenGrabThreads.size(); ++i)
        EXPECT_NE(screen.screenGrabThreads[i], std::this_thread::get_id());
}

// The real clock here: what is checked is what a busy main thread does to the poll's moments.
TEST(AreaMonitorPoll, AChangeThatComesAndGoesWhileTheWindowIsBusyStillRecordsAndStopsOnItsOwnTimes)
{
    FakeScreen screen;
    screen.picture = withWhiteCells(0);
    AreaMonitor monitor(std::make_unique<FakeGrabber>(screen));
    std::vector<std::chrono::nanoseconds> starts;
    int stops = 0;
    monitor.onShouldStartRecording = [&](std::chrono::nanoseconds seenAgo) { starts.push_back(seenAgo); };
    monitor.onShouldStopRecording = [&] { ++stops; };
    monitor.setRect(QRectF(100, 100, 160, 160));
    ASSERT_EQ(monitor.arm(), std::nullopt);

    // The main thread answers nothing for 4 s: the area changes for 0.6 s, then matches again.
    const auto paint = [&](int cells) {
        std::lock_guard lock(screen.mutex);
        screen.picture = withWhiteCells(cells);
    };
    paint(40);
    std::this_thread::sleep_for(600ms);
    paint(0);
    std::this_thread::sleep_for(3400ms);
    EXPECT_TRUE(starts.empty());

    QCoreApplication::processEvents();
    // The change asked for one recording, seen about 4 s before the window could answer, and the
    // 3 s of match after it, timed by when they were seen, ended it.
    ASSERT_EQ(starts.size(), 1u);
    EXPECT_GE(starts[0], 3300ms);
    EXPECT_LT(starts[0], 8s);
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(monitor.phase(), Phase::matching);
    monitor.disarm();
}
