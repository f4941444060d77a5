#include "platform/wayland/FrozenPicturePicker.h"

#include "core/Log.h"
#include "monitor/AreaPickerDrag.h"
#include "monitor/AreaPickerGeometry.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QRasterWindow>

class FrozenPicturePicker::PickerWindow final : public QRasterWindow {
public:
    PickerWindow(const QRect& stream, QImage frozen, std::function<void(std::optional<QRectF>)> finish)
        : stream(stream)
        , frozen(std::move(frozen))
        , drag(
              std::move(finish), [this] { update(); }, stream.topLeft(), [this](QPointF p) { return inStream(p); })
    {
        setTitle(QStringLiteral("Velotape: drag to select an area"));
        setCursor(Qt::CrossCursor);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.fillRect(QRect(QPoint(), size()), Qt::black);
        // Drawn in the stream's pixels, so that the selection and its size read as the monitor
        // will see them.
        const QRectF at = pictureRect();
        painter.translate(at.topLeft());
        painter.scale(scale(), scale());
        const std::optional<QPointF> a = drag.anchor() ? std::optional(inStream(*drag.anchor())) : std::nullopt;
        const std::optional<QPointF> c = drag.current() ? std::optional(inStream(*drag.current())) : std::nullopt;
        AreaPickerGeometry::draw(painter, QRect(QPoint(), stream.size()), frozen, a, c);
    }

    void mousePressEvent(QMouseEvent* event) override { drag.press(event->button(), event->position()); }
    void mouseMoveEvent(QMouseEvent* event) override { drag.move(event->position()); }
    void mouseReleaseEvent(QMouseEvent* event) override { drag.release(event->button()); }

    void keyPressEvent(QKeyEvent* event) override
    {
        if (event->key() == Qt::Key_Escape) drag.cancel();
    }

    // The desktop may close a full-screen window itself (its close key): that cancels too, rather
    // than leaving the caller waiting.
    bool event(QEvent* event) override
    {
        if (event->type() == QEvent::Close) drag.cancel();
        return QRasterWindow::event(event);
    }

private:
    QRectF pictureRect() const { return fitted(stream.size(), QRectF(QPointF(), size())); }
    double scale() const { return stream.width() > 0 ? pictureRect().width() / stream.width() : 1; }
    // A point of the window as the stream's pixel under it.
    QPointF inStream(QPointF point) const { return (point - pictureRect().topLeft()) / scale(); }

    const QRect stream;
    const QImage frozen;
    AreaPickerDrag drag;
};

FrozenPicturePicker::FrozenPicturePicker(std::function<std::optional<Still>()> newest)
    : newestPicture(std::move(newest))
{
}

FrozenPicturePicker::~FrozenPicturePicker()
{
    dismiss();
}

QRectF FrozenPicturePicker::fitted(QSize pictureSize, const QRectF& bounds)
{
    if (pictureSize.isEmpty() || bounds.isEmpty()) return bounds;
    const double s = std::min(bounds.width() / pictureSize.width(), bounds.height() / pictureSize.height());
    const QSizeF size(pictureSize.width() * s, pictureSize.height() * s);
    return QRectF(bounds.center() - QPointF(size.width() / 2, size.height() / 2), size);
}

void FrozenPicturePicker::pick(Completion completion)
{
    dismiss();
    // What the stream shares is one display; its newest picture is what the user picks on.
    std::optional<Still> still = newestPicture ? newestPicture() : std::nullopt;
    if (!still) {
        logLine(QStringLiteral("Area picker: the screen stream has sent no picture yet"));
        if (completion) completion(std::nullopt);
        return;
    }
    const QRect stream(still->origin, still->picture.size());
    const auto finish
        = AreaPickerGeometry::firstResultWins<std::optional<QRectF>>(std::move(completion), [this] { dismiss(); });
    live = new PickerWindow(stream, std::move(still->picture), finish);
    live->showFullScreen();
    live->requestActivate();
}

void FrozenPicturePicker::dismiss()
{
    if (!live) return;
    // The window may be ending the pick from inside its own event handler: it goes once that returns.
    live->hide();
    live->deleteLater();
    live = nullptr;
}

QWindow* FrozenPicturePicker::window() const
{
    return live;
}
