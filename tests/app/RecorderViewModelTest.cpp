#include "app/session/RecorderViewModel.h"

#include "ScriptedScreen.h"
#include "app/AppSettings.h"
#include "app/control/ControlCommands.h"
#include "app/session/AreaCommands.h"
#include "app/session/AudioRouting.h"
#include "app/session/EventNotifications.h"
#include "app/session/SessionStatus.h"
#include "app/session/SourceMemory.h"
#include "capture/CaptureEngine.h"
#include "devices/MicCapture.h"
#include "devices/ScriptedMicrophones.h"
#include "journal/ClipJournalStore.h"
#include "journal/ClipMetaStore.h"
#include "media/HevcEncoderProbe.h"
#include "monitor/AreaMonitor.h"
#include "platform/DesktopNotifications.h"
#include "platform/ocr/TesseractRecognizer.h"
#include "recorder/SegmentedRecorder.h"
#include "support/DrawnTextClip.h"
#include "support/EventLoop.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>

using namespace std::chrono_literals;

namespace {

class RecorderViewModelTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    std::shared_ptr<ScriptedScreen> screen = std::make_shared<ScriptedScreen>();
    std::shared_ptr<ScriptedMicrophones> microphones = std::make_shared<ScriptedMicrophones>();
    ManualTaskScheduler* clock = nullptr;
    std::unique_ptr<AppSettings> settings;
    std::unique_ptr<RecorderViewModel> vm;

    void SetUp() override
    {
        settings = std::make_unique<AppSettings>(
            std::make_unique<QSettings>(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat));
        settings->setSaveFolderPath(dir.filePath(QStringLiteral("clips")));
    }

    // What the area picker answers, when the test gives one; nullopt inside means "cancelled".
    std::optional<std::optional<QRectF>> pickerAnswer;
    // The OCR engine the controller reads saved clips with; none unless a test gives one.
    RecognizerFactory recognizers;

    struct ScriptedPicker : AreaPicker {
        std::optional<std::optional<QRectF>>* answer;
        explicit ScriptedPicker(std::optional<std::optional<QRectF>>* a)
            : answer(a)
        {
        }
        void pick(Completion completion) override { completion(answer->value_or(std::nullopt)); }
    };

    // The frame on the screen, as the controller last left it: its rectangle and style, or none.
    struct ShownFrame : ArmedFrame {
        std::optional<std::pair<QRectF, AreaOverlayStyle>>* shown;
        explicit ShownFrame(std::optional<std::pair<QRectF, AreaOverlayStyle>>* s)
            : shown(s)
        {
        }
        void show(const QRectF& rect, AreaOverlayStyle style) override { *shown = std::pair(rect, style); }
        void dismiss() override { shown->reset(); }
    };
    std::optional<std::pair<QRectF, AreaOverlayStyle>> frame;

    // Whom the controller asked to hear of the sound server; the test speaks in its place.
    struct HeardServer : SoundServerWatcher {
        Report* report;
        explicit HeardServer(Report* r)
            : report(r)
        {
        }
        void watch(Report r) override { *report = std::move(r); }
    };
    SoundServerWatcher::Report soundServer;

    void make()
    {
        auto scheduler = std::make_unique<ManualTaskScheduler>();
        clock = scheduler.get();
        RecorderViewModel::Backends backends;
        backends.screen = screen;
        backends.microphones = microphones;
        backends.scheduler = std::move(scheduler);
        if (pickerAnswer) backends.areaPicker = std::make_unique<ScriptedPicker>(&pickerAnswer);
        backends.armedFrame = std::make_unique<ShownFrame>(&frame);
        backends.textRecognizer = recognizers;
        backends.soundServer = std::make_unique<HeardServer>(&soundServer);
        vm = std::make_unique<RecorderViewModel>(settings.get(), std::move(backends));
    }

    void startUp()
    {
        bool done = false;
        vm->startUp([&] { done = true; });
        ASSERT_TRUE(spinUntil([&] { return done; }));
    }
};

} // namespace

TEST_F(RecorderViewModelTest, StartUpSelectsAndStreamsWithoutSavingTheRestoredSource)
{
    settings->setSavedSourceDescriptor(QStringLiteral("window:org.kde.konsole@@Chart: BTC@@USD"));
    make();
    EXPECT_TRUE(vm->isPersistenceSuppressed());
    startUp();
    EXPECT_FALSE(vm->isPersistenceSuppressed());
    ASSERT_TRUE(vm->engine()->selectedSource());
    EXPECT_EQ(vm->engine()->selectedSource()->capturedWindow().windowID, 11u);
    EXPECT_EQ(vm->sourceMemory()->sourceLabelForFilename(), QStringLiteral("Konsole"));

    // From now on a selection is remembered; a region forgets the saved source.
    vm->engine()->setSelectedSource(CaptureSource::display(screen->content.displays[1]));
    EXPECT_EQ(settings->savedSourceDescriptor(), QStringLiteral("display:2"));
    vm->engine()->setSelectedSource(
        CaptureSource::region(screen->content.displays[0], QRectF(0, 0, 100, 100), 100, 100));
    EXPECT_FALSE(settings->savedSourceDescriptor());
}

