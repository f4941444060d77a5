#pragma once

#include "app/session/SessionActions.h"
#include "app/session/SessionModels.h"
#include "capture/CaptureSource.h"
#include "core/TaskScheduler.h"
#include "monitor/AreaGrabber.h"
#include "platform/AreaPicker.h"
#include "platform/ArmedFrame.h"
#include "platform/DesktopIntegration.h"
#include "platform/SoundServerWatcher.h"
#include "platform/TextRecognizer.h"

#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>

class AppSettings;
class AreaCommands;
class AreaMonitor;
class AreaMonitorSync;
class AudioRouting;
class AutoPnLDetect;
class CaptureBackend;
class CaptureEngine;
class ClipJournalStore;
class KeyGrabCheck;
class LostWindowWatch;
class MicCapture;
class CameraBackend;
class CameraCapture;
class CameraWiring;
class MicrophoneBackend;
class SegmentedRecorder;
class SessionStatus;
class SourceMemory;
class SystemAudioBackend;

// The session controller: owns the capture engine, the segment ring, the area monitor, the
// microphone and the journal, and makes the session's decisions: start, stop and save a recording,
// auto-stop, the stream's restarts, what runs after a save, and what the user is told (`status`).
// The screens get the models they show (`models()`) and ask for the rest through SessionActions; the
// hotkeys and the command line call it directly.
//
// Main thread only. Callbacks that arrive elsewhere enter through queued calls, so their effects can
// come after a later user action.
class RecorderViewModel : public QObject, public SessionActions {
    Q_OBJECT
    Q_PROPERTY(CaptureMode captureMode READ captureMode WRITE setCaptureMode NOTIFY captureModeChanged)

public:
    enum class CaptureMode { manual, areaMonitor };

    // The platform pieces, chosen by the caller (the application, or a test).
    struct Backends {
        std::shared_ptr<CaptureBackend> screen;
        std::shared_ptr<SystemAudioBackend> systemAudio;
        std::shared_ptr<MicrophoneBackend> microphones; // null: no microphone is ever found
        std::shared_ptr<CameraBackend> cameras; // null: no camera is ever found
        std::unique_ptr<TaskScheduler> scheduler; // null: timers on the main loop
        std::unique_ptr<DesktopIntegration> desktop; // null: no sound, no reveal
        std::unique_ptr<AreaGrabber> areaGrabber; // null: grabs through `screen`
        std::unique_ptr<AreaPicker> areaPicker; // null: no region can be drawn
        std::unique_ptr<ArmedFrame> armedFrame; // null: nothing on the screen says the monitor is armed
        RecognizerFactory textRecognizer; // null: no P&L is read off saved clips
        std::shared_ptr<KeyGrabCheck> keyGrabCheck; // null: nobody can tell which keys other programs hold
        DesktopWords desktopWords = DesktopWords::x11(); // what the settings screen says of the desktop
        std::unique_ptr<SoundServerWatcher> soundServer; // null: nothing says when sound goes and comes back
    };

    static constexpr auto toastDuration = std::chrono::milliseconds(2800);
    static constexpr auto restartDebounce = std::chrono::milliseconds(400);

    RecorderViewModel(AppSettings* settings, Backends backends, QObject* parent = nullptr);
    ~RecorderViewModel() override;

    CaptureMode captureMode() const { return mode; }
    void setCaptureMode(CaptureMode value);
    // The toast and the clip saved last.
    SessionStatus* status() const { return sessionStatus; }
    // What the screens show, and this controller for what they ask.
    SessionModels models();

    AppSettings* settings() const { return appSettings; }
    CaptureEngine* engine() const { return captureEngine; }
    SegmentedRecorder* recorder() const { return segmentRecorder; }
    ClipJournalStore* journal() const { return journalStore; }
    AreaMonitor* areaMonitor() const { return monitor; }
    MicCapture* mic() const { return microphone; }
    CameraCapture* camera() const { return cameraCapture; }
    // Opening, showing and trashing files on the desktop; null without one.
    DesktopIntegration* desktop() const { return backends.desktop.get(); }
    // Which key combinations other programs hold, for the hotkey pills; null where nobody can tell.
    const std::shared_ptr<KeyGrabCheck>& keyGrabCheck() const { return backends.keyGrabCheck; }
    // What the selected source is remembered as, how large it records and what its clips are called.
    SourceMemory* sourceMemory() const { return sources.get(); }
    // Arming the monitor, the area it watches, and a drawn region as the capture source.
    AreaCommands* areaCommands() const { return areas.get(); }
    bool isPersistenceSuppressed() const { return suppressPersistence; }

