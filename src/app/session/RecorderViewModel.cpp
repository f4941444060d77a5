#include "app/session/RecorderViewModel.h"

#include "app/AppSettings.h"
#include "app/session/AreaCommands.h"
#include "app/session/BackendAreaGrabber.h"
#include "app/session/CameraWiring.h"
#include "app/session/LostWindowWatch.h"
#include "app/session/SourceMemory.h"
#include "capture/CaptureEngine.h"
#include "core/Log.h"
#include "core/Publisher.h"
#include "devices/CameraCapture.h"
#include "devices/MicCapture.h"
#include "journal/ClipAutoDetect.h"
#include "journal/ClipJournalStore.h"
#include "journal/ClipMetaStore.h"
#include "journal/PnLTagWriter.h"
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
    detectPool = new QThreadPool(this);
    detectPool->setMaxThreadCount(1);
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
    wireJournal();
    cameraWiring = std::make_unique<CameraWiring>(
        *appSettings, *cameraCapture, *segmentRecorder, [this](const QString& text) { showToast(text); });
    wireAudio();
    wireAreaMonitor();
    wirePersistence();
    wireSaveSequence();
    wireStreamRestart();
    wireLostWindow();
    wireArmedFrame();
}

RecorderViewModel::~RecorderViewModel()
{
    // Its reports reach this object from another thread: it stops first.
    backends.soundServer.reset();
    // The audio threads reach the recorder: close the microphone and stop the stream before it goes.
    delete microphone;
    captureEngine->stopStream();
    // A detection still running would call back into a controller that is going.
    detectPool->clear();
    detectPool->waitForDone();
}

void RecorderViewModel::wireJournal()
{
    // This also runs once at launch.
    observe(appSettings, &AppSettings::saveFolderPath, &AppSettings::saveFolderPathChanged)
        .removeDuplicates()
        .sink(this, [this](const QString& path) { journalStore->setSavePath(QUrl::fromLocalFile(path)); });
}

void RecorderViewModel::wireAudio()
{
    // Segments get an audio track when either audio source is on.
    segmentRecorder->setAudioEnabled(appSettings->microphoneEnabled() || appSettings->systemAudioEnabled());

    // The microphone's list, and the microphone itself if it was left on.
    microphone->refreshDevices();
    if (appSettings->microphoneEnabled()) microphone->start(appSettings->microphoneDeviceID());

    // The microphone switch changes whether segments carry audio, and opens or closes the device.
    // This also runs once at launch: a microphone left on is started twice (the second start
    // finds it open), one left off is stopped.
    observe(appSettings, &AppSettings::microphoneEnabled, &AppSettings::microphoneEnabledChanged)
        .removeDuplicates()
        .sink(this, [this](bool on) {
            segmentRecorder->setAudioEnabled(on || appSettings->systemAudioEnabled());
            if (on)
                microphone->start(appSettings->microphoneDeviceID());
            else
                microphone->stop();
        });

    // Another microphone chosen while it is on: the new one replaces it.
    observe(appSettings, &AppSettings::microphoneDeviceID, &AppSettings::microphoneDeviceIDChanged)
        .dropFirst()
        .sink(this, [this](const std::optional<QString>& id) {
            if (appSettings->microphoneEnabled()) microphone->start(id);
        });

    // A microphone that stops (switched off, unplugged) no longer holds the mix back.
    connect(microphone, &MicCapture::isRunningChanged, this, [this] {
        if (!microphone->isRunning()) segmentRecorder->endAudioInput(AudioMixer::Input::microphone);
    });

    // The sound server going away silences both sources until it is back (they reconnect by
    // themselves): the user hears of it when any sound is wanted.
    if (backends.soundServer) {
        QPointer<RecorderViewModel> self(this);
        backends.soundServer->watch([self](bool lost, const QString&) {
            QMetaObject::invokeMethod(
                self.data(),
                [self, lost] {
                    if (!self) return;
                    const AppSettings* s = self->appSettings;
                    if (s->microphoneEnabled() || s->systemAudioEnabled())
                        self->showToast(lost ? soundLostText : soundBackText);
                },
                Qt::QueuedConnection);
        });
    }

    // System audio is part of the stream's set-up, so switching it needs a new stream.
    observe(appSettings, &AppSettings::systemAudioEnabled, &AppSettings::systemAudioEnabledChanged)
        .dropFirst()
        .removeDuplicates()
        .sink(this, [this](bool on) {
            segmentRecorder->setAudioEnabled(on || appSettings->microphoneEnabled());
            restartStream();
        });
}

