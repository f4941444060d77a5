#include "platform/wayland/WaylandCaptureBackend.h"

#include "core/Log.h"
#include "platform/wayland/PipeWireCaptureStream.h"
#include "platform/wayland/PortalScreenCast.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <thread>

const QString WaylandCaptureBackend::cancelledMessage = QStringLiteral("Screen sharing was cancelled.");
const QString WaylandCaptureBackend::missingMessage
    = QStringLiteral("Screen capture on Wayland needs xdg-desktop-portal and PipeWire running");
const QString WaylandCaptureBackend::askedAgainNotice
    = QStringLiteral("Your desktop asked again which screen to share: the one shared last time is gone.");
const QString WaylandCaptureBackend::refusedNotice = QStringLiteral(
    "Your desktop could not share the same screen as last time, so it asked again which screen to share.");

namespace {

// The display that stands for whatever the desktop shares: one id, whatever was chosen, so that a
// saved source still names it after the user chose something else in the dialog.
constexpr uint32_t sharedDisplayID = 1;

// Where libpipewire looks for the server: PIPEWIRE_REMOTE (a name or a path) in
// PIPEWIRE_RUNTIME_DIR, else XDG_RUNTIME_DIR.
bool pipeWireSocketExists()
{
    QString remote = qEnvironmentVariable("PIPEWIRE_REMOTE", QStringLiteral("pipewire-0"));
    if (QDir::isAbsolutePath(remote)) return QFileInfo::exists(remote);
    QString dir = qEnvironmentVariable("PIPEWIRE_RUNTIME_DIR");
    if (dir.isEmpty()) dir = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return !dir.isEmpty() && QFileInfo::exists(QDir(dir).filePath(remote));
}

// What names a shared source from one run to the next: the backend's own id where it gives one,
// else where the source lies and how big it is.
QString sourceOf(const PortalScreenCast::Stream& stream)
{
    if (!stream.id.isEmpty()) return stream.id;
    return QStringLiteral("%1,%2 %3x%4")
        .arg(stream.position.x())
        .arg(stream.position.y())
        .arg(stream.size.width())
        .arg(stream.size.height());
}

// What the desktop shares, named from what its stream says of itself.
QString labelOf(const PortalScreenCast::Stream& stream)
{
    // A window's id names nothing the user would know; a monitor's is shown as the desktop gave it.
    const QString& id = stream.id;
    switch (stream.sourceType) {
    case 1:
        return id.isEmpty() ? QStringLiteral("Shared screen") : QStringLiteral("Screen ") + id;
    case 2:
        return QStringLiteral("Shared window");
    case 4:
        return QStringLiteral("Virtual screen");
    }
    return id.isEmpty() ? QStringLiteral("Shared screen") : id;
}

class ReconnectingStream;

// Whether PipeWire's socket is surely not there: false where this process does not know where it
// would be (the socket came from the portal).
bool pipeWireSocketMissing()
{
    const QString remote = qEnvironmentVariable("PIPEWIRE_REMOTE", QStringLiteral("pipewire-0"));
    if (!QDir::isAbsolutePath(remote) && qEnvironmentVariableIsEmpty("PIPEWIRE_RUNTIME_DIR")
        && qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR"))
        return false;
    return !pipeWireSocketExists();
}

} // namespace

struct WaylandCaptureBackend::Shared : std::enable_shared_from_this<Shared> {
    Shared(TokenStore tokens, QDBusConnection bus)
        : tokens(std::move(tokens))
        , portal(std::move(bus))
    {
    }

    // Under `mutex`: a started session, started now if there is none (the cursor as asked). The
    // reason if there is none.
    QString ensureSessionLocked(bool showCursor);
    // Under `mutex`: a new PipeWire stream of the session's node, the session started if needed.
    CaptureBackend::StreamStart connectLocked(
        const StreamConfiguration& configuration, std::shared_ptr<const StreamOutput> output);

    const TokenStore tokens;

