#include "platform/x11/AreaPickerOverlay.h"

#include "monitor/AreaPickerDrag.h"
#include "monitor/AreaPickerGeometry.h"
#include "platform/CaptureBackend.h"
#include "platform/x11/OverlayWindow.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

class AreaPickerOverlay::PickerWindow final : public OverlayWindow {
public:
    PickerWindow(const QRect& display, QImage frozen, std::function<void(std::optional<QRectF>)> finish)
        : OverlayWindow(display, false, false)
        , frozen(std::move(frozen))
        , drag(
              std::move(finish), [this] { update(); }, display.topLeft(),
              [this](QPointF p) { return displayPixels(p); })
    {
        setCursor(Qt::CrossCursor);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        // The picture has the display's pixels; Qt may paint this window scaled.
        frozen.setDevicePixelRatio(devicePixelRatio());
        QPainter painter(this);
        // Without a picture of the display (the grab failed) the dim lies over black.
        if (frozen.isNull()) painter.fillRect(QRect(QPoint(), size()), Qt::black);
        AreaPickerGeometry::draw(
            painter, QRect(QPoint(), size()), frozen, drag.anchor(), drag.current(), devicePixelRatio());
    }

    void exposeEvent(QExposeEvent* event) override
    {
        OverlayWindow::exposeEvent(event);
        // An override-redirect window never gets the focus: Esc reaches it through a grab, which
        // the server grants only to a window on the screen.
        if (isExposed() && !keyboardGrabbed) keyboardGrabbed = setKeyboardGrabEnabled(true);
    }

    void mousePressEvent(QMouseEvent* event) override { drag.press(event->button(), event->position()); }
    void mouseMoveEvent(QMouseEvent* event) override { drag.move(event->position()); }
    void mouseReleaseEvent(QMouseEvent* event) override { drag.release(event->button()); }

    void keyPressEvent(QKeyEvent* event) override
    {
        if (event->key() == Qt::Key_Escape) drag.cancel();
    }

private:
    // A point of Qt's, perhaps scaled, as the display's pixel it is on: a pointer moves by whole
    // pixels, and the scaling there and back must not move it by a hair.
    QPointF displayPixels(QPointF point) const
    {
        return QPointF(qRound(point.x() * devicePixelRatio()), qRound(point.y() * devicePixelRatio()));
    }

    QImage frozen;
    AreaPickerDrag drag;
    bool keyboardGrabbed = false;
};

AreaPickerOverlay::AreaPickerOverlay(std::shared_ptr<CaptureBackend> screen)
    : screen(std::move(screen))
{
}

AreaPickerOverlay::~AreaPickerOverlay()
{
    dismiss();
}

void AreaPickerOverlay::pick(Completion completion)
{
    dismiss();
    const auto content = screen->shareableContent();
    if (!content.content) return;
    // The pictures are taken before any window of the pick is up.
    std::vector<QRect> frames;
    for (const CaptureDisplay& display : content.content->displays)
        frames.push_back(display.frame);
    std::vector<std::pair<QRect, QImage>> displays;
    for (const QRect& frame : AreaPickerGeometry::pickerDisplays(frames))
        displays.emplace_back(frame, screen->grabRect(frame).value_or(QImage()));
    const auto finish
        = AreaPickerGeometry::firstResultWins<std::optional<QRectF>>(std::move(completion), [this] { dismiss(); });
    for (auto& [frame, picture] : displays) {
        auto* window = new PickerWindow(frame, std::move(picture), finish);
        live.push_back(window);
        window->show();
    }
}

void AreaPickerOverlay::dismiss()
{
    // A window may be ending the pick from inside its own event handler: it goes once that returns.
    for (PickerWindow* window : live) {
        window->setKeyboardGrabEnabled(false);
        window->hide();
        window->deleteLater();
    }
    live.clear();
}

std::vector<QWindow*> AreaPickerOverlay::windows() const
{
    return { live.begin(), live.end() };
}