    // The two start-up tasks: list the sources and restore the saved one (then persistence
    // begins), and start the preview. `done` runs when both have finished.
    void startUp(std::function<void()> done = {});

    // Configures the ring for the selected source and starts the stream; nothing without a source.
    void startPreview() override;
    // `earlier`: the recording begins that long before now (a change the area monitor saw).
    void startRecording(std::chrono::nanoseconds earlier = {});
    void stopRecording();
    // What the save hotkey, the record button and the menu item do: stop a running recording,
    // start one otherwise.
    void toggleRecording() override;
    void showToast(const QString& text) override;
    // Nothing on the screen shows a preview while the window can't be seen; the ring, a recording
    // or an armed monitor keep the stream, and only a stream that feeds none of them stops.
    void setWindowSeen(bool seen) override;

    // Reads the P&L off a saved clip and tags it (AutoPnLDetect): the last step of the save sequence.
    void runPnLDetect(const QString& clip);

    // The stream restart: throw the ring away, stop the stream, start the preview again.
    void restartStream() override;
    void askDesktopForSource() override;

    // On the way out: stops a running recording and waits, without the event loop, until its clip
    // (and one whose export was already under way) is written. The clip is only reported in a
    // toast: not revealed, sounded or read for its P&L. Nothing is recorded afterwards.
    void saveRecordingBeforeQuit();

    // What the arm hotkey does (AreaCommands::toggleAreaMonitor): disarm an armed monitor, arm a
    // disarmed one, and say so. Returns the toast it showed.
    QString toggleAreaMonitor() override;

    // The listed display or window that a saved descriptor names (the command line's --source).
    std::optional<CaptureSource> findSource(const QString& descriptor) const;

signals:
    void captureModeChanged();

private:
    // The journal's folder in step with the save folder.
    void wireJournal();
    // The monitor's requests to start and stop recording, answered on a later turn of the loop.
    void wireAreaMonitor();
    // The capture mode and the selected source in step with what the settings remember.
    void wirePersistence();
    // The user in step with the end of an export: the save sequence, or the error as a toast.
    void wireSaveSequence();
    // The stream in step with the size, rate, cursor and hide-self settings, through one debounce.
    void wireStreamRestart();
    // The source in step with a stream that ends by itself, through the lost-window watch.
    void wireLostWindow();

    void scheduleAutoStopIfNeeded();
    void runSaveSequence(const QString& path);
    // The monitor forgets a recording it asked for, whoever ended it.
    void monitorReset();
    // A source chosen by anyone but the lost-window watch ends its wait, and is saved.
    void sourceSelected(const std::optional<CaptureSource>& source);
    // Streams the selected source at the given size with the frame rate, cursor, hide-self and
    // system audio of the settings.
    void startStream(int width, int height);
    // A restart throws the ring away: with a recording under way, or a clip still being written,
    // it saves the recording and runs `restart` once the clip is written (the latest one asked
    // for), and answers true. False when `restart` may run now.
    bool waitForSaveBeforeRestart(std::function<void()> restart);

    AppSettings* appSettings;
    Backends backends;
    CaptureEngine* captureEngine;
    SegmentedRecorder* segmentRecorder;
    AreaMonitor* monitor;
    MicCapture* microphone;
    CameraCapture* cameraCapture;
    CameraWiring* cameraWiring;
    ClipJournalStore* journalStore;
    std::unique_ptr<SourceMemory> sources;
    std::unique_ptr<AreaCommands> areas;
    std::unique_ptr<LostWindowWatch> lostWindows;
    SessionStatus* sessionStatus;
    AudioRouting* audio;
    AreaMonitorSync* monitorSync;
    AutoPnLDetect* pnlDetect;

    CaptureMode mode = CaptureMode::manual;
    std::optional<TaskScheduler::Handle> autoStopTask;
    // Clips saved shorter than asked, with what their save says instead of "Saved:".
    std::map<QString, QString> shortClips;
    bool suppressPersistence = true;
    std::function<void()> restartAfterSave;
};

QString captureModeRawValue(RecorderViewModel::CaptureMode mode);
