#include "platform/x11/ArmedAreaOverlay.h"

#include "capture/CaptureBackend.h"
#include "monitor/ArmedFrameDrawing.h"
#include "platform/x11/OverlayWindow.h"
#include "platform/x11/X11Compositor.h"

#include <QGuiApplication>
#include <QPaintEvent>
#include <QPainter>
#include <QScreen>

#include <cmath>

class ArmedAreaOverlay::FrameWindow final : public OverlayWindow {
public:
    FrameWindow(const QRect& geometry, const QRectF& watched, AreaOverlayStyle style, bool translucent, QImage under)
        : OverlayWindow(geometry, true, translucent)
        , watched(watched.translated(-geometry.topLeft()))
        , style(style)
        , translucent(translucent)
        , under(std::move(under))
        , band(ArmedFrameDrawing::paintedRegion(this->watched).intersected(QRect(QPoint(), geometry.size())))
    {
        // Without a compositor whatever the window covers is hidden, so it covers only the band.
        if (!translucent) setMask(band);
    }

    void advance(double seconds)
    {
        time = seconds;
        update(band);
    }

protected:
    void paintEvent(QPaintEvent* event) override
    {
        QPainter painter(this);
        painter.setClipRegion(event->region());
        if (translucent) {
            painter.setCompositionMode(QPainter::CompositionMode_Source);
            painter.fillRect(event->rect(), Qt::transparent);
            painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        } else if (under.isNull()) {
            painter.fillRect(event->rect(), Qt::black);
        } else {
            painter.drawImage(event->rect(), under, event->rect());
        }
        ArmedFrameDrawing::draw(painter, watched, style, time);
    }

private:
    QRectF watched; // in the window's coordinates
    AreaOverlayStyle style;
    bool translucent;
    QImage under;
    QRegion band;
    double time = 0;
};

ArmedAreaOverlay::ArmedAreaOverlay(std::shared_ptr<CaptureBackend> screen, QObject* parent)
    : QObject(parent)
    , screen(std::move(screen))
{
    ticker.setTimerType(Qt::PreciseTimer);
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
    // One picture a refresh of the display.
    const QScreen* display = QGuiApplication::primaryScreen();
    const double hz = display && display->refreshRate() > 1 ? display->refreshRate() : 60.0;
    ticker.start(int(std::lround(1000.0 / hz)));
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
}

std::vector<QWindow*> ArmedAreaOverlay::windows() const
{
    return { live.begin(), live.end() };
}
