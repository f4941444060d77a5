#include "app/session/RecorderViewModel.h"

#include "app/AppSettings.h"
#include "app/session/AreaCommands.h"
#include "app/session/AreaMonitorSync.h"
#include "app/session/AudioRouting.h"
#include "app/session/AutoPnLDetect.h"
#include "app/session/BackendAreaGrabber.h"
#include "app/session/CameraWiring.h"
#include "app/session/LostWindowWatch.h"
#include "app/session/SessionStatus.h"
#include "app/session/SourceMemory.h"
#include "capture/CaptureEngine.h"
#include "core/Publisher.h"
#include "devices/CameraCapture.h"
#include "devices/MicCapture.h"
#include "journal/ClipJournalStore.h"
#include "monitor/AreaMonitor.h"
#include "monitor/AreaMonitorActions.h"
#include "platform/DesktopIntegration.h"
#include "recorder/SegmentedRecorder.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QThreadPool>
#include <QUrl>

#include <cmath>

using namespace std::chrono_literals;

QString captureModeRawValue(RecorderViewModel::CaptureMode mode)
{
    return mode == RecorderViewModel::CaptureMode::areaMonitor ? QStringLiteral("areaMonitor")
                                                               : QStringLiteral("manual");
}

RecorderViewModel::RecorderViewModel(AppSettings* settings, Backends b, QObject* parent)
    : QObject(parent)
    , appSettings(settings)
    , backends(std::move(b))
{
    if (!backends.scheduler) backends.scheduler = std::make_unique<QtTaskScheduler>(this);

    // The objects it owns, in their order.
    captureEngine = new CaptureEngine(backends.screen, backends.systemAudio, this);
    segmentRecorder = new SegmentedRecorder(this);
    if (!backends.areaGrabber) backends.areaGrabber = std::make_unique<BackendAreaGrabber>(backends.screen);
    monitor = new AreaMonitor(std::move(backends.areaGrabber), {}, this);
    cameraCapture = new CameraCapture(backends.cameras, this);
    microphone = new MicCapture(backends.microphones, this);
    journalStore = new ClipJournalStore(QUrl::fromLocalFile(appSettings->saveFolderPath()), this);
    sources = std::make_unique<SourceMemory>(*appSettings, *captureEngine);
    areas = std::make_unique<AreaCommands>(
        *monitor, *captureEngine, *sources, std::move(backends.areaPicker),
        [this](const QString& text) { showToast(text); }, [this] { restartStream(); });
    sessionStatus = new SessionStatus(this);
    lostWindows = std::make_unique<LostWindowWatch>(
        *captureEngine, *sources, *backends.scheduler, [this](const QString& text) { showToast(text); },
        [this](int width, int height) { startStream(width, height); });

    // The one link between owned objects: frames and system audio go from the engine to the ring.
    captureEngine->setRecorder(segmentRecorder);
    // The levelled microphone goes to the ring from the microphone's audio thread. The microphone
    // is closed before the ring goes (see the destructor).
    microphone->onSample = [recorder = segmentRecorder](const AudioBuffer& buffer) {
        recorder->ingestAudio(buffer, AudioMixer::Input::microphone);
    };

    // Every subscription and callback between the settings and the objects the controller owns.
    const auto toast = [this](const QString& text) { showToast(text); };
    cameraWiring = new CameraWiring(*appSettings, *cameraCapture, *segmentRecorder, toast, this);
    audio = new AudioRouting(
        *appSettings, *segmentRecorder, *microphone, std::move(backends.soundServer), toast,
        [this] { restartStream(); }, this);
    monitorSync = new AreaMonitorSync(*appSettings, *monitor, std::move(backends.armedFrame), this);
    pnlDetect
        = new AutoPnLDetect(backends.textRecognizer, *monitor, *sources, *captureEngine, *journalStore, toast, this);
    // What the screen's backend tells the user (the desktop asked again what to share), from
    // whichever thread waited for the desktop.
    if (backends.screen)
        backends.screen->setOnNotice([self = QPointer<RecorderViewModel>(this)](const QString& text) {
            QMetaObject::invokeMethod(
                self,
                [self, text] {
                    if (self) self->showToast(text);
                },
                Qt::QueuedConnection);
        });
    wireJournal();
    wireAreaMonitor();
    wirePersistence();
    wireSaveSequence();
    wireStreamRestart();
    // A restart that waited for a clip runs once the clip is written, or has failed.
    connect(segmentRecorder, &SegmentedRecorder::isExportingChanged, this, [this](bool exporting) {
        if (!exporting && !segmentRecorder->isRecording() && restartAfterSave) std::exchange(restartAfterSave, {})();
    });
    wireLostWindow();
}

