#pragma once

#include "platform/AreaPicker.h"

#include <QRect>

#include <memory>
#include <vector>

class CaptureBackend;
class QWindow;

// The area picker on X11: one window over each display, each showing a dimmed picture of its
// display taken just before, on which the user drags out a rectangle. Modal only by being on top
// and by holding the keyboard (for Esc). A drag, Esc, a right click or a drag too small ends the
// pick on every display at once; the completion runs once, after the windows have been taken
// down.
//
// Main thread.
class AreaPickerOverlay final : public AreaPicker {
public:
    // `screen` lists the displays and takes their pictures.
    explicit AreaPickerOverlay(std::shared_ptr<CaptureBackend> screen);
    ~AreaPickerOverlay() override;

    // Ends a pick already running without telling its caller, then starts one. With no displays
    // nothing is shown and the completion never runs.
    void pick(Completion completion) override;
    // Takes the windows of a pick down without calling its completion.
    void dismiss();

    // The windows of the present pick, one a display; empty when no pick runs.
    std::vector<QWindow*> windows() const;

private:
    class PickerWindow;

    std::shared_ptr<CaptureBackend> screen;
    std::vector<PickerWindow*> live;
};
