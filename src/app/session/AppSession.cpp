#include "app/session/AppSession.h"

#include "app/AppIdentity.h"
#include "app/AppSettings.h"
#include "app/control/ControlCommands.h"
#include "app/control/ControlServer.h"
#include "app/client/ControlSocketPath.h"
#include "app/hotkeys/GlobalHotkeys.h"
#include "app/session/EventNotifications.h"
#include "app/session/OwnWindowTracker.h"
#include "app/session/RecorderViewModel.h"
#include "app/session/SessionStatus.h"
#include "app/session/SourceGeometry.h"
#include "capture/CaptureEngine.h"
#include "core/Log.h"
#include "core/Publisher.h"
#include "media/HevcEncoderProbe.h"
#include "monitor/RegionPicking.h"
#include "platform/DesktopNotifications.h"
#include "platform/Platform.h"
#include "recorder/PartialExports.h"
#include "recorder/SegmentFolder.h"
#include "recorder/SegmentedRecorder.h"

#include <QTextStream>
#include <QThreadPool>

#include <cstdio>

AppSession::AppSession(Options opts, std::unique_ptr<Platform> platform, QObject* parent)
    : QObject(parent)
    , options(std::move(opts))
    , desktop(std::move(platform))
    , settings(std::make_unique<AppSettings>())
{
}

AppSession::~AppSession()
{
    // The socket and the hotkeys go first, so no command reaches a controller that is being torn down.
    server.reset();
    hotkeys.reset();
    desktopShortcuts.reset();
    notifications.reset();
    commands.reset();
    controller.reset();
}

void AppSession::saveBeforeQuit()
{
    if (controller) controller->saveRecordingBeforeQuit();
}

void AppSession::closeForExit()
{
    saveBeforeQuit();
    ownWindows.reset();
    server.reset();
    hotkeys.reset();
    desktopShortcuts.reset();
    commands.reset();
    controller.reset();
}

bool AppSession::start(QString* error)
{
    RecorderViewModel::Backends backends;
    backends.screen = desktop->screen();
    backends.systemAudio = desktop->systemAudio();
    backends.microphones = desktop->microphones();
    backends.cameras = desktop->cameras();
    backends.soundServer = desktop->soundServerWatcher();
    backends.desktop = desktop->desktop();
    backends.textRecognizer = desktop->textRecognizers();
    backends.areaPicker = desktop->areaPicker();
    backends.armedFrame = desktop->armedFrame();
    backends.keyGrabCheck = desktop->keyGrabCheck();
    backends.desktopWords = desktop->desktopWords();
    controller = std::make_unique<RecorderViewModel>(settings.get(), std::move(backends));
    commands = std::make_unique<ControlCommands>(*controller);
    server = std::make_unique<ControlServer>([this](const QStringList& command) { return commands->handle(command); });
    QString path = options.socketPath;
    if (path.isEmpty()) {
        const ControlSocketPath::Location location = ControlSocketPath::forThisUser(true);
        if (!location.note.isEmpty()) logLine(location.note);
        if (!location.error.isEmpty()) {
            if (error) *error = QStringLiteral("no private place for the control socket: %1").arg(location.error);
            return false;
        }
        path = location.path;
    }
    QString listenError;
    switch (server->listen(path, &listenError)) {
    case ControlServer::ListenResult::alreadyRunning:
        if (error) *error = QStringLiteral("velotape is already running (%1 answers)").arg(path);
        return false;
    case ControlServer::ListenResult::failed:
        if (error) *error = QStringLiteral("cannot listen on %1: %2").arg(path, listenError);
        return false;
    case ControlServer::ListenResult::listening:
        break;
    }
    // Only the instance that holds the socket sweeps: a second start that gives way touches nothing.
    sweepWhatCrashedRunsLeft();

    // The encoder is chosen now, off the main thread: its log line comes at start-up, and the first
    // segment rarely has to wait for it.
    QThreadPool::globalInstance()->start([] { HevcEncoderProbe::chosen(); });

    // Without a window the local monitor hears nothing, but the global one works the same.
    hotkeys = std::make_unique<GlobalHotkeys>([this] { return desktop->globalKeyMonitor(); });
    hotkeys->onSaveHotkey = [this] { controller->toggleRecording(); };
    hotkeys->onArmHotkey = [this] { controller->toggleAreaMonitor(); };
    hotkeys->followSettings(settings.get());
    // On Wayland the desktop holds the keys: it is offered the same two, as the user set them.
    desktopShortcuts = desktop->desktopShortcuts();
    if (desktopShortcuts) {
        desktopShortcuts->bind(
            { { QStringLiteral("save"), QStringLiteral("Save a clip (start or stop recording)"),
                  settings->saveHotkey() },
                { QStringLiteral("arm"), QStringLiteral("Arm or disarm the area monitor"), settings->armHotkey() } },
            [this](const QString& id) {
                if (id == QLatin1String("save")) controller->toggleRecording();
                if (id == QLatin1String("arm")) controller->toggleAreaMonitor();
            });
    }

    if (options.headless) {
        // Nothing shows the preview.
        controller->engine()->setPreviewEnabled(false);
        static QTextStream out(stdout);
        echoEventsTo(out);
        notifications = std::make_unique<EventNotifications>(
            controller->models(), desktop->notifications(AppIdentity::appId()), nullptr);
        // The picker and the armed frame are windows even here, and a display capture sees them:
        // their repaints must not pass for changes of the screen.
        if (desktop->showsOverlayWindows())
            ownWindows = std::make_unique<OwnWindowTracker>(
                [engine = controller->engine()](std::vector<uint32_t> ids) { engine->setOwnWindows(std::move(ids)); });
    }
    // The preview task of start-up runs before the sources are listed and finds no source. Once
    // they are: headless streams the restored (or first) source, as nothing else would start it; the
    // window streams only the source the user chose on an earlier run, and otherwise shows the
    // recorder's empty state until the user picks one.
    controller->startUp([this] {
        if (!options.source.isEmpty())
            selectRequestedSource();
        else if (!controller->engine()->isStreaming() && (options.headless || restoredSavedSource()))
            controller->startPreview();
    });
    return true;
}

