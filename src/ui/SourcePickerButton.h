#pragma once

#include "app/session/SessionModels.h"
#include "ui/kit/V3Button.h"

#include <QPointer>

class SourcePickerPopover;

// The recorder screen's source button: the present source's name with its kind's symbol, which
// opens the source picker under it and closes it again. A new picker is made for each opening, so
// the sources are listed afresh each time.
//
// Main thread.
class SourcePickerButton : public V3Button {
    Q_OBJECT
public:
    explicit SourcePickerButton(const SessionModels& m, QWidget* parent = nullptr);

    bool isOpen() const;
    void setOpen(bool open);
    // The open picker, null while closed.
    SourcePickerPopover* popover() const { return isOpen() ? shown.data() : nullptr; }

signals:
    void openChanged(bool open);

private:
    void showLabel();
    // Below the button, kept on the button's screen.
    QPoint popoverPosition() const;

    SessionModels models;
    QPointer<SourcePickerPopover> shown;
};