TEST_F(RecorderViewModelTest, SettingsChangesCloseTogetherRestartTheStreamOnce)
{
    make();
    startUp();
    vm->startPreview();
    const int afterStart = screen->streamsStarted;
    ASSERT_GE(afterStart, 1);

    settings->setResolution(Resolution::res720);
    spinFor(150);
    settings->setCursor(CursorMode::hide);
    spinFor(600);
    EXPECT_EQ(screen->streamsStarted, afterStart + 1);
    EXPECT_FALSE(screen->lastConfiguration.showsCursor);

    // A preset that changes resolution, frame rate and bit rate: one restart.
    settings->setQualityMode(QualityMode::discord);
    spinFor(600);
    EXPECT_EQ(screen->streamsStarted, afterStart + 2);

    // Bit rate and buffer length act at the next configure and restart nothing.
    settings->setBitrateMbps(8);
    settings->setBufferSeconds(30);
    spinFor(600);
    EXPECT_EQ(screen->streamsStarted, afterStart + 2);
}

TEST_F(RecorderViewModelTest, AutoStopAfterOneAndAHalfMinutesAndItsCancellation)
{
    settings->setAutoStopMinutes(1.5);
    make();
    startUp();
    vm->startRecording();
    clock->advance(89s);
    EXPECT_FALSE(vm->status()->toast());
    clock->advance(1s);
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Auto-stop triggered after 1 min"));

    // Stopping by hand first cancels the timer: no toast, ever.
    clock->advance(10s);
    vm->startRecording();
    clock->advance(30s);
    vm->stopRecording();
    clock->advance(120s);
    EXPECT_NE(vm->status()->toast(), QStringLiteral("Auto-stop triggered after 1 min"));

    // Zero or a negative number means no timer.
    settings->setAutoStopMinutes(-1);
    vm->startRecording();
    clock->advance(3600s);
    EXPECT_NE(vm->status()->toast(), QStringLiteral("Auto-stop triggered after 1 min"));
    vm->stopRecording();

    // Nor does a timer so short that it would stop every recording as it starts.
    settings->setAutoStopMinutes(1e-300);
    vm->startRecording();
    clock->advance(1s);
    EXPECT_TRUE(vm->recorder()->isRecording());
    EXPECT_FALSE(vm->status()->toast() && vm->status()->toast()->startsWith(QStringLiteral("Auto-stop")));
}

TEST_F(RecorderViewModelTest, ARefusedSaveFolderIsToldAtTheStartOfARecordingAndTheDefaultIsUsed)
{
    const QByteArray home = qgetenv("HOME");
    qputenv("HOME", QFile::encodeName(dir.path()));
    QSettings(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat)
        .setValue(QStringLiteral("vt2.savePath"), QString());
    settings = std::make_unique<AppSettings>(
        std::make_unique<QSettings>(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat));
    make();
    vm->startRecording();
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("No save folder is set; clips go to %1/Desktop.").arg(dir.path()));
    EXPECT_TRUE(QFileInfo(dir.filePath(QStringLiteral("Desktop"))).isDir());
    vm->stopRecording();
    qputenv("HOME", home);
}

TEST_F(RecorderViewModelTest, ToastLastsTwoPointEightSecondsAndTheNewestWins)
{
    make();
    vm->showToast(QStringLiteral("one"));
    clock->advance(2s);
    vm->showToast(QStringLiteral("two"));
    clock->advance(1s); // the first timer wakes, finds another text and leaves it
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("two"));
    clock->advance(1800ms);
    EXPECT_FALSE(vm->status()->toast());

    // The same text twice shares the earlier timer.
    vm->showToast(QStringLiteral("same"));
    clock->advance(2s);
    vm->showToast(QStringLiteral("same"));
    clock->advance(800ms);
    EXPECT_FALSE(vm->status()->toast());
}

TEST_F(RecorderViewModelTest, CaptureModeIsRestoredAndRememberedOnlyAfterStartUp)
{
    settings->setSavedCaptureMode(QStringLiteral("areaMonitor"));
    make();
    EXPECT_EQ(vm->captureMode(), RecorderViewModel::CaptureMode::areaMonitor);
    vm->setCaptureMode(RecorderViewModel::CaptureMode::manual);
    EXPECT_EQ(settings->savedCaptureMode(), QStringLiteral("areaMonitor")); // suppressed during start-up
    startUp();
    vm->setCaptureMode(RecorderViewModel::CaptureMode::areaMonitor);
    EXPECT_EQ(settings->savedCaptureMode(), QStringLiteral("areaMonitor"));
    vm->setCaptureMode(RecorderViewModel::CaptureMode::manual);
    EXPECT_EQ(settings->savedCaptureMode(), QStringLiteral("manual"));

    settings->setSavedCaptureMode(QStringLiteral("surprise"));
    make();
    EXPECT_EQ(vm->captureMode(), RecorderViewModel::CaptureMode::manual);
    EXPECT_EQ(settings->savedCaptureMode(), QStringLiteral("surprise"));
}