void RecorderViewModel::wireAreaMonitor()
{
    QPointer<RecorderViewModel> self(this);

    // The monitor's sensitivity comes from the settings.
    monitor->setSensitivity(appSettings->areaSensitivity());

    // So do its area and reference, without side effects.
    monitor->hydrate(appSettings->areaMonitorRect(), appSettings->areaReferenceSignature());

    // Every new or dropped reference is stored.
    monitor->onReferenceChanged = [self](const std::optional<QByteArray>& bytes) {
        if (self) self->appSettings->setAreaReferenceSignature(bytes);
    };

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

    // The watched area changed: record, unless a recording already runs.
    monitor->onShouldStartRecording = queued([](RecorderViewModel& vm) {
        return AreaMonitorActions::startRequested(vm.segmentRecorder->isRecording(), [&] { vm.startRecording(); });
    });

    // It has looked like the reference for long enough: save the recording, if one runs.
    monitor->onShouldStopRecording = queued([](RecorderViewModel& vm) {
        return AreaMonitorActions::stopRequested(vm.segmentRecorder->isRecording(), [&] { vm.stopRecording(); });
    });

    // The monitor's sensitivity and area are remembered.
    observe(monitor, &AreaMonitor::sensitivity, &AreaMonitor::sensitivityChanged)
        .dropFirst()
        .sink(this, [this](AreaSensitivity value) { appSettings->setAreaSensitivity(value); });
    observe(monitor, &AreaMonitor::rect, &AreaMonitor::rectChanged)
        .dropFirst()
        .sink(this, [this](const std::optional<QRectF>& value) { appSettings->setAreaMonitorRect(value); });
}