    std::mutex mutex;
    PortalScreenCast portal; // its blocking calls are made under `mutex`
    std::optional<PortalScreenCast::Stream> stream; // guarded by mutex: the session's, while it runs
    bool sessionShowsCursor = true; // guarded by mutex
    // Guarded by mutex: the session sends the cursor beside the pictures, so showing or hiding it
    // needs no new session; its last shape, for each new stream of the session. Null otherwise.
    std::shared_ptr<PipeWireCaptureStream::CursorMemory> cursorMemory;
    // The user asked to choose again: the next session is started without the kept token. Not
    // under `mutex`, which is held while the desktop asks.
    std::atomic<bool> chooseAgain { false };
    // Its own lock: the desktop may close the session while a call above waits for the desktop
    // with `mutex` held.
    std::mutex runningMutex;
    std::weak_ptr<ReconnectingStream> running; // guarded by runningMutex

    std::mutex latestMutex;
    QImage latest; // guarded by latestMutex: the newest picture at the stream's size
    QPoint latestOrigin; // guarded by latestMutex: where it lies in global space

    std::function<void(const QString&)> notice; // set before the first capture
    // What the present (or last) session shares, as the portal says (1 monitor, 2 window, 0 unsaid);
    // read without `mutex`, which a call waiting for the desktop's chooser may hold.
    std::atomic<uint32_t> sharedSourceType { 0 };
};

namespace {

// The stream handed out: PipeWire streams one after another, for as long as the capture runs. When
// the PipeWire server goes away (restarted by the user's service manager, upgraded, crashed) the
// frames pause, and once a server answers again the same session's node is read anew, or, when
// the desktop ended that session with the old server, a new session restored from the kept
// token. The output sees one stream throughout, so the ring keeps what it had.
class ReconnectingStream : public std::enable_shared_from_this<ReconnectingStream> {
public:
    using Connect = std::function<CaptureBackend::StreamStart(std::shared_ptr<const StreamOutput>)>;

    // `connect`: a new PipeWire stream; `forgetSession`: the next `connect` makes a new session.
    ReconnectingStream(Connect connect, std::function<void()> forgetSession, std::shared_ptr<const StreamOutput> output)
        : connect(std::move(connect))
        , forgetSession(std::move(forgetSession))
        , output(std::move(output))
        , inner(std::make_shared<StreamOutput>())
    {
        // Raw pointers: every PipeWire stream is stopped before this goes, and none calls back after.
        // Nothing is delivered after the stream's end was reported.
        inner->onFrame = [this](const VideoFrame& frame) {
            framed = true;
            if (!ended) this->output->didOutputFrame(frame);
        };
        inner->onSkipped = [this] {
            if (!ended) this->output->didSkipFrame();
        };
        inner->onStop = [this](const QString& reason) { innerStopped(reason); };
    }
    ~ReconnectingStream() { stop(); }

    std::shared_ptr<const StreamOutput> innerOutput() const { return inner; }
    void setCurrent(std::shared_ptr<PipeWireCaptureStream> stream)
    {
        std::lock_guard lock(mutex);
        current = std::move(stream);
    }

    // Any thread. No frame is delivered after it returns.
    void stop()
    {
        if (stopped.exchange(true)) return;
        std::shared_ptr<PipeWireCaptureStream> stream;
        {
            std::lock_guard lock(mutex);
            stream = std::move(current);
        }
        if (stream) stream->stop();
    }

    // Main thread: the desktop ended the session. While PipeWire is away that is the old server's
    // session going with it, which the reconnection replaces.
    void desktopClosed()
    {
        // The word of the desktop may come a moment before our own connection's end.
        QTimer::singleShot(closeGraceMs, [weak = weak_from_this()] {
            const std::shared_ptr<ReconnectingStream> self = weak.lock();
            if (self && !self->reconnecting) self->finish(QStringLiteral("the desktop stopped sharing the screen"));
        });
    }

private:
    // On the PipeWire thread of the stream that ended.
    void innerStopped(const QString& reason)
    {
        if (stopped) return;
        if (reason != PipeWireCaptureStream::serverLostReason) {
            // A stream tried while reconnecting is the reconnection's business.
            if (!reconnecting) finish(reason);
            return;
        }
        if (reconnecting.exchange(true)) return;
        logLine(QStringLiteral("Screen stream: PipeWire went away; waiting for it to come back"));
        // Its own thread: the old stream is stopped from outside its loop, and the portal is
        // waited for in an event loop of that thread. It holds this object until it is done.
        std::thread([self = shared_from_this()] { self->reconnect(); }).detach();
    }

