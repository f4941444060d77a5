#pragma once

#include <QString>
#include <QStringList>
#include <QTextStream>

#include <optional>

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
// The arguments of `argv` after the program's name (a clip's name need not be UTF-8).
QStringList arguments(int argc, char** argv);

QString usage();

// What both programs answer alike, at once: help, the version and a command line that makes no
// sense, with the exit status; none for everything else.
std::optional<int> answerAtOnce(const Invocation& invocation, const char* version, QTextStream& out, QTextStream& err);

} // namespace CommandLine
