#include "platform/x11/ArmedAreaOverlay.h"

#include "monitor/ArmedFrameDrawing.h"
#include "monitor/ArmedFramePicture.h"
#include "platform/CaptureBackend.h"
#include "platform/x11/OverlayWindow.h"
#include "platform/x11/X11Compositor.h"
#include "platform/x11/XcbWindowPresenter.h"

#include <QBackingStore>
#include <QGuiApplication>
#include <QPainter>
#include <QScreen>

#include <cmath>
#include <optional>

class ArmedAreaOverlay::FrameWindow final : public QWindow {
public:
    FrameWindow(const QRect& geometry, const QRectF& watched, AreaOverlayStyle style, bool translucent, QImage under)
    {
        setSurfaceType(QSurface::RasterSurface);
        makeOverlay(*this, geometry, true, translucent);
        // The picture is painted where the server reads it from, when it can share memory with us.
        presenter = XcbWindowPresenter::create(xcb_window_t(winId()), geometry.size());
        picture.emplace(geometry.size(), watched.translated(-geometry.topLeft()), style, std::move(under),
            presenter ? presenter->canvas() : QImage());
        // The window is only the band, translucent or not: without a compositor whatever it covers
        // is hidden, and a compositor may stop while the frame stands, leaving a translucent
        // window's clear pixels black. Never over the watched area, whatever happens.
        shapeOverlay(*this, picture->band());
    }

    void advance(double seconds)
    {
        // The server is still reading the last picture: this one is skipped, and the next shows
        // what changed in both.
        if (presenter && !presenter->isReady()) return;
        const QRegion changes = picture->changesAt(seconds);
        picture->paint(seconds, changes);
        owed += changes;
        put();
    }

    double nextChange(double seconds, double interval) const { return picture->nextChange(seconds, interval); }

protected:
    void exposeEvent(QExposeEvent*) override
    {
        if (!isExposed()) return;
        // All of it: the window's pixels are undefined until drawn.
        owed += picture->band();
        if (!presenter || presenter->isReady()) put();
    }

private:
    // Puts what changed since the last put on the screen, now.
    void put()
    {
        if (owed.isEmpty() || !isExposed()) return;
        if (presenter) {
            presenter->put(owed);
        } else {
            // No shared memory with the server: through Qt's backing store, which counts Qt's
            // scaled pixels where the picture counts the display's.
            const qreal ratio = devicePixelRatio();
            QRegion scaled;
            for (const QRect& rect : owed)
                scaled += QRectF(QPointF(rect.topLeft()) / ratio, QSizeF(rect.size()) / ratio).toAlignedRect();
            if (!store) {
                store = std::make_unique<QBackingStore>(this);
                store->resize(size());
            }
            store->beginPaint(scaled);
            {
                QPainter painter(store->paintDevice());
                painter.setCompositionMode(QPainter::CompositionMode_Source);
                painter.scale(1 / ratio, 1 / ratio);
                for (const QRect& rect : owed)
                    painter.drawImage(rect.topLeft(), picture->image(), rect);
            }
            store->endPaint();
            store->flush(scaled);
        }
        owed = {};
    }

    // Before the picture, which may paint in its memory.
    std::unique_ptr<XcbWindowPresenter> presenter;
    std::optional<ArmedFramePicture> picture;
    // What has changed in the picture and is not on the screen yet.
    QRegion owed;
    std::unique_ptr<QBackingStore> store;
};

ArmedAreaOverlay::ArmedAreaOverlay(std::shared_ptr<CaptureBackend> screen, QObject* parent)
    : QObject(parent)
    , screen(std::move(screen))
{
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setSingleShot(true);
    connect(&ticker, &QTimer::timeout, this, &ArmedAreaOverlay::tick);
    reshow.setSingleShot(true);
    connect(&reshow, &QTimer::timeout, this, [this] { show(shownRect, shownStyle); });
}

ArmedAreaOverlay::~ArmedAreaOverlay()
{
    dismiss();
}

void ArmedAreaOverlay::show(const QRectF& globalRect, AreaOverlayStyle style)
{
    dismiss();
    if (!ArmedFrameDrawing::isFramable(globalRect)) return;
    const auto content = screen->shareableContent();
    if (!content.content) return;
    shownRect = globalRect;
    shownStyle = style;
    if (!compositor) {
        compositor = std::make_unique<X11CompositorWatch>();
        connect(compositor.get(), &X11CompositorWatch::changed, this, &ArmedAreaOverlay::compositorChanged);
    }
    translucent = compositor->isRunning();
    const QRect reach = ArmedFrameDrawing::paintedRegion(globalRect).boundingRect();
    std::vector<std::pair<QRect, QImage>> parts;
    for (const CaptureDisplay& display : content.content->displays) {
        if (!display.frame.intersects(globalRect.toAlignedRect())) continue;
        const QRect part = reach.intersected(display.frame);
        if (part.isEmpty()) continue;
        // The pictures are all taken before any window of the frame is up.
        QImage under;
        if (!translucent) under = pictureUnder(part);
        parts.emplace_back(part, std::move(under));
    }
    underFrame.clear();
    for (const auto& [part, under] : parts)
        underFrame.emplace_back(part, under);
    for (auto& [part, under] : parts) {
        auto* window = new FrameWindow(part, globalRect, style, translucent, std::move(under));
        live.push_back(window);
        window->show();
    }
    if (live.empty()) return;
    clock.start();
    // At most one picture a refresh of the display.
    const QScreen* display = QGuiApplication::primaryScreen();
    interval = 1.0 / (display && display->refreshRate() > 1 ? display->refreshRate() : 60.0);
    ticker.start(0);
}

QImage ArmedAreaOverlay::pictureUnder(const QRect& part)
{
    // The same frame again (another style) would find the old one still on the screen, its windows
    // not yet gone: it keeps the picture taken the first time.
    for (const auto& [rect, picture] : underFrame)
        if (rect == part && !picture.isNull()) return picture;
    return screen->grabRect(part).value_or(QImage());
}

void ArmedAreaOverlay::compositorChanged(bool running)
{
    if (live.empty() || running == translucent) return;
    if (running) {
        show(shownRect, shownStyle);
        return;
    }
    // The frame's windows must be off the screen, and what they covered drawn again by its owners,
    // before the picture under them is taken.
    dismiss();
    underFrame.clear();
    reshow.start(150);
}

void ArmedAreaOverlay::dismiss()
{
    reshow.stop();
    ticker.stop();
    for (FrameWindow* window : live) {
        window->hide();
        window->deleteLater();
    }
    live.clear();
}

void ArmedAreaOverlay::tick()
{
    // Every window of the frame shows the same moment.
    const double seconds = clock.nsecsElapsed() / 1e9;
    for (FrameWindow* window : live)
        window->advance(seconds);
    if (live.empty()) return;
    // Nothing is painted, nor is this woken, until the picture changes.
    const double next = live.front()->nextChange(seconds, interval);
    if (std::isfinite(next)) ticker.start(std::max(1, int(std::ceil((next - clock.nsecsElapsed() / 1e9) * 1000))));
}

std::vector<QWindow*> ArmedAreaOverlay::windows() const
{
    return { live.begin(), live.end() };
}