TEST_F(RecorderViewModelTest, StopWithNothingBufferedReportsTheErrorAsAToast)
{
    make();
    startUp();
    vm->startRecording();
    vm->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return vm->status()->toast().has_value(); }));
    EXPECT_EQ(vm->status()->toast(),
        QStringLiteral("Error: Nothing was buffered yet — wait a second after starting preview."));
}

TEST_F(RecorderViewModelTest, AreaMonitorComesBackFromTheSettingsAndDrivesRecordings)
{
    // A stored area and an all-black reference come back at launch without touching the settings.
    settings->setAreaMonitorRect(QRectF(10, 20, 64, 32));
    settings->setAreaReferenceSignature(QByteArray(256, '\0'));
    settings->setAreaSensitivity(AreaSensitivity::high);
    QImage white(64, 32, QImage::Format_RGB32);
    white.fill(Qt::white);
    screen->screenPicture = white;
    make();
    AreaMonitor* monitor = vm->areaMonitor();
    EXPECT_EQ(monitor->rect(), QRectF(10, 20, 64, 32));
    ASSERT_TRUE(monitor->referenceSignature());
    EXPECT_EQ(*monitor->referenceSignature(), QByteArray(256, '\0'));
    EXPECT_EQ(monitor->sensitivity(), AreaSensitivity::high);
    EXPECT_EQ(settings->areaReferenceSignature(), QByteArray(256, '\0'));

    QStringList toasts;
    QObject::connect(vm->status(), &SessionStatus::toastChanged, [&] {
        if (vm->status()->toast()) toasts << *vm->status()->toast();
    });

    // Armed without a fresh capture: the white screen differs from the black reference at once.
    vm->toggleAreaMonitor();
    EXPECT_EQ(toasts.value(0), QStringLiteral("Area monitor armed"));
    monitor->tick();
    ASSERT_TRUE(spinUntil([&] { return vm->recorder()->isRecording(); }));
    EXPECT_EQ(toasts.value(1), QStringLiteral("Area changed — recording…"));

    // Disarming during the recording it asked for saves it at once.
    vm->toggleAreaMonitor();
    ASSERT_TRUE(spinUntil([&] { return !vm->recorder()->isRecording(); }));
    EXPECT_EQ(toasts.value(2), QStringLiteral("Area monitor disarmed"));
    EXPECT_EQ(toasts.value(3), QStringLiteral("Area back to default — saving…"));
    EXPECT_TRUE(spinUntil([&] { return toasts.size() >= 5; })) << toasts.join(u'|').toStdString();
    EXPECT_TRUE(toasts.value(4).startsWith(QStringLiteral("Error: "))); // nothing was buffered

    // During a recording started by hand, a change of the area starts nothing and says nothing.
    vm->startRecording();
    ASSERT_TRUE(spinUntil([&] { return vm->recorder()->isRecording(); }));
    vm->toggleAreaMonitor();
    monitor->tick();
    spinFor(100);
    EXPECT_EQ(toasts.size(), 6);
    EXPECT_TRUE(monitor->selfTriggeredRecording());
    // Stopping by hand makes the monitor forget the recording it asked for.
    vm->stopRecording();
    EXPECT_FALSE(monitor->selfTriggeredRecording());
    vm->toggleAreaMonitor();

    // A new area and sensitivity are remembered; the old reference goes, and with it the stored one.
    vm->areaCommands()->setPickedAreaRect(QRectF(0, 0, 40, 40));
    monitor->setSensitivity(AreaSensitivity::low);
    EXPECT_EQ(settings->areaMonitorRect(), QRectF(0, 0, 40, 40));
    EXPECT_FALSE(settings->areaReferenceSignature());
    EXPECT_EQ(settings->areaSensitivity(), AreaSensitivity::low);
}

