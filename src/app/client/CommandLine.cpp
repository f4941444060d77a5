#include "app/client/CommandLine.h"

#include "core/LocalFileName.h"

namespace CommandLine {

namespace {

const QStringList simpleControlCommands { QStringLiteral("toggle"), QStringLiteral("start"), QStringLiteral("stop"),
    QStringLiteral("status"), QStringLiteral("arm"), QStringLiteral("disarm") };

Invocation invalid(const QString& error)
{
    Invocation out;
    out.kind = Invocation::Kind::invalid;
    out.error = error;
    return out;
}

} // namespace

Invocation parse(const QStringList& arguments)
{
    Invocation out;
    if (arguments.isEmpty()) return out;
    const QString first = arguments.first();
    const QStringList rest = arguments.mid(1);

    if (first == QStringLiteral("--help") || first == QStringLiteral("-h") || first == QStringLiteral("help")) {
        out.kind = Invocation::Kind::help;
        return out;
    }
    if (first == QStringLiteral("--version")) {
        out.kind = Invocation::Kind::version;
        return out;
    }
    if (first == QStringLiteral("journal")) {
        out.kind = Invocation::Kind::journal;
        out.command = rest;
        return out;
    }
    if (first == QStringLiteral("detect")) {
        out.kind = Invocation::Kind::detect;
        out.command = rest;
        return out;
    }
    if (simpleControlCommands.contains(first)) {
        if (!rest.isEmpty()) return invalid(QStringLiteral("'%1' takes no arguments").arg(first));
        out.kind = Invocation::Kind::control;
        out.command = { first };
        return out;
    }
    if (first == QStringLiteral("area")) {
        if (rest == QStringList { QStringLiteral("--pick") }) {
            out.kind = Invocation::Kind::control;
            out.command = arguments;
            return out;
        }
        if (rest.size() != 4) return invalid(QStringLiteral("'area' takes four numbers: X Y W H, or --pick"));
        for (const QString& n : rest) {
            bool ok = false;
            n.toDouble(&ok);
            if (!ok) return invalid(QStringLiteral("'area' takes four numbers: X Y W H, not '%1'").arg(n));
        }
        out.kind = Invocation::Kind::control;
        out.command = arguments;
        return out;
    }
    // The window and the headless mode take the same options.
    const bool headless = first == QStringLiteral("--headless");
    if (headless || first.startsWith(QStringLiteral("--source")) || first.startsWith(QStringLiteral("--backend"))
        || first == QStringLiteral("--background")) {
        out.kind = headless ? Invocation::Kind::headless : Invocation::Kind::window;
        const QStringList options = headless ? rest : arguments;
        for (int i = 0; i < options.size(); ++i) {
            if (!headless && options[i] == QStringLiteral("--background")) {
                out.background = true;
            } else if (options[i] == QStringLiteral("--source") && i + 1 < options.size()) {
                out.source = options[++i];
            } else if (options[i].startsWith(QStringLiteral("--source="))) {
                out.source = options[i].mid(9);
            } else if (options[i] == QStringLiteral("--backend")
                || options[i].startsWith(QStringLiteral("--backend="))) {
                const bool joined = options[i] != QStringLiteral("--backend");
                if (!joined && i + 1 >= options.size())
                    return invalid(QStringLiteral("--backend needs x11 or wayland"));
                out.backend = joined ? options[i].mid(10) : options[++i];
                if (out.backend != QStringLiteral("x11") && out.backend != QStringLiteral("wayland"))
                    return invalid(QStringLiteral("unknown backend '%1': x11 or wayland").arg(out.backend));
            } else {
                return invalid(QStringLiteral("unknown argument%1: '%2'")
                                   .arg(headless ? QStringLiteral(" for --headless") : QString(), options[i]));
            }
        }
        return out;
    }
    return invalid(QStringLiteral("unknown command '%1'").arg(first));
}

QString usage()
{
    return QStringLiteral(
        "Usage:\n"
        "  velotape [--source S]             start Velotape with its window (on S, see below)\n"
        "  velotape --background [--source S]\n"
        "                                    start hidden in the tray (without a tray, as --headless)\n"
        "  velotape --headless [--source S]  run without a window; S is display:ID,\n"
        "                                    window:CLASS@@TITLE or region:DISPLAYID:X,Y,W,H\n"
        "           [--backend x11|wayland]  either mode on this desktop backend instead of the\n"
        "                                    one the session asks for (XDG_SESSION_TYPE)\n"
        "  velotape toggle                   start a clip, or save the running one (the save hotkey)\n"
        "  velotape start | stop             start or save a clip\n"
        "  velotape status                   what the running instance is doing\n"
        "  velotape arm | disarm             arm or disarm the area monitor (the arm hotkey)\n"
        "  velotape area X Y W H             watch this area (global points) and take its reference\n"
        "  velotape area --pick              draw the area to watch on the screen (Esc cancels)\n"
        "  velotape journal [--folder DIR] [--unit U] [--json]\n"
        "                                    the journal's statistics (U: dollars, R, points, ticks)\n"
        "  velotape journal --simulate [--horizon N] [--paths N] [--start X] [--ruin OFFSET]\n"
        "                   [--seed N] [--json]  a Monte Carlo run over the journal's trades\n"
        "  velotape detect [--area X,Y,W,H] [--json] [--write] [--] CLIP...\n"
        "                                    read the P&L off saved clips (area in the clip's pixels;\n"
        "                                    --write tags their sidecars, never over your own tag)\n"
        "  velotape --help | --version\n"
        "Exit status: 0 done, 1 no running instance, 2 bad command. See velotape(1).\n");
}

QStringList arguments(int argc, char** argv)
{
    QStringList out;
    for (int i = 1; i < argc; ++i)
        out << LocalFileName::decode(QByteArray(argv[i]));
    return out;
}

std::optional<int> answerAtOnce(const Invocation& invocation, const char* version, QTextStream& out, QTextStream& err)
{
    switch (invocation.kind) {
    case Invocation::Kind::help:
        out << usage();
        return 0;
    case Invocation::Kind::version:
        out << "velotape " << version << '\n';
        return 0;
    case Invocation::Kind::invalid:
        err << "velotape: " << invocation.error << "\n\n" << usage();
        return 2;
    default:
        return std::nullopt;
    }
}

} // namespace CommandLine