void RecorderViewModel::wireArmedFrame()
{
    if (!backends.armedFrame) return;
    // Any change rebuilds the frame, its animation starting again. A sliver gets no frame.
    combineLatest(observe(monitor, &AreaMonitor::isArmed, &AreaMonitor::isArmedChanged),
        observe(monitor, &AreaMonitor::rect, &AreaMonitor::rectChanged),
        observe(appSettings, &AppSettings::areaOverlayStyle, &AppSettings::areaOverlayStyleChanged),
        observe(appSettings, &AppSettings::areaOverlayEnabled, &AppSettings::areaOverlayEnabledChanged))
        .sink(this, [frame = backends.armedFrame.get()](const auto& values) {
            const auto& [armed, rect, style, enabled] = values;
            if (armed && enabled && rect && rect->width() > 4 && rect->height() > 4)
                frame->show(*rect, style);
            else
                frame->dismiss();
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

void RecorderViewModel::setToast(const std::optional<QString>& text)
{
    toastText = text;
    emit toastChanged();
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

void RecorderViewModel::restartStream()
{
    segmentRecorder->disarmBuffering();
    captureEngine->stopStream();
    startPreview();
}

void RecorderViewModel::sourceSelected(const std::optional<CaptureSource>& source)
{
    // A stand-in for a closed window, or the window back: the user's choice stays what is saved.
    if (lostWindows->isSwitchingSource()) return;
    lostWindows->stopWaiting();
    if (!suppressPersistence) sources->saveSourceDescriptor(source);
}

void RecorderViewModel::startRecording()
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
    segmentRecorder->startRecording(destination);
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
    setToast(text);
    QPointer<RecorderViewModel> self(this);
    // Never cancelled: a newer toast just replaces the text, and this timer then leaves it alone.
    backends.scheduler->schedule(toastDuration, [self, text] {
        if (self && self->toastText == text) self->setToast(std::nullopt);
    });
}

void RecorderViewModel::runSaveSequence(const QString& path)
{
    lastSaved = path;
    emit lastSavedURLChanged();
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

struct RecorderViewModel::PnLReading {
    std::optional<ClipAutoDetect::Result> result;
    std::optional<QString> disputed; // two readings of the figure disagreed
    QString preview; // what the recogniser saw, when it found no figure
    bool noEngine = false; // Tesseract wouldn't start: its English data is missing
};

void RecorderViewModel::runPnLDetect(const QString& clip)
{
    if (!backends.textRecognizer) return;
    const std::optional<QRectF> area = monitor->rect();
    if (!area || !(area->width() > 4) || !(area->height() > 4)) {
        showToast(QStringLiteral("Auto P&L: pick a watch area to enable detection."));
        return;
    }
    const ClipMetaStore::Sidecar sidecar = ClipMetaStore::read(QUrl::fromLocalFile(clip));
    if (sidecar.state == ClipMetaStore::Sidecar::State::unusable) {
        // Whatever is there may be the user's notes in a form we cannot read: not scanned, not replaced.
        showToast(QStringLiteral("Auto P&L: skipped, ") + sidecar.problem);
        return;
    }
    if (!PnLTagWriter::isUntagged(sidecar.meta)) {
        showToast(QStringLiteral("Auto P&L: clip already tagged, kept your value."));
        return;
    }
    showToast(QStringLiteral("Auto P&L: scanning clip\u2026"));

    // The area is in global points, the clip shows the source: the area relative to the source,
    // scaled from the source's points to the recorded pixels.
    const QRectF crop = area->translated(-sources->sourcePointOrigin());
    const QSizeF sourceSize = sources->sourcePointSize();
    const QSizeF recordedSize(captureEngine->outputWidth(), captureEngine->outputHeight());
    QPointer<RecorderViewModel> self(this);
    detectPool->start([self, clip, crop, sourceSize, recordedSize, makeRecognizer = backends.textRecognizer] {
        PnLReading out;
        // This worker's own engine, for this clip only: an engine is never shared between threads.
        if (const std::unique_ptr<TextRecognizer> recognizer = makeRecognizer()) {
            const ClipAutoDetect::Detection found
                = ClipAutoDetect::detect(clip, crop, sourceSize, recordedSize, *recognizer);
            out.result = found.result;
            out.disputed = found.disputed;
            if (!out.result && !out.disputed)
                out.preview = ClipAutoDetect::ocrPreview(clip, crop, sourceSize, recordedSize, *recognizer);
        } else {
            out.noEngine = true;
        }
        QMetaObject::invokeMethod(
            self,
            [self, clip, out] {
                if (self) self->finishPnLDetect(clip, out);
            },
            Qt::QueuedConnection);
    });
}

void RecorderViewModel::finishPnLDetect(const QString& clip, const PnLReading& reading)
{
    if (reading.noEngine) {
        showToast(QStringLiteral("Reading the P&L needs Tesseract's English data (tesseract-ocr-eng)."));
        return;
    }
    if (reading.disputed) {
        showToast(QStringLiteral("Auto P&L: couldn't be sure of '") + *reading.disputed
            + QStringLiteral("' \u2014 tag it by hand."));
        return;
    }
    if (!reading.result) {
        showToast(reading.preview.isEmpty()
                ? QStringLiteral("Auto P&L: no number found \u2014 tag manually.")
                : QStringLiteral("Auto P&L: no number \u2014 OCR saw '") + reading.preview + QStringLiteral("'"));
        return;
    }
    // The sidecar as it is now, not as it was before the scan: a tag or a note typed meanwhile,
    // here or by another program, is kept.
    const QUrl url = QUrl::fromLocalFile(clip);
    const PnLTagWriter::Written written = PnLTagWriter::write(url, *reading.result);
    switch (written.status) {
    case PnLTagWriter::Written::Status::written:
        journalStore->reload(url);
        showToast(QStringLiteral("Auto P&L: ") + ClipAutoDetect::summary(*reading.result));
        break;
    case PnLTagWriter::Written::Status::kept:
        showToast(QStringLiteral("Auto P&L: clip already tagged, kept your value."));
        break;
    case PnLTagWriter::Written::Status::failed:
        showToast(QStringLiteral("Auto P&L: ") + ClipAutoDetect::summary(*reading.result)
            + QStringLiteral(" not written, ") + written.problem);
        break;
    }
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