TEST_F(RecorderViewModelTest, AWatchedAreaMustBeOnADisplayAndGrabbedOrTheOldOneStays)
{
    QImage white(64, 32, QImage::Format_RGB32);
    white.fill(Qt::white);
    screen->screenPicture = white;
    make();
    startUp();
    ControlCommands commands(*vm);
    const auto area = [&](double x, double y) {
        return commands.handle({ "area", QString::number(x), QString::number(y), "40", "40" });
    };
    EXPECT_EQ(area(0, 0).text, QStringLiteral("Watch area captured"));
    const auto reference = settings->areaReferenceSignature();
    ASSERT_TRUE(reference);
    const auto unchanged = [&] {
        EXPECT_EQ(vm->areaMonitor()->rect(), QRectF(0, 0, 40, 40));
        EXPECT_EQ(settings->areaMonitorRect(), QRectF(0, 0, 40, 40));
        EXPECT_EQ(settings->areaReferenceSignature(), reference);
    };

    // Below the taller display, past the right one, left of the left one: no display shows them.
    for (const auto& [x, y] : { std::pair(100.0, 1100.0), std::pair(5000.0, 5000.0), std::pair(-40.0, 0.0) }) {
        const auto reply = area(x, y);
        EXPECT_FALSE(reply.ok);
        EXPECT_EQ(
            reply.text, QStringLiteral("That area is on no display (displays: 1920x1080+0+0, 1280x1024+1920+0)."));
        unchanged();
    }
    // Reaching over a display's edge is fine.
    EXPECT_TRUE(area(1900, 1000).ok);
    EXPECT_TRUE(area(0, 0).ok);

    // A grab that fails changes nothing, and its words are true where no permission exists.
    screen->screenPicture.reset();
    const auto failed = area(5, 5);
    EXPECT_FALSE(failed.ok);
    EXPECT_EQ(failed.text, QStringLiteral("Couldn't grab that area — the display server gave no picture of it."));
    unchanged();
}

TEST_F(RecorderViewModelTest, ArmingWithoutAnAreaOrAPictureSaysWhy)
{
    make();
    vm->toggleAreaMonitor();
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Pick an area first."));
    vm->areaCommands()->setPickedAreaRect(QRectF(0, 0, 40, 40));
    vm->toggleAreaMonitor();
    EXPECT_EQ(
        vm->status()->toast(), QStringLiteral("Couldn't grab that area — the display server gave no picture of it."));
    EXPECT_FALSE(vm->areaMonitor()->isArmed());
}

TEST_F(RecorderViewModelTest, APickedWatchAreaIsTakenOnceThePickerHasGoneAndACancelKeepsTheOldOne)
{
    pickerAnswer = std::optional<QRectF>(QRectF(100, 100, 64, 32));
    make();
    startUp();
    QImage picture(64, 32, QImage::Format_RGB32);
    picture.fill(Qt::white);
    screen->screenPicture = picture;
    vm->areaCommands()->pickWatchArea();
    // Not at once: the picker's dimming would be in the picture.
    EXPECT_FALSE(vm->areaMonitor()->rect());
    ASSERT_TRUE(spinUntil([&] { return vm->areaMonitor()->referenceSignature().has_value(); }, 3000));
    EXPECT_EQ(vm->areaMonitor()->rect(), QRectF(100, 100, 64, 32));
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Watch area captured"));
    const QByteArray reference = *vm->areaMonitor()->referenceSignature();

    // Cancelled on a changed screen: the area and its reference stay as they were.
    pickerAnswer = std::optional<QRectF>();
    picture.fill(Qt::black);
    screen->screenPicture = picture;
    vm->areaCommands()->pickWatchArea();
    spinFor(int(AreaCommands::pickerLeavesScreen.count()) + 150);
    EXPECT_EQ(vm->areaMonitor()->rect(), QRectF(100, 100, 64, 32));
    EXPECT_EQ(vm->areaMonitor()->referenceSignature(), reference);
}

TEST_F(RecorderViewModelTest, TheArmedFrameStandsOnlyWhileAnArmedMonitorWatchesAnAreaAndTheFrameIsOn)
{
    make();
    startUp();
    QImage picture(64, 32, QImage::Format_RGB32);
    picture.fill(Qt::white);
    screen->screenPicture = picture;
    vm->areaCommands()->watchArea(QRectF(100, 100, 64, 32));
    EXPECT_FALSE(frame) << "not armed yet";
    vm->toggleAreaMonitor();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->first, QRectF(100, 100, 64, 32));
    EXPECT_EQ(frame->second, AreaOverlayStyle::glass);

    settings->setAreaOverlayStyle(AreaOverlayStyle::march);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->second, AreaOverlayStyle::march);
    settings->setAreaOverlayEnabled(false);
    EXPECT_FALSE(frame);
    settings->setAreaOverlayEnabled(true);
    EXPECT_TRUE(frame);
    // A sliver of an area stays watched but gets no frame; a thin but framable one does.
    vm->areaMonitor()->setRect(QRectF(100, 100, 4, 32));
    EXPECT_FALSE(frame);
    vm->areaMonitor()->setRect(QRectF(100, 100, 5, 32));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->first, QRectF(100, 100, 5, 32));
    vm->toggleAreaMonitor();
    EXPECT_FALSE(frame);
}