bool AppSession::restoredSavedSource() const
{
    const std::optional<QString> saved = settings->savedSourceDescriptor();
    const std::optional<CaptureSource> selected = controller->engine()->selectedSource();
    if (!saved || !selected) return false;
    const std::optional<CaptureSource> found = controller->findSource(*saved);
    return found && found->id() == selected->id();
}

void AppSession::sweepWhatCrashedRunsLeft()
{
    const SegmentFolder::SweepResult folders
        = SegmentFolder::sweepStaleEverywhere(controller->recorder()->segmentsDirectory());
    if (folders.removed > 0)
        logLine(QStringLiteral("Removed %1 segment folder(s) of earlier runs that ended without cleaning up (%2 MB)")
                    .arg(folders.removed)
                    .arg(double(folders.bytes) / 1e6, 0, 'f', 1));
    // Another instance (under another socket) may be exporting into the same folder right now.
    const int parts = PartialExports::sweep(settings->saveFolderPath(), folders.alive > 0);
    if (parts > 0) logLine(QStringLiteral("Removed %1 unfinished clip file(s) of earlier runs").arg(parts));
}

// Without a window, toasts and capture errors are lines on standard output.
void AppSession::echoEventsTo(QTextStream& out)
{
    observe(controller->status(), &SessionStatus::toast, &SessionStatus::toastChanged)
        .dropFirst()
        .sink(this, [&out](const std::optional<QString>& text) {
            if (text) out << *text << Qt::endl;
        });
    observe(controller->engine(), &CaptureEngine::errorMessage, &CaptureEngine::errorMessageChanged)
        .dropFirst()
        .removeDuplicates()
        .sink(this, [&out](const std::optional<QString>& text) {
            if (text) out << *text << Qt::endl;
        });
}

void AppSession::selectRequestedSource()
{
    CaptureEngine* engine = controller->engine();
    std::optional<CaptureSource> chosen;
    if (const auto region = SourceGeometry::parseRegionDescriptor(options.source)) {
        for (const CaptureDisplay& d : engine->availableDisplays()) {
            if (d.displayID != region->displayID) continue;
            const QRectF r = region->localPointRect.intersected(QRectF(0, 0, d.width, d.height));
            if (r.isEmpty()) break; // outside the display: no source
            // X11 points are pixels; sizes even and at least 2, as a drawn region's.
            chosen = CaptureSource::region(
                d, r, RegionPicking::evenPixelLength(r.width(), 1.0), RegionPicking::evenPixelLength(r.height(), 1.0));
        }
    } else {
        chosen = controller->findSource(options.source);
    }
    if (!chosen) {
        // Say what could have been asked for: nobody knows a display's id by heart.
        QStringList available;
        for (const CaptureDisplay& d : engine->availableDisplays())
            available << SourceGeometry::displayDescriptor(d.displayID)
                    + QStringLiteral(" (%1x%2)").arg(d.width).arg(d.height);
        for (const CaptureWindow& w : engine->availableWindows())
            if (w.owningApplication && w.title)
                available << SourceGeometry::windowDescriptor(w.owningApplication->bundleIdentifier, *w.title);
        std::fprintf(stderr, "velotape: no source matches '%s'; keeping %s. Available: %s\n",
            qPrintable(options.source), engine->selectedSource() ? "the current one" : "none",
            available.isEmpty() ? "none" : qPrintable(available.join(QStringLiteral(", "))));
        if (!engine->isStreaming()) controller->startPreview();
        return;
    }
    engine->setSelectedSource(chosen);
    controller->restartStream();
}