    void reconnect()
    {
        std::shared_ptr<PipeWireCaptureStream> old;
        {
            std::lock_guard lock(mutex);
            old = std::move(current);
        }
        if (old) old->stop();
        const QDeadlineTimer deadline(reconnectForMs);
        while (!stopped && !deadline.hasExpired()) {
            QThread::msleep(retryMs);
            if (stopped || pipeWireSocketMissing()) continue;
            framed = false;
            CaptureBackend::StreamStart started = connect(inner);
            if (!started.stream) {
                logLine(QStringLiteral("Screen stream: not reconnected yet: ") + started.error);
                if (started.error == WaylandCaptureBackend::cancelledMessage) {
                    reconnecting = false;
                    finish(started.error);
                    return;
                }
                forgetSession();
                continue;
            }
            std::shared_ptr<PipeWireCaptureStream> stream(
                static_cast<PipeWireCaptureStream*>(started.stream.release()));
            {
                std::lock_guard lock(mutex);
                if (!stopped) current = stream;
            }
            if (stopped) {
                stream->stop();
                return;
            }
            // A desktop sends a new reader the present picture: one that sends nothing has no
            // node behind it any more.
            const QDeadlineTimer firstFrame(firstFrameMs);
            while (!framed && !stopped && !firstFrame.hasExpired())
                QThread::msleep(20);
            if (framed) {
                logLine(QStringLiteral("Screen stream: reconnected to PipeWire"));
                reconnecting = false;
                return;
            }
            {
                std::lock_guard lock(mutex);
                if (current == stream) current.reset();
            }
            stream->stop();
            forgetSession();
        }
        reconnecting = false;
        if (!stopped) finish(PipeWireCaptureStream::serverLostReason);
    }

    void finish(const QString& reason)
    {
        if (stopped || ended.exchange(true)) return;
        output->didStopWithError(reason);
    }

    static constexpr int closeGraceMs = 300;
    static constexpr int reconnectForMs = 30 * 1000;
    static constexpr int retryMs = 200;
    static constexpr int firstFrameMs = 3000;