RecorderViewModel::~RecorderViewModel()
{
    // The sound server's reports reach the audio routing from another thread: it stops first.
    delete audio;
    // The audio threads reach the recorder: close the microphone and stop the stream before it goes.
    delete microphone;
    captureEngine->stopStream();
    // A detection still running would call back into a controller that is going.
    delete pnlDetect;
}

SessionModels RecorderViewModel::models()
{
    SessionModels m;
    m.settings = appSettings;
    m.status = sessionStatus;
    m.actions = this;
    m.engine = captureEngine;
    m.recorder = segmentRecorder;
    m.monitor = monitor;
    m.areas = areas.get();
    m.sources = sources.get();
    m.mic = microphone;
    m.camera = cameraCapture;
    m.journal = journalStore;
    m.desktop = backends.desktop.get();
    m.keyGrabCheck = backends.keyGrabCheck;
    m.desktopWords = backends.desktopWords;
    return m;
}

void RecorderViewModel::wireJournal()
{
    // This also runs once at launch.
    observe(appSettings, &AppSettings::saveFolderPath, &AppSettings::saveFolderPathChanged)
        .removeDuplicates()
        .sink(this, [this](const QString& path) { journalStore->setSavePath(QUrl::fromLocalFile(path)); });
}

void RecorderViewModel::wireAreaMonitor()
{
    QPointer<RecorderViewModel> self(this);

    // The monitor asks from its tick; the controller answers on a later turn of the main loop, and
    // the toast says what came of it.
    const auto queued = [self](std::function<std::optional<QString>(RecorderViewModel&)> answer) {
        return [self, answer] {
            QMetaObject::invokeMethod(
                self,
                [self, answer] {
                    if (!self) return;
                    if (const auto toast = answer(*self)) self->showToast(*toast);
                },
                Qt::QueuedConnection);
        };
    };

    // The watched area changed: record, unless a recording already runs. The recording begins when
    // the change was seen, however long the window took to get round to it.
    monitor->onShouldStartRecording = [queued](std::chrono::nanoseconds seenAgo) {
        const auto seen = std::chrono::steady_clock::now() - seenAgo;
        queued([seen](RecorderViewModel& vm) {
            return AreaMonitorActions::startRequested(vm.segmentRecorder->isRecording(), [&] {
                vm.startRecording(
                    std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - seen));
            });
        })();
    };

    // It has looked like the reference for long enough: save the recording, if one runs.
    monitor->onShouldStopRecording = queued([](RecorderViewModel& vm) {
        return AreaMonitorActions::stopRequested(vm.segmentRecorder->isRecording(), [&] { vm.stopRecording(); });
    });
}

void RecorderViewModel::wirePersistence()
{
    // The capture mode comes back from the settings; an unknown text leaves manual.
    if (appSettings->savedCaptureMode() == QStringLiteral("areaMonitor"))
        setCaptureMode(CaptureMode::areaMonitor);
    else if (appSettings->savedCaptureMode() == QStringLiteral("manual"))
        setCaptureMode(CaptureMode::manual);

    // The capture mode is remembered, once start-up has restored things.
    observe(this, &RecorderViewModel::captureMode, &RecorderViewModel::captureModeChanged)
        .dropFirst()
        .sink(this, [this](CaptureMode value) {
            if (!suppressPersistence) appSettings->setSavedCaptureMode(captureModeRawValue(value));
        });

    // So is the selected source.
    observe(captureEngine, &CaptureEngine::selectedSource, &CaptureEngine::selectedSourceChanged)
        .dropFirst()
        .sink(this, [this](const std::optional<CaptureSource>& source) { sourceSelected(source); });
}

