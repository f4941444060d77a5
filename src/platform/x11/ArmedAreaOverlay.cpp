#include "platform/x11/ArmedAreaOverlay.h"

#include "capture/CaptureBackend.h"
#include "monitor/ArmedFrameDrawing.h"
#include "monitor/ArmedFramePicture.h"
#include "platform/x11/OverlayWindow.h"
#include "platform/x11/X11Compositor.h"
#include "platform/x11/XcbWindowPresenter.h"

#include <QBackingStore>
#include <QGuiApplication>
#include <QPainter>
#include <QScreen>
#include <QSemaphore>
#include <QThreadPool>

#include <cmath>

class ArmedAreaOverlay::FrameWindow final : public QWindow {
public:
    FrameWindow(const QRect& geometry, const QRectF& watched, AreaOverlayStyle style, bool translucent, QImage under)
        : picture(geometry.size(), watched.translated(-geometry.topLeft()), style, std::move(under))
    {
        setSurfaceType(QSurface::RasterSurface);
        makeOverlay(*this, geometry, true, translucent);
        // Without a compositor whatever the window covers is hidden, so it covers only the band.
        if (!translucent) setMask(picture.band());
    }

    void advance(double seconds)
    {
        // The server is still reading the last picture: this one is skipped, and the next shows
        // what changed in both.
        if (presenter && !presenter->isReady()) return;
        const QRegion changes = picture.changesAt(seconds);
        const auto paint = [&] { picture.paint(seconds, changes); };
        // Qt's raster engine splits a fill of many rows across the global thread pool and waits
        // for the pieces, unless it already runs on one of that pool's threads. Twenty pictures
        // a second of those hand-offs cost more than the painting, so the whole band is painted
        // on one pool thread (here, when the pool has none free).
        QSemaphore done;
        if (picture.redrawsStillAt(seconds) && QThreadPool::globalInstance()->tryStart([&] {
                paint();
                done.release();
            }))
            done.acquire();
        else
            paint();
        owed += changes;
        put();
    }

    double nextChange(double seconds, double interval) const { return picture.nextChange(seconds, interval); }

protected:
    void exposeEvent(QExposeEvent*) override
    {
        if (!isExposed()) return;
        if (!presenterTried) {
            presenterTried = true;
            presenter = XcbWindowPresenter::create(xcb_window_t(winId()), size());
        }
        // All of it, the watched area too: an ARGB window's pixels are undefined until drawn, and
        // a compositor would show them over the area the monitor watches.
        owed += QRect(QPoint(), size());
        if (!presenter || presenter->isReady()) put();
    }

private:
    // Puts what changed since the last put on the screen, now.
    void put()
    {
        if (owed.isEmpty() || !isExposed()) return;
        if (presenter) {
            presenter->put(picture.image(), owed);
        } else {
            // No shared memory with the server: through Qt's backing store.
            if (!store) {
                store = std::make_unique<QBackingStore>(this);
                store->resize(size());
            }
            store->beginPaint(owed);
            {
                QPainter painter(store->paintDevice());
                painter.setCompositionMode(QPainter::CompositionMode_Source);
                for (const QRect& rect : owed)
                    painter.drawImage(rect.topLeft(), picture.image(), rect);
            }
            store->endPaint();
            store->flush(owed);
        }
        owed = {};
    }

    ArmedFramePicture picture;
    // What has changed in the picture and is not on the screen yet.
    QRegion owed;
    bool presenterTried = false;
    std::unique_ptr<XcbWindowPresenter> presenter;
    std::unique_ptr<QBackingStore> store;
};

ArmedAreaOverlay::ArmedAreaOverlay(std::shared_ptr<CaptureBackend> screen, QObject* parent)
    : QObject(parent)
    , screen(std::move(screen))
{
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setSingleShot(true);
    connect(&ticker, &QTimer::timeout, this, &ArmedAreaOverlay::tick);
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
    translucent = X11Compositor::isRunning();
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
        if (rect == part) return picture;
    return screen->grabRect(part).value_or(QImage());
}

void ArmedAreaOverlay::dismiss()
{
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
