#pragma once

#include <QImage>
#include <QProcessEnvironment>
#include <QSize>
#include <QString>

#include <memory>
#include <optional>

class QProcess;

// A Wayland compositor for window tests: weston on its headless back end, drawing in memory with
// pixman (no GPU), under its desktop shell without a panel, on a grey ground. A window as large as
// the output is placed at its top left. (kiosk-shell would fill the output with the window, but on
// the headless back end it never shows a surface.) Its socket lies in a runtime directory the
// caller gives (a PortalDesktop's, so the window sees the same private session there), under a
// name of its own.
//
// It is started with --debug, which lets weston-screenshooter read the output: a screenshot is
// what the compositor shows, not what a program believes it drew.
class WestonDesktop {
public:
    WestonDesktop();
    ~WestonDesktop();

    static QString missingProgram();

    // Empty string on success, otherwise what failed. `env` is the environment it runs in (its
    // XDG_RUNTIME_DIR holds the socket).
    QString start(const QProcessEnvironment& env, QSize outputSize);
    void stop();

    // `env` with this compositor as the display and Qt on its Wayland platform.
    QProcessEnvironment clientEnvironment(QProcessEnvironment env) const;
    QString socketName() const { return socket; }

    // What the output shows now, or none if the screenshooter failed (its reason in *error).
    std::optional<QImage> screenshot(QString* error = nullptr) const;

private:
    std::unique_ptr<QProcess> weston;
    QProcessEnvironment runEnv;
    QString socket;
    QString runtimeDir;
};
