#pragma once

#include <QString>
#include <QStringList>

// What one run of `velotape` was asked to do.
struct Invocation {
    enum class Kind {
        window, // [--background] [--source DESCRIPTOR] [--backend x11|wayland]: the program with its window
        headless, // --headless [--source DESCRIPTOR] [--backend x11|wayland]: the same controller without a window
        control, // toggle | start | stop | status | arm | disarm | area X Y W H: ask the running instance
        journal, // journal ...: statistics of the clip journal on the terminal
        detect, // detect CLIP...: the P&L read off saved clips
        help,
        version,
        invalid,
    };

    Kind kind = Kind::window;
    QString source; // window and headless: the descriptor given with --source
    QString backend; // window and headless: "x11" or "wayland" when given with --backend; empty: the session's
    bool background = false; // window: --background, hidden in the tray (headless without one)
    QStringList command; // control: the command and its arguments; journal and detect: the arguments after the command
    QString error; // invalid: what was wrong
};

namespace CommandLine {

// `arguments` without the program name.
Invocation parse(const QStringList& arguments);

QString usage();

} // namespace CommandLine
