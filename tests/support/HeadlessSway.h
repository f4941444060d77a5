#pragma once

#include <QColor>
#include <QImage>
#include <QProcessEnvironment>
#include <QSize>
#include <QString>
#include <QTemporaryDir>

#include <memory>

class QProcess;

// A private wlroots compositor for the tests: sway on its headless backend with the pixman
// renderer (no GPU, no input devices), one output of the given size filled with one colour, in a
// runtime directory of its own. It has the layer shell and wlr-screencopy, so `grim` takes its
// pictures.
//
// sway refuses to run as root; under root it runs as the user `nobody`, which then owns the runtime
// directory (root reaches it all the same).
class HeadlessSway {
public:
    struct Options {
        QSize size { 640, 360 };
        QColor background { 0x20, 0x40, 0x60 };
        int scale = 1; // the output's scale: `size` is its pixels, the desktop's layout has 1/scale of them
    };

    HeadlessSway() = default;
    ~HeadlessSway();

    // The first program this needs that is not installed, or empty.
    static QString missingProgram();

    // Empty string on success, otherwise what failed (with the compositor's log).
    QString start(const Options& options);
    void stop();

    QString runtimeDir() const;
    // The socket's name, for WAYLAND_DISPLAY.
    QString displayName() const { return socket; }
    // The compositor's process id (0 when it does not run).
    qint64 pid() const;
    // What the output shows now, taken by grim; a null image on failure.
    QImage screenshot() const;

private:
    std::unique_ptr<QTemporaryDir> dir;
    std::unique_ptr<QProcess> sway;
    QString socket;
};
