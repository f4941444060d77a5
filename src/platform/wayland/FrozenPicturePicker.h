#pragma once

#include "platform/AreaPicker.h"

#include <QImage>
#include <QRect>

#include <functional>
#include <optional>

class QWindow;

// The area picker where no window may lie over the desktop's own (a Wayland desktop without the
// layer shell), and where the desktop shares a window, which lies nowhere on the screen in
// particular: one full-screen window of ours showing, still, the newest picture of the shared
// stream, on which the user drags out the rectangle. The picture is fitted into the window with its
// aspect kept, and the rectangle comes back in the stream's coordinates, which are also what the
// area monitor reads, since it crops the same stream.
//
// Esc, a right click, a drag too small or the desktop closing the window cancels; the completion runs once, after the
// window is gone. With no picture of the screen yet (no stream running) the pick ends at once with none: it never makes
// the desktop ask what to share.
//
// Main thread; needs a QGuiApplication.
class FrozenPicturePicker final : public AreaPicker {
public:
    // A picture of the screen and where it lies in global space.
    struct Still {
        QPoint origin;
        QImage picture;
    };
    // `newestPicture` gives the stream's newest picture, or none before the first; main thread.
    explicit FrozenPicturePicker(std::function<std::optional<Still>()> newestPicture);
    ~FrozenPicturePicker() override;

    // Ends a pick already running without telling its caller, then starts one.
    void pick(Completion completion) override;
    // Takes the window of a pick down without calling its completion.
    void dismiss();

    // The window of the present pick; null when no pick runs.
    QWindow* window() const;

    // Where `picture` (of `pictureSize`) lies when fitted into `bounds`: centred, aspect kept.
    static QRectF fitted(QSize pictureSize, const QRectF& bounds);

private:
    class PickerWindow;

    std::function<std::optional<Still>()> newestPicture;
    PickerWindow* live = nullptr;
};