void RecorderViewModel::saveRecordingBeforeQuit()
{
    const bool recording = segmentRecorder->isRecording();
    if (!recording && !segmentRecorder->isExporting()) return;
    segmentRecorder->onFinished
        = [this](const QString& path) { showToast(QStringLiteral("Saved: ") + QFileInfo(path).fileName()); };
    segmentRecorder->onError = [this](const QString& text) { showToast(QStringLiteral("Error: ") + text); };
    if (recording) stopRecording();
    // The last segment closes on the ring's own threads, the clip is joined on the global pool and
    // its outcome passes through the ring's queue again: none of them needs the main loop, which may
    // be gone with the display.
    segmentRecorder->waitUntilIdle();
    QThreadPool::globalInstance()->waitForDone();
    segmentRecorder->waitUntilIdle();
    // The outcome was posted to the recorder's thread, this one.
    QCoreApplication::sendPostedEvents(segmentRecorder, QEvent::MetaCall);
}

void RecorderViewModel::wireSaveSequence()
{
    QPointer<RecorderViewModel> self(this);

    // A clip was written.
    segmentRecorder->onFinished = [self](const QString& path) {
        QMetaObject::invokeMethod(
            self,
            [self, path] {
                if (self) self->runSaveSequence(path);
            },
            Qt::QueuedConnection);
    };

    // A clip that holds less than was asked, because the ring lost some of it: its save says so
    // instead of a plain "Saved:".
    segmentRecorder->onClipShort = [self](const QString& path, const QString& text) {
        QMetaObject::invokeMethod(
            self,
            [self, path, text] {
                if (self) self->shortClips[path] = text;
            },
            Qt::QueuedConnection);
    };

    // A ring that cannot keep what it should says so once, when it starts; status keeps saying it.
    connect(segmentRecorder, &SegmentedRecorder::bufferProblemChanged, this, [this](const QString& problem) {
        if (!problem.isEmpty()) showToast(QStringLiteral("Buffering failed: ") + problem);
    });

    // An export failed: the toast is the only report.
    segmentRecorder->onError = [self](const QString& text) {
        QMetaObject::invokeMethod(
            self,
            [self, text] {
                if (!self) return;
                self->showToast(QStringLiteral("Error: ") + text);
                self->monitorReset();
            },
            Qt::QueuedConnection);
    };
}

void RecorderViewModel::wireStreamRestart()
{
    // Size, rate, cursor and hide-self need a new stream; changes close together make one
    // restart. Bit rate and buffer length act at the next configure and restart nothing.
    auto* settingsSink = new QObject(this);
    combineLatest(observe(appSettings, &AppSettings::resolution, &AppSettings::resolutionChanged),
        observe(appSettings, &AppSettings::frameRate, &AppSettings::frameRateChanged),
        observe(appSettings, &AppSettings::cursor, &AppSettings::cursorChanged),
        observe(appSettings, &AppSettings::hideAppInCaptures, &AppSettings::hideAppInCapturesChanged))
        .dropFirst()
        .debounce(restartDebounce)
        .sink(settingsSink, [this](const auto&) { restartStream(); });
}

void RecorderViewModel::wireLostWindow()
{
    connect(captureEngine, &CaptureEngine::streamStopped, lostWindows.get(), &LostWindowWatch::handleStreamStopped);
}

void RecorderViewModel::setCaptureMode(CaptureMode value)
{
    mode = value;
    emit captureModeChanged();
}