TEST_F(RecorderViewModelTest, APickedRegionBecomesTheSourceOfTheDisplayUnderItsMiddle)
{
    pickerAnswer = std::optional<QRectF>(); // the user cancels first
    make();
    startUp();
    const auto started = vm->engine()->selectedSource();
    const int before = screen->streamsStarted;
    vm->areaCommands()->pickRecordingRegion();
    EXPECT_EQ(vm->engine()->selectedSource(), started);
    EXPECT_EQ(screen->streamsStarted, before);
    EXPECT_FALSE(vm->status()->toast());

    // Drawn across both displays, its middle on the second: local to it, reaching beyond its left edge.
    pickerAnswer = std::optional<QRectF>(QRectF(1900, 100, 101, 51));
    vm->areaCommands()->pickRecordingRegion();
    ASSERT_TRUE(vm->engine()->selectedSource());
    const CaptureSource& source = *vm->engine()->selectedSource();
    EXPECT_EQ(source.kind(), CaptureSource::Kind::region);
    EXPECT_EQ(source.capturedDisplay().displayID, 2u);
    EXPECT_EQ(source.localPointRect(), QRectF(-20, 100, 101, 51));
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Region selected · 100×50"));
    EXPECT_EQ(screen->streamsStarted, before + 1);

    // Nowhere near a display: nothing changes but the toast.
    vm->areaCommands()->useRecordingRegion(QRectF(10000, 10000, 20, 20));
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Couldn't identify the display for that region."));
    EXPECT_EQ(vm->engine()->selectedSource()->capturedDisplay().displayID, 2u);
    EXPECT_EQ(screen->streamsStarted, before + 1);
}

TEST_F(RecorderViewModelTest, ControlCommandsRefuseWhatTheyCannotDo)
{
    make();
    ControlCommands commands(*vm);
    const auto reply = [&](const QStringList& command) { return commands.handle(command); };
    EXPECT_TRUE(reply({ "status" }).text.startsWith(QStringLiteral("idle (no source selected)")));
    // Once the encoder is chosen, the status names it.
    const QString encoder = HevcEncoderProbe::chosen();
    EXPECT_EQ(reply({ "status" }).text, QStringLiteral("idle (no source selected); encoder ") + encoder);
    // What the ring lost, by cause, once it lost anything.
    vm->recorder()->dropCounters()->add(DropCounters::Cause::encoderBusy, 3);
    vm->recorder()->dropCounters()->add(DropCounters::Cause::audioBacklog);
    EXPECT_EQ(reply({ "status" }).text,
        QStringLiteral(
            "idle (no source selected); encoder %1; lost 3 frames (encoder busy), 1 audio buffer (ring behind)")
            .arg(encoder));
    EXPECT_FALSE(reply({ "rewind" }).ok);
    for (const QStringList& bad : { QStringList { "area", "1", "2", "3" },
             QStringList { "area", "x", "1", "2", "3", "4" }, QStringList { "area", "1", "2", "nan", "4" },
             QStringList { "area", "1", "inf", "3", "4" }, QStringList { "area", "1", "2", "0", "4" } }) {
        EXPECT_FALSE(reply(bad).ok) << bad.join(u' ').toStdString();
        EXPECT_FALSE(vm->areaMonitor()->rect());
    }
    const auto arm = reply({ "arm" });
    EXPECT_FALSE(arm.ok);
    EXPECT_EQ(arm.text, QStringLiteral("Pick an area first."));
    EXPECT_EQ(reply({ "disarm" }).text, QStringLiteral("not armed"));
    EXPECT_EQ(reply({ "stop" }).text, QStringLiteral("not recording"));
}

TEST_F(RecorderViewModelTest, TheMicrophoneFollowsItsSwitchAndTheRememberedDevice)
{
    microphones->devices = { { QStringLiteral("usb"), QStringLiteral("USB Headset") },
        { QStringLiteral("builtin"), QStringLiteral("Built-in Audio") } };
    microphones->defaultID = QStringLiteral("builtin");
    settings->setMicrophoneEnabled(true);
    settings->setMicrophoneDeviceID(QStringLiteral("usb"));
    make();
    // Left on: opened at launch, once, on the remembered device.
    ASSERT_TRUE(spinUntil([&] { return vm->mic()->isRunning(); }));
    vm->mic()->waitUntilIdle();
    EXPECT_EQ(microphones->openedIDs(), std::vector<QString>({ QStringLiteral("usb") }));
    EXPECT_EQ(vm->mic()->availableDevices().size(), 2u);

    // Another device chosen: it replaces the open one.
    settings->setMicrophoneDeviceID(QStringLiteral("builtin"));
    vm->mic()->waitUntilIdle();
    EXPECT_EQ(microphones->openedIDs(), std::vector<QString>({ QStringLiteral("usb"), QStringLiteral("builtin") }));

    // Switched off: closed; a device chosen meanwhile opens nothing, but is used when it comes on.
    settings->setMicrophoneEnabled(false);
    ASSERT_TRUE(spinUntil([&] { return !vm->mic()->isRunning(); }));
    EXPECT_TRUE(microphones->last()->closed);
    settings->setMicrophoneDeviceID(QStringLiteral("usb"));
    vm->mic()->waitUntilIdle();
    EXPECT_EQ(microphones->openedIDs().size(), 2u);
    settings->setMicrophoneEnabled(true);
    ASSERT_TRUE(spinUntil([&] { return vm->mic()->isRunning(); }));
    EXPECT_EQ(microphones->openedIDs().back(), QStringLiteral("usb"));
}