    const Connect connect;
    const std::function<void()> forgetSession;
    const std::shared_ptr<const StreamOutput> output;
    const std::shared_ptr<StreamOutput> inner;
    std::mutex mutex;
    std::shared_ptr<PipeWireCaptureStream> current; // guarded by mutex
    std::atomic<bool> stopped { false };
    std::atomic<bool> reconnecting { false };
    std::atomic<bool> ended { false };
    std::atomic<bool> framed { false };
};

// What the engine holds: stopping or dropping it ends the capture, while a reconnection that may
// still run keeps its own hold.
class StreamHandle : public CaptureStream {
public:
    explicit StreamHandle(std::shared_ptr<ReconnectingStream> stream)
        : stream(std::move(stream))
    {
    }
    ~StreamHandle() override { stream->stop(); }
    void stop() override { stream->stop(); }

private:
    std::shared_ptr<ReconnectingStream> stream;
};

} // namespace

WaylandCaptureBackend::WaylandCaptureBackend(TokenStore tokens, QDBusConnection bus)
    : shared(std::make_shared<Shared>(std::move(tokens), std::move(bus)))
{
    // Main thread: the desktop ended the session (the user pressed "Stop sharing", or the
    // compositor went away). The running stream ends with a reason; the ring keeps what it has.
    // The portal forgets the session by itself, so the next start makes a new one.
    shared->portal.setOnClosed([weak = std::weak_ptr<Shared>(shared)] {
        const std::shared_ptr<Shared> s = weak.lock();
        if (!s) return;
        std::shared_ptr<ReconnectingStream> running;
        {
            std::lock_guard lock(s->runningMutex);
            running = s->running.lock();
        }
        logLine(QStringLiteral("The desktop closed the screen-cast session"));
        if (running) running->desktopClosed();
    });
}

WaylandCaptureBackend::~WaylandCaptureBackend()
{
    shared->portal.setOnClosed({});
    shared->portal.close();
}

QString WaylandCaptureBackend::probe()
{
    if (!pipeWireSocketExists() || !PortalScreenCast::available()) return missingMessage;
    return {};
}

std::optional<WaylandCaptureBackend::Still> WaylandCaptureBackend::newestPicture() const
{
    std::lock_guard lock(shared->latestMutex);
    if (shared->latest.isNull()) return std::nullopt;
    return Still { shared->latestOrigin, shared->latest.copy() };
}

bool WaylandCaptureBackend::sharesWindow() const
{
    return shared->sharedSourceType == 2;
}

void WaylandCaptureBackend::chooseSourceAgain()
{
    shared->chooseAgain = true;
}

void WaylandCaptureBackend::setOnNotice(std::function<void(const QString&)> callback)
{
    shared->notice = std::move(callback);
}

QString WaylandCaptureBackend::Shared::ensureSessionLocked(bool showCursor)
{
    const bool asking = chooseAgain.exchange(false);
    if (!asking && stream && portal.isOpen() && (cursorMemory || sessionShowsCursor == showCursor)) return {};
    const Kept kept = tokens.load ? tokens.load() : Kept {};
    PortalScreenCast::Started started = portal.start(asking ? QString() : kept.token, showCursor);
    QString toTell;
    if (asking && started.outcome == PortalScreenCast::Outcome::cancelled && !kept.token.isEmpty()) {
        // The user closed the dialog: what was shared before is shared again, without asking.
        logLine(QStringLiteral("Screen cast: the choice was cancelled; restoring the one before"));
        started = portal.start(kept.token, showCursor);
    } else if (!asking && !kept.token.isEmpty() && started.outcome == PortalScreenCast::Outcome::failed) {
        // Some desktops answer a token they cannot restore (its monitor unplugged) with an error
        // rather than their chooser: forget it and ask once more.
        logLine(
            QStringLiteral("Screen cast: the desktop refused the kept token (%1); asking again").arg(started.error));
        if (tokens.save) tokens.save({});
        started = portal.start({}, showCursor);
        toTell = WaylandCaptureBackend::refusedNotice;
    }
    if (started.outcome == PortalScreenCast::Outcome::cancelled) return WaylandCaptureBackend::cancelledMessage;
    if (started.outcome != PortalScreenCast::Outcome::started) {
        logLine(QStringLiteral("Screen cast: ") + started.error);
        return started.error;
    }
    stream = started.stream;
    sharedSourceType = stream->sourceType;
    sessionShowsCursor = showCursor;
    cursorMemory = started.cursorAsMetadata ? std::make_shared<PipeWireCaptureStream::CursorMemory>() : nullptr;
    const QString source = sourceOf(*stream);
    // Most desktops show their chooser for a token they cannot restore; what comes back is then
    // another source than the one kept with the token.
    if (!asking && toTell.isEmpty() && !kept.token.isEmpty() && !kept.source.isEmpty() && source != kept.source)
        toTell = WaylandCaptureBackend::askedAgainNotice;
    // A new token replaces the old one; a desktop that gave none has nothing to keep.
    if (tokens.save && (started.restoreToken != kept.token || source != kept.source))
        tokens.save({ started.restoreToken, started.restoreToken.isEmpty() ? QString() : source });
    logLine(QStringLiteral("Screen cast: node %1, %2x%3%4")
                .arg(stream->nodeId)
                .arg(stream->size.width())
                .arg(stream->size.height())
                .arg(asking                    ? QStringLiteral(", chosen anew")
                        : kept.token.isEmpty() ? QString()
                        : toTell.isEmpty()     ? QStringLiteral(", restored")
                                               : QStringLiteral(", asked again")));
    if (!toTell.isEmpty() && notice) notice(toTell);
    return {};
}

CaptureDisplay WaylandCaptureBackend::displayLocked() const
{
    CaptureDisplay display;
    display.displayID = sharedDisplayID;
    const PortalScreenCast::Stream& stream = *shared->stream;
    display.width = stream.size.width();
    display.height = stream.size.height();
    display.frame = QRect(stream.position, stream.size);
    display.name = labelOf(stream);
    return display;
}

CaptureBackend::ContentResult WaylandCaptureBackend::shareableContent()
{
    std::lock_guard lock(shared->mutex);
    const bool cursor = shared->stream ? shared->sessionShowsCursor : true;
    if (QString error = shared->ensureSessionLocked(cursor); !error.isEmpty()) return { std::nullopt, error };
    ShareableContent content;
    content.displays.push_back(displayLocked());
    return { content, {} };
}

CaptureBackend::StreamStart WaylandCaptureBackend::Shared::connectLocked(
    const StreamConfiguration& configuration, std::shared_ptr<const StreamOutput> output)
{
    if (QString error = ensureSessionLocked(configuration.showsCursor); !error.isEmpty()) return { nullptr, error };
    QString error;
    const int fd = portal.openPipeWireRemote(&error);
    if (fd < 0) return { nullptr, error };
    const QPoint origin = stream->position;
    auto keepLatest = [weak = weak_from_this(), origin](const QImage& picture) {
        if (const std::shared_ptr<Shared> s = weak.lock()) {
            std::lock_guard latestLock(s->latestMutex);
            s->latest = picture;
            s->latestOrigin = origin;
        }
    };
    return PipeWireCaptureStream::start(fd, stream->nodeId, configuration, cursorMemory, std::move(output), keepLatest);
}

CaptureBackend::StreamStart WaylandCaptureBackend::startCapture(
    const ContentFilter& filter, const StreamConfiguration& configuration, std::shared_ptr<const StreamOutput> output)
{
    if (filter.kind == ContentFilter::Kind::window)
        return { nullptr, QStringLiteral("on Wayland a window is chosen in the desktop's own dialog") };
    const std::weak_ptr<Shared> weak = shared;
    auto reconnecting = std::make_shared<ReconnectingStream>(
        [weak, configuration](std::shared_ptr<const StreamOutput> inner) -> CaptureBackend::StreamStart {
            const std::shared_ptr<Shared> s = weak.lock();
            if (!s) return { nullptr, QStringLiteral("the screen capture has ended") };
            std::lock_guard lock(s->mutex);
            return s->connectLocked(configuration, std::move(inner));
        },
        [weak] {
            if (const std::shared_ptr<Shared> s = weak.lock()) {
                std::lock_guard lock(s->mutex);
                s->portal.close();
                s->stream.reset();
            }
        },
        std::move(output));
    {
        std::lock_guard lock(shared->mutex);
        CaptureBackend::StreamStart started = shared->connectLocked(configuration, reconnecting->innerOutput());
        if (!started.stream) return started;
        reconnecting->setCurrent(
            std::shared_ptr<PipeWireCaptureStream>(static_cast<PipeWireCaptureStream*>(started.stream.release())));
    }
    std::lock_guard runningLock(shared->runningMutex);
    shared->running = reconnecting;
    return { std::make_unique<StreamHandle>(reconnecting), {} };
}

std::optional<QImage> WaylandCaptureBackend::grabRect(const QRectF& globalRect)
{
    std::lock_guard lock(shared->latestMutex);
    if (shared->latest.isNull()) return std::nullopt;
    const QRect wanted = globalRect.toAlignedRect();
    QImage picture(wanted.size(), QImage::Format_RGB32);
    picture.fill(Qt::black);
    const QRect available = wanted & QRect(shared->latestOrigin, shared->latest.size());
    if (!available.isEmpty()) {
        const QRect source = available.translated(-shared->latestOrigin);
        const QPoint to = available.topLeft() - wanted.topLeft();
        for (int y = 0; y < source.height(); ++y)
            memcpy(picture.scanLine(to.y() + y) + to.x() * 4,
                shared->latest.constScanLine(source.y() + y) + source.x() * 4, size_t(source.width()) * 4);
    }
    return picture;
}