void RecorderViewModel::startUp(std::function<void()> done)
{
    auto remaining = std::make_shared<int>(2);
    auto finishOne = [remaining, done] {
        if (--*remaining == 0 && done) done();
    };
    QPointer<RecorderViewModel> self(this);
    captureEngine->refreshAvailableContent([self, finishOne] {
        if (self) {
            self->sources->restoreSelectedSourceIfPossible();
            // Only after the restore, so that the restored source isn't written back.
            self->suppressPersistence = false;
        }
        finishOne();
    });
    startPreview();
    finishOne();
}

void RecorderViewModel::startPreview()
{
    const std::optional<CaptureSource> source = captureEngine->selectedSource();
    if (!source) return;
    const QSize size = sources->outputSize(*source);
    segmentRecorder->configure(size.width(), size.height(), appSettings->bitrateMbps(), appSettings->bufferSeconds(),
        framesPerSecond(appSettings->frameRate()));
    startStream(size.width(), size.height());
    // Armed whether or not the stream started: a failure shows through the engine's errorMessage.
    segmentRecorder->armBuffering();
}

void RecorderViewModel::startStream(int width, int height)
{
    captureEngine->startStream(width, height, framesPerSecond(appSettings->frameRate()),
        appSettings->cursor() != CursorMode::hide, appSettings->hideAppInCaptures(), appSettings->systemAudioEnabled());
}

void RecorderViewModel::setWindowSeen(bool seen)
{
    captureEngine->setPreviewEnabled(seen);
    if (!seen) {
        // Recording behind other windows is the point of the program: only a stream that feeds
        // nothing stops.
        if (segmentRecorder->isRecording() || segmentRecorder->isBuffering() || monitor->isArmed()) return;
        segmentRecorder->disarmBuffering();
        captureEngine->stopStream();
        return;
    }
    if (!captureEngine->isStreaming()) startPreview();
}

bool RecorderViewModel::waitForSaveBeforeRestart(std::function<void()> restart)
{
    if (!segmentRecorder->isRecording() && !segmentRecorder->isExporting() && !restartAfterSave) return false;
    restartAfterSave = std::move(restart);
    if (segmentRecorder->isRecording()) {
        stopRecording();
        showToast(QStringLiteral("The recording was saved before the capture restarted."));
    }
    return true;
}

void RecorderViewModel::restartStream()
{
    if (waitForSaveBeforeRestart([this] { restartStream(); })) return;
    segmentRecorder->disarmBuffering();
    captureEngine->stopStream();
    startPreview();
}

void RecorderViewModel::askDesktopForSource()
{
    if (waitForSaveBeforeRestart([this] { askDesktopForSource(); })) return;
    // The old choice's stream ends before the desktop replaces it, so that its end is no failure.
    segmentRecorder->disarmBuffering();
    captureEngine->stopStream();
    captureEngine->backend()->chooseSourceAgain();
    // The listing opens the dialog; with nothing listed (the dialog closed and nothing to go back
    // to) the stream stays stopped rather than asking a second time.
    auto listed = std::make_shared<bool>(false);
    auto watch = std::make_shared<QMetaObject::Connection>(
        connect(captureEngine, &CaptureEngine::availableDisplaysChanged, this, [listed] { *listed = true; }));
    QPointer<RecorderViewModel> self(this);
    captureEngine->refreshAvailableContent([self, listed, watch] {
        QObject::disconnect(*watch);
        if (!self || !*listed) return;
        const std::vector<CaptureDisplay>& displays = self->captureEngine->availableDisplays();
        if (!displays.empty()) self->captureEngine->setSelectedSource(CaptureSource::display(displays.front()));
        self->startPreview();
    });
}

void RecorderViewModel::sourceSelected(const std::optional<CaptureSource>& source)
{
    // A stand-in for a closed window, or the window back: the user's choice stays what is saved.
    if (lostWindows->isSwitchingSource()) return;
    lostWindows->stopWaiting();
    if (!suppressPersistence) sources->saveSourceDescriptor(source);
}