TEST_F(RecorderViewModelTest, TheSoundServerGoingAndComingBackIsToldWhenSoundIsWanted)
{
    make();
    ASSERT_TRUE(soundServer);
    // Reports come from the watcher's own thread.
    const auto hear
        = [this](bool lost) { std::thread([this, lost] { soundServer(lost, QStringLiteral("gone")); }).join(); };
    hear(true);
    spinFor(50);
    EXPECT_FALSE(vm->status()->toast()) << "no sound was wanted";

    settings->setSystemAudioEnabled(true);
    hear(true);
    ASSERT_TRUE(spinUntil([&] { return vm->status()->toast() == AudioRouting::soundLostText; }, 2000));
    hear(false);
    ASSERT_TRUE(spinUntil([&] { return vm->status()->toast() == AudioRouting::soundBackText; }, 2000));
}

TEST_F(RecorderViewModelTest, AMicrophoneLeftOffStaysClosedAtLaunch)
{
    microphones->devices = { { QStringLiteral("builtin"), QStringLiteral("Built-in Audio") } };
    make();
    vm->mic()->waitUntilIdle();
    spinFor(50);
    EXPECT_TRUE(microphones->openedIDs().empty());
    EXPECT_FALSE(vm->mic()->isRunning());
    EXPECT_EQ(vm->mic()->availableDevices().size(), 1u);
}

TEST_F(RecorderViewModelTest, ASavedClipIsTaggedWithTheFigureInTheWatchedAreaUnlessTheUserTaggedIt)
{
    // The area is in global points on the second display, which records at 640x512.
    const QRectF area(2920, 700, 200, 60);
    settings->setAreaMonitorRect(area);
    settings->setResolution(Resolution::res720);
    recognizers = TesseractRecognizer::factory();
    make();
    startUp();
    vm->engine()->setSelectedSource(CaptureSource::display(screen->content.displays[1]));
    vm->startPreview();
    const QSize recorded(vm->engine()->outputWidth(), vm->engine()->outputHeight());
    ASSERT_LT(recorded.width(), 1280);

    // The figure where the area lies in the recorded picture; notes typed before the scan stay.
    const double scale = recorded.width() / 1280.0;
    const QString clip = QDir(settings->saveFolderPath()).filePath(QStringLiteral("Display 2, Nov 25, 09-30-00.mp4"));
    QDir().mkpath(settings->saveFolderPath());
    ASSERT_TRUE(makeDrawnTextClip(clip, recorded, QStringLiteral("0x15181c"), 1.0,
        { DrawnText { QStringLiteral("-12.50"), QStringLiteral("DejaVuSans.ttf"), 14, QStringLiteral("0xff5050"),
            QString::number(int((area.x() - 1920 + 20) * scale)), QString::number(int((area.y() + 15) * scale)),
            {} } }));
    ClipMeta notes;
    notes.notes = QStringLiteral("faded the open");
    ClipMetaStore::save(notes, QUrl::fromLocalFile(clip));
    vm->journal()->rescan();

    vm->runPnLDetect(clip);
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Auto P&L: scanning clip\u2026"));
    ASSERT_TRUE(spinUntil([&] { return vm->status()->toast() != QStringLiteral("Auto P&L: scanning clip\u2026"); }));
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Auto P&L: -12.50 (loss)"));
    const ClipMeta tagged = ClipMetaStore::load(QUrl::fromLocalFile(clip));
    EXPECT_EQ(tagged.outcome, TradeOutcome::loss);
    EXPECT_EQ(tagged.pnl, 12.5);
    EXPECT_EQ(tagged.notes, QStringLiteral("faded the open"));
    ASSERT_EQ(vm->journal()->clips().size(), 1);
    EXPECT_EQ(vm->journal()->clips().first().meta, tagged);

    // The user's own value is never read over; without an area nothing is read at all.
    ClipMeta mine = tagged;
    mine.outcome = TradeOutcome::win;
    mine.pnl = 40;
    ClipMetaStore::save(mine, QUrl::fromLocalFile(clip));
    vm->runPnLDetect(clip);
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Auto P&L: clip already tagged, kept your value."));
    vm->areaMonitor()->setRect(std::nullopt);
    vm->runPnLDetect(clip);
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Auto P&L: pick a watch area to enable detection."));
    spinFor(200);
    EXPECT_EQ(ClipMetaStore::load(QUrl::fromLocalFile(clip)), mine);
}

