#pragma once

#include "core/HotkeyBinding.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class AppSettings;
class KeyGrabCheck;

// The control with which the user records a new key combination for a hotkey, without its view:
// the settings row draws `label` in `labelTone` and the clear button while `showsClearButton`.
//
// A press starts listening: every key press in the application is then taken by the recorder until
// a key with at least one modifier finishes the recording, Escape cancels it, or the button is
// pressed again. Modifiers alone, or a key without any, keep it listening. Main thread only.
class HotkeyRecorder : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString label READ label NOTIFY changed)
    Q_PROPERTY(bool listening READ listening NOTIFY changed)
    Q_PROPERTY(bool showsClearButton READ showsClearButton NOTIFY changed)
    Q_PROPERTY(LabelTone labelTone READ labelTone NOTIFY changed)
    Q_PROPERTY(QString conflict READ conflict NOTIFY changed)

public:
    // The label's colour: the accent colour while listening, the primary foreground for a binding,
    // the faint foreground for "Off".
    enum class LabelTone { accent, primary, faint };
    Q_ENUM(LabelTone)

    using Read = std::function<HotkeyBinding()>;
    using Write = std::function<void(const HotkeyBinding&)>;

    // The binding lives elsewhere (a setting): `read` gives it, `write` replaces it. Call
    // bindingChanged() when it changes by other ways.
    HotkeyRecorder(Read read, Write write, QObject* parent = nullptr);
    ~HotkeyRecorder() override;

    // Recorders of the two settings, kept up to date with them.
    static HotkeyRecorder* forSaveHotkey(AppSettings* settings, QObject* parent = nullptr);
    static HotkeyRecorder* forArmHotkey(AppSettings* settings, QObject* parent = nullptr);

    // "Press any key…" while listening, "Off" without a shown binding, else the combination as
    // the platform writes shortcuts ("Ctrl+Shift+R").
    QString label() const;
    bool listening() const { return isListening; }
    bool showsClearButton() const;
    LabelTone labelTone() const;

    // The text of a binding: the combination, or "Off" when disabled or without a key character.
    static QString bindingText(const HotkeyBinding& binding);

    // Asks `check` whether the binding on show is taken by another program, now and whenever the
    // binding changes; null stops asking.
    void setGrabCheck(std::shared_ptr<KeyGrabCheck> check);
    // "Ctrl+Shift+R is taken by another program" while it is; empty otherwise.
    QString conflict() const { return conflictText; }

    // The button: cancels while listening, starts listening otherwise.
    void press();
    // Stops listening; the binding stays as it was.
    void cancel();
    // The clear button: the empty binding (disabled, key code 0, no character, no modifiers).
    void clear();
    // The binding changed elsewhere.
    void bindingChanged();

signals:
    void changed();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void checkForConflict();

    Read read;
    Write write;
    bool isListening = false;
    std::shared_ptr<KeyGrabCheck> grabCheck;
    QString conflictText;
};
