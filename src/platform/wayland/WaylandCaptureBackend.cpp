#include "platform/wayland/WaylandCaptureBackend.h"

#include "core/Log.h"
#include "platform/wayland/PipeWireCaptureStream.h"
#include "platform/wayland/PortalScreenCast.h"

#include <QDir>
#include <QFileInfo>

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

// Hands out the stream while the backend keeps a weak hold, to tell it when the desktop ends the
// session.
class SharedStream : public CaptureStream {
public:
    explicit SharedStream(std::shared_ptr<PipeWireCaptureStream> stream)
        : stream(std::move(stream))
    {
    }
    ~SharedStream() override { stream->stop(); }
    void stop() override { stream->stop(); }

private:
    std::shared_ptr<PipeWireCaptureStream> stream;
};

} // namespace

struct WaylandCaptureBackend::Shared {
    explicit Shared(QDBusConnection bus)
        : portal(std::move(bus))
    {
    }

    std::mutex mutex;
    PortalScreenCast portal; // its blocking calls are made under `mutex`
    std::optional<PortalScreenCast::Stream> stream; // guarded by mutex: the session's, while it runs
    bool sessionShowsCursor = true; // guarded by mutex
    // Its own lock: the desktop may close the session while a call above waits for the desktop
    // with `mutex` held.
    std::mutex runningMutex;
    std::weak_ptr<PipeWireCaptureStream> running; // guarded by runningMutex

    std::mutex latestMutex;
    QImage latest; // guarded by latestMutex: the newest picture at the stream's size
    QPoint latestOrigin; // guarded by latestMutex: where it lies in global space

    std::function<void(const QString&)> notice; // set before the first capture
};

WaylandCaptureBackend::WaylandCaptureBackend(TokenStore tokens, QDBusConnection bus)
    : tokens(std::move(tokens))
    , shared(std::make_shared<Shared>(std::move(bus)))
{
    // Main thread: the desktop ended the session (the user pressed "Stop sharing", or the
    // compositor went away). The running stream ends with a reason; the ring keeps what it has.
    // The portal forgets the session by itself, so the next start makes a new one.
    shared->portal.setOnClosed([weak = std::weak_ptr<Shared>(shared)] {
        const std::shared_ptr<Shared> s = weak.lock();
        if (!s) return;
        std::shared_ptr<PipeWireCaptureStream> running;
        {
            std::lock_guard lock(s->runningMutex);
            running = s->running.lock();
        }
        logLine(QStringLiteral("The desktop closed the screen-cast session"));
        if (running) running->end(QStringLiteral("the desktop stopped sharing the screen"));
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

void WaylandCaptureBackend::setOnNotice(std::function<void(const QString&)> callback)
{
    shared->notice = std::move(callback);
}

QString WaylandCaptureBackend::ensureSessionLocked(bool showCursor)
{
    if (shared->stream && shared->portal.isOpen() && shared->sessionShowsCursor == showCursor) return {};
    const Kept kept = tokens.load ? tokens.load() : Kept {};
    PortalScreenCast::Started started = shared->portal.start(kept.token, showCursor);
    QString notice;
    if (!kept.token.isEmpty() && started.outcome == PortalScreenCast::Outcome::failed) {
        // Some desktops answer a token they cannot restore (its monitor unplugged) with an error
        // rather than their chooser: forget it and ask once more.
        logLine(
            QStringLiteral("Screen cast: the desktop refused the kept token (%1); asking again").arg(started.error));
        if (tokens.save) tokens.save({});
        started = shared->portal.start({}, showCursor);
        notice = refusedNotice;
    }
    if (started.outcome == PortalScreenCast::Outcome::cancelled) return cancelledMessage;
    if (started.outcome != PortalScreenCast::Outcome::started) {
        logLine(QStringLiteral("Screen cast: ") + started.error);
        return started.error;
    }
    shared->stream = started.stream;
    shared->sessionShowsCursor = showCursor;
    const QString source = sourceOf(*shared->stream);
    // Most desktops show their chooser for a token they cannot restore; what comes back is then
    // another source than the one kept with the token.
    if (notice.isEmpty() && !kept.token.isEmpty() && !kept.source.isEmpty() && source != kept.source)
        notice = askedAgainNotice;
    // A new token replaces the old one; a desktop that gave none has nothing to keep.
    if (tokens.save && (started.restoreToken != kept.token || source != kept.source))
        tokens.save({ started.restoreToken, started.restoreToken.isEmpty() ? QString() : source });
    logLine(QStringLiteral("Screen cast: node %1, %2x%3%4")
                .arg(shared->stream->nodeId)
                .arg(shared->stream->size.width())
                .arg(shared->stream->size.height())
                .arg(kept.token.isEmpty()  ? QString()
                        : notice.isEmpty() ? QStringLiteral(", restored")
                                           : QStringLiteral(", asked again")));
    if (!notice.isEmpty() && shared->notice) shared->notice(notice);
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
    display.name = stream.id.isEmpty() ? QStringLiteral("Screen or window (your desktop asks)") : stream.id;
    return display;
}

CaptureBackend::ContentResult WaylandCaptureBackend::shareableContent()
{
    std::lock_guard lock(shared->mutex);
    const bool cursor = shared->stream ? shared->sessionShowsCursor : true;
    if (QString error = ensureSessionLocked(cursor); !error.isEmpty()) return { std::nullopt, error };
    ShareableContent content;
    content.displays.push_back(displayLocked());
    return { content, {} };
}

CaptureBackend::StreamStart WaylandCaptureBackend::startCapture(
    const ContentFilter& filter, const StreamConfiguration& configuration, std::shared_ptr<const StreamOutput> output)
{
    if (filter.kind == ContentFilter::Kind::window)
        return { nullptr, QStringLiteral("on Wayland a window is chosen in the desktop's own dialog") };
    std::lock_guard lock(shared->mutex);
    if (QString error = ensureSessionLocked(configuration.showsCursor); !error.isEmpty()) return { nullptr, error };
    QString error;
    const int fd = shared->portal.openPipeWireRemote(&error);
    if (fd < 0) return { nullptr, error };

    const QPoint origin = shared->stream->position;
    auto keepLatest = [weak = std::weak_ptr<Shared>(shared), origin](const QImage& picture) {
        if (const std::shared_ptr<Shared> s = weak.lock()) {
            std::lock_guard latestLock(s->latestMutex);
            s->latest = picture;
            s->latestOrigin = origin;
        }
    };
    CaptureBackend::StreamStart started
        = PipeWireCaptureStream::start(fd, shared->stream->nodeId, configuration, output, keepLatest);
    if (!started.stream) return started;
    std::shared_ptr<PipeWireCaptureStream> stream(static_cast<PipeWireCaptureStream*>(started.stream.release()));
    std::lock_guard runningLock(shared->runningMutex);
    shared->running = stream;
    return { std::make_unique<SharedStream>(stream), {} };
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