TEST_F(RecorderViewModelTest, AutoPnLKeepsATagTypedDuringTheScanAndLeavesASidecarItCannotRead)
{
    const QRectF area(20, 20, 200, 60);
    settings->setAreaMonitorRect(area);
    settings->setResolution(Resolution::res720);
    recognizers = TesseractRecognizer::factory();
    make();
    startUp();
    vm->engine()->setSelectedSource(CaptureSource::display(screen->content.displays[0]));
    vm->startPreview();
    const QSize recorded(vm->engine()->outputWidth(), vm->engine()->outputHeight());
    const double scale = recorded.width() / 1920.0;
    const QString clip = QDir(settings->saveFolderPath()).filePath(QStringLiteral("Display 1, Nov 25, 09-30-00.mp4"));
    QDir().mkpath(settings->saveFolderPath());
    ASSERT_TRUE(makeDrawnTextClip(clip, recorded, QStringLiteral("0x15181c"), 1.0,
        { DrawnText { QStringLiteral("-12.50"), QStringLiteral("DejaVuSans.ttf"), 14, QStringLiteral("0xff5050"),
            QString::number(int((area.x() + 20) * scale)), QString::number(int((area.y() + 15) * scale)), {} } }));
    const QUrl url = QUrl::fromLocalFile(clip);

    // The user tags the clip while the figure is being read: theirs stays, notes and all.
    vm->runPnLDetect(clip);
    ASSERT_EQ(vm->status()->toast(), QStringLiteral("Auto P&L: scanning clip\u2026"));
    ClipMeta mine;
    mine.outcome = TradeOutcome::win;
    mine.pnl = 40;
    mine.notes = QStringLiteral("closed it by hand");
    ASSERT_FALSE(ClipMetaStore::save(mine, url));
    ASSERT_TRUE(spinUntil([&] { return vm->status()->toast() != QStringLiteral("Auto P&L: scanning clip\u2026"); }));
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Auto P&L: clip already tagged, kept your value."));
    EXPECT_EQ(ClipMetaStore::load(url), mine);

    // A sidecar this version cannot read may hold notes: not scanned, not replaced, and said.
    const QByteArray unreadable = R"({"outcome":"unset","unit":"EUR","notes":"my plan","mistakes":""})";
    QFile file(ClipMetaStore::sidecarPath(url));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(unreadable);
    file.close();
    vm->runPnLDetect(clip);
    EXPECT_TRUE(vm->status()->toast()->startsWith(QStringLiteral("Auto P&L: skipped, ")))
        << vm->status()->toast()->toStdString();
    spinFor(200);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), unreadable);
}

TEST_F(RecorderViewModelTest, ReadingsThatDisagreeOrAMissingEngineTagNothingAndSaySo)
{
    // An engine that loses the minus in one reading and keeps it in the other, as Tesseract did on
    // a thin minus: a fault the real engine can't be made to show on demand.
    struct Disagreeing : TextRecognizer {
        QList<RecognizedLine> recognize(const QImage&) override
        {
            return { { QStringLiteral("7.25"), QRectF(0.1, 0.3, 0.5, 0.4) } };
        }
        QList<RecognizedLine> recognizeAmount(const QImage&) override
        {
            return { { QStringLiteral("-7.25"), QRectF(0.1, 0.3, 0.5, 0.4) } };
        }
    };
    recognizers = [] { return std::make_unique<Disagreeing>(); };
    settings->setAreaMonitorRect(QRectF(10, 10, 200, 60));
    settings->setResolution(Resolution::res720);
    make();
    startUp();
    vm->engine()->setSelectedSource(CaptureSource::display(screen->content.displays[0]));
    vm->startPreview();
    const QSize recorded(vm->engine()->outputWidth(), vm->engine()->outputHeight());
    QDir().mkpath(settings->saveFolderPath());
    const QString clip = QDir(settings->saveFolderPath()).filePath(QStringLiteral("Display 1, Nov 25, 09-30-00.mp4"));
    ASSERT_TRUE(makeDrawnTextClip(clip, recorded, QStringLiteral("white"), 0.5,
        { DrawnText { QStringLiteral("-7.25"), QStringLiteral("DejaVuSans.ttf"), 20, QStringLiteral("black"),
            QStringLiteral("20"), QStringLiteral("20"), {} } }));
    const QUrl url = QUrl::fromLocalFile(clip);
    vm->runPnLDetect(clip);
    ASSERT_TRUE(spinUntil([&] { return vm->status()->toast() != QStringLiteral("Auto P&L: scanning clip\u2026"); }));
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Auto P&L: couldn't be sure of '7.25' \u2014 tag it by hand."));
    EXPECT_EQ(ClipMetaStore::load(url), ClipMeta());

    // Tesseract without its English data: the toast names the package, not "no number found".
    QTemporaryDir noData;
    const QByteArray before = qgetenv("TESSDATA_PREFIX");
    qputenv("TESSDATA_PREFIX", noData.path().toUtf8());
    vm.reset();
    recognizers = TesseractRecognizer::factory();
    make();
    vm->runPnLDetect(clip);
    ASSERT_TRUE(spinUntil([&] { return vm->status()->toast() != QStringLiteral("Auto P&L: scanning clip\u2026"); }));
    if (before.isNull())
        qunsetenv("TESSDATA_PREFIX");
    else
        qputenv("TESSDATA_PREFIX", before);
    EXPECT_EQ(
        vm->status()->toast(), QStringLiteral("Reading the P&L needs Tesseract's English data (tesseract-ocr-eng)."));
    EXPECT_EQ(ClipMetaStore::load(url), ClipMeta());
}