void RecorderViewModel::startRecording(std::chrono::nanoseconds earlier)
{
    const QString folder = appSettings->saveFolderPath();
    // The stored folder was refused at start: say where the clip goes instead, every time until
    // the setting is fixed.
    if (const std::optional<QString> refused = appSettings->refusedSaveFolder()) showToast(*refused);
    QDir().mkpath(folder); // a failure shows when the export fails
    const QString name = SourceMemory::filename(
        sources->sourceLabelForFilename().value_or(QStringLiteral("Clip")), QDateTime::currentDateTime());
    const QString destination = QDir(folder).filePath(name);
    // The size the running stream was set up with; bit rate and buffer length of this moment.
    segmentRecorder->configure(captureEngine->outputWidth(), captureEngine->outputHeight(), appSettings->bitrateMbps(),
        appSettings->bufferSeconds(), framesPerSecond(appSettings->frameRate()));
    segmentRecorder->startRecording(destination, earlier);
    scheduleAutoStopIfNeeded();
}

void RecorderViewModel::stopRecording()
{
    if (autoStopTask) {
        backends.scheduler->cancel(*autoStopTask);
        autoStopTask.reset();
    }
    segmentRecorder->stopRecording();
    monitorReset();
}

void RecorderViewModel::toggleRecording()
{
    if (segmentRecorder->isRecording())
        stopRecording();
    else
        startRecording();
}

void RecorderViewModel::scheduleAutoStopIfNeeded()
{
    if (autoStopTask) backends.scheduler->cancel(*autoStopTask);
    const double minutes = appSettings->autoStopMinutes();
    // Zero (never), negative and NaN have no timer, and neither has a timer so short that it would
    // end the recording as it begins.
    if (!(minutes >= AppSettings::shortestAutoStopMinutes)) return;
    QPointer<RecorderViewModel> self(this);
    const auto delay = std::chrono::nanoseconds(static_cast<int64_t>(minutes * 60.0 * 1e9));
    autoStopTask = backends.scheduler->schedule(delay, [self, minutes] {
        if (!self) return;
        self->showToast(
            QStringLiteral("Auto-stop triggered after %1 min").arg(static_cast<long long>(std::trunc(minutes))));
        // The recorder directly: the finished task stays in autoStopTask until the next start, and
        // the monitor reset comes with the save sequence.
        self->segmentRecorder->stopRecording();
    });
}

void RecorderViewModel::showToast(const QString& text)
{
    sessionStatus->setToast(text);
    QPointer<SessionStatus> status(sessionStatus);
    // Never cancelled: a newer toast just replaces the text, and this timer then leaves it alone.
    backends.scheduler->schedule(toastDuration, [status, text] {
        if (status && status->toast() == text) status->setToast(std::nullopt);
    });
}

void RecorderViewModel::runSaveSequence(const QString& path)
{
    sessionStatus->setLastSavedURL(path);
    const auto shortened = shortClips.find(path);
    if (shortened != shortClips.end()) {
        showToast(shortened->second);
        shortClips.erase(shortened);
    } else {
        showToast(QStringLiteral("Saved: ") + QFileInfo(path).fileName());
    }
    if (backends.desktop) {
        if (appSettings->playSoundOnSave()) backends.desktop->playCompleteSound();
        if (appSettings->openFinderOnSave()) backends.desktop->revealInFileManager(path);
    }
    monitorReset();
    journalStore->rescan();
    runPnLDetect(path);
}

void RecorderViewModel::runPnLDetect(const QString& clip)
{
    pnlDetect->run(clip);
}

void RecorderViewModel::monitorReset()
{
    monitor->monitorReset();
}

QString RecorderViewModel::toggleAreaMonitor()
{
    return areas->toggleAreaMonitor();
}

std::optional<CaptureSource> RecorderViewModel::findSource(const QString& descriptor) const
{
    return sources->findSource(descriptor);
}
