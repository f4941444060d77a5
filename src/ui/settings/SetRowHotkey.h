#pragma once

#include "ui/settings/SetRow.h"

#include <QAbstractButton>

class HotkeyRecorder;
class V3Button;

// The pill of a hotkey: the recorder's label in a monospaced face ("Ctrl+Shift+R", "Off",
// "Press any key…" with a keyboard symbol before it), in the accent colour while listening.
class HotkeyPill : public QAbstractButton {
    Q_OBJECT
public:
    explicit HotkeyPill(HotkeyRecorder* recorder, QWidget* parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    HotkeyRecorder* recorder;
};

// A row that records a hotkey: the pill starts (and cancels) listening, the small cross beside it
// clears the binding, and a combination that another program holds is reported under the help.
class SetRowHotkey : public SetRow {
    Q_OBJECT
public:
    SetRowHotkey(const QString& label, const QString& help, HotkeyRecorder* recorder, QWidget* parent = nullptr);

    HotkeyRecorder* recorder() const { return hotkey; }
    HotkeyPill* pill() const { return button; }
    V3Button* clearButton() const { return clear; }

private:
    void follow();

    HotkeyRecorder* hotkey;
    HotkeyPill* button;
    V3Button* clear;
};
