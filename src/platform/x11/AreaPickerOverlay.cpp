#include "platform/x11/AreaPickerOverlay.h"

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
        , origin(display.topLeft())
        , frozen(std::move(frozen))
        , finish(std::move(finish))
    {
        setCursor(Qt::CrossCursor);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        // The picture has the display's pixels; Qt may paint this window scaled.
        frozen.setDevicePixelRatio(devicePixelRatio());
        QPainter painter(this);
        AreaPickerGeometry::draw(painter, QRect(QPoint(), size()), frozen, anchor, current, devicePixelRatio());
    }

    void exposeEvent(QExposeEvent* event) override
    {
        OverlayWindow::exposeEvent(event);
        // An override-redirect window never gets the focus: Esc reaches it through a grab, which
        // the server grants only to a window on the screen.
        if (isExposed() && !keyboardGrabbed) keyboardGrabbed = setKeyboardGrabEnabled(true);
    }

    void mousePressEvent(QMouseEvent* event) override
    {
        if (event->button() == Qt::RightButton) return finish(std::nullopt);
        if (event->button() != Qt::LeftButton) return;
        anchor = current = event->position();
        update();
    }

    void mouseMoveEvent(QMouseEvent* event) override
    {
        if (!anchor) return;
        current = event->position();
        update();
    }

    void mouseReleaseEvent(QMouseEvent* event) override
    {
        if (event->button() != Qt::LeftButton) return;
        if (!anchor || !current) return finish(std::nullopt);
        const auto picked = AreaPickerGeometry::pickedRect(displayPixels(*anchor), displayPixels(*current), origin);
        anchor.reset();
        current.reset();
        update();
        // Too small a drag (a click) cancels the whole pick.
        finish(picked);
    }

    void keyPressEvent(QKeyEvent* event) override
    {
        if (event->key() == Qt::Key_Escape) finish(std::nullopt);
    }

private:
    // A point of Qt's, perhaps scaled, as the display's pixel it is on: a pointer moves by whole
    // pixels, and the scaling there and back must not move it by a hair.
    QPointF displayPixels(QPointF point) const
    {
        return QPointF(qRound(point.x() * devicePixelRatio()), qRound(point.y() * devicePixelRatio()));
    }

    QPointF origin;
    QImage frozen;
    std::function<void(std::optional<QRectF>)> finish;
    std::optional<QPointF> anchor;
    std::optional<QPointF> current;
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