// Notifications are the desktop's seam: a recording stand-in, as no daemon fails on demand.
TEST_F(RecorderViewModelTest, ErrorsReachTheDesktopOnlyWhileNoWindowShowsThem)
{
    struct Sent : DesktopNotifications {
        std::vector<std::pair<QString, size_t>>* sent;
        explicit Sent(std::vector<std::pair<QString, size_t>>* s)
            : sent(s)
        {
        }
        void notify(const QString& summary, const QString&, const std::vector<Action>& actions,
            std::function<void(const QString&)>) override
        {
            sent->emplace_back(summary, actions.size());
        }
    };
    make();
    startUp();
    std::vector<std::pair<QString, size_t>> sent;
    bool windowSeen = true;
    EventNotifications notifications(vm->models(), std::make_unique<Sent>(&sent), [&] { return windowSeen; });
    const QString error = QStringLiteral("Error: Nothing was buffered yet — wait a second after starting preview.");

    // In front of the user the toast says it.
    vm->startRecording();
    vm->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return vm->status()->toast() == error; }));
    EXPECT_TRUE(sent.empty());

    windowSeen = false;
    vm->startRecording();
    vm->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return !sent.empty(); }));
    spinFor(100);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent.front().first, error);
    EXPECT_EQ(sent.front().second, 0u); // nothing to open
}

TEST_F(RecorderViewModelTest, ARingThatLosesItsFolderSaysSoInAToastAndInStatus)
{
    QTemporaryDir runtime;
    const QByteArray savedRuntime = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    make();
    qputenv("XDG_RUNTIME_DIR", savedRuntime);
    SegmentedRecorder* recorder = vm->recorder();
    const QString folder = recorder->segmentsDirectory();
    ASSERT_TRUE(folder.startsWith(runtime.path() + QStringLiteral("/velotape/")));
    recorder->configure(64, 36, 2, 10, 30);
    QImage picture(64, 36, QImage::Format_RGB32);
    picture.fill(Qt::gray);
    const auto feed = [&] {
        recorder->ingest(VideoFrame { picture, MediaTime::fromNanoseconds(monotonicNanoseconds()) });
    };
    feed();
    ASSERT_TRUE(spinUntil([&] { return !QDir(folder).entryList({ QStringLiteral("seg-*") }, QDir::Files).isEmpty(); }));

    ASSERT_TRUE(QDir(folder).removeRecursively());
    feed();
    ASSERT_TRUE(spinUntil([&] { return !recorder->bufferProblem().isEmpty(); }));
    EXPECT_EQ(vm->status()->toast(), QStringLiteral("Buffering failed: the buffer's folder was removed"));
    ControlCommands commands(*vm);
    const QString status = commands.handle({ QStringLiteral("status") }).text;
    EXPECT_TRUE(
        status.contains(QStringLiteral("; buffering failed: the buffer's folder was removed (in %1)").arg(folder)))
        << status.toStdString();
    EXPECT_TRUE(QFileInfo(folder).isDir());
}

TEST_F(RecorderViewModelTest, ARestartDuringARecordingSavesTheRecordingFirst)
{
    settings->setResolution(Resolution::res720);
    make();
    startUp();
    vm->startPreview();
    const int streams = screen->streamsStarted;
    const QSize size(vm->engine()->outputWidth(), vm->engine()->outputHeight());
    // Pictures as a stream would bring them, on the capture clock, one a frame interval.
    int index = 0;
    const auto feed = [&](int count) {
        for (int i = 0; i < count; ++i, ++index) {
            QImage picture(size, QImage::Format_RGB32);
            picture.fill(QColor::fromHsv((index * 7) % 360, 200, 200));
            vm->recorder()->ingest(VideoFrame(picture, MediaTime::fromNanoseconds(monotonicNanoseconds())));
            std::this_thread::sleep_for(33ms);
            QCoreApplication::processEvents();
        }
    };
    feed(30);
    vm->startRecording();
    feed(30);

    // A setting that needs a new stream, changed while recording: the ring goes only after the
    // clip is written, and the stream comes back.
    settings->setCursor(CursorMode::hide);
    ASSERT_TRUE(spinUntil([&] { return screen->streamsStarted > streams; }, 20000));
    EXPECT_FALSE(vm->recorder()->isRecording());
    const QStringList clips = QDir(settings->saveFolderPath()).entryList({ QStringLiteral("*.mp4") });
    ASSERT_EQ(clips.size(), 1);
    EXPECT_GT(QFileInfo(QDir(settings->saveFolderPath()).filePath(clips[0])).size(), 0);
    EXPECT_FALSE(screen->lastConfiguration.showsCursor);
}
