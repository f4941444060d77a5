#include "app/CommandLine.h"
#include "app/ControlClient.h"
#include "app/ControlProtocol.h"

#include <QApplication>
#include <QCoreApplication>
#include <QTextStream>
#include <QWidget>

#include <cstdio>

namespace {

QStringList argumentsOf(int argc, char** argv)
{
    QStringList out;
    for (int i = 1; i < argc; ++i)
        out << QString::fromLocal8Bit(argv[i]);
    return out;
}

bool hasDisplay()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

int runWindow(int argc, char** argv)
{
    // Without a display Qt would abort with a long plug-in message; say it in one line instead.
    if (!hasDisplay()) {
        std::fprintf(stderr,
            "velotape: no display found (DISPLAY and WAYLAND_DISPLAY are unset); "
            "use 'velotape --headless' to run without a window\n");
        return 1;
    }
    QApplication app(argc, argv);
    QWidget window;
    window.setWindowTitle(QStringLiteral("Velotape"));
    window.resize(960, 640);
    window.show();
    return app.exec();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setOrganizationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELOTAPE_VERSION));

    const Invocation invocation = CommandLine::parse(argumentsOf(argc, argv));
    QTextStream out(stdout);
    QTextStream err(stderr);

    switch (invocation.kind) {
    case Invocation::Kind::help:
        out << CommandLine::usage();
        return 0;
    case Invocation::Kind::version:
        out << "velotape " << VELOTAPE_VERSION << '\n';
        return 0;
    case Invocation::Kind::invalid:
        err << "velotape: " << invocation.error << "\n\n" << CommandLine::usage();
        return 2;
    case Invocation::Kind::control: {
        QCoreApplication app(argc, argv);
        return ControlClient::send(ControlProtocol::defaultSocketPath(), invocation.command, out, err);
    }
    case Invocation::Kind::journal:
        err << "velotape: the journal command is not available in this build\n";
        return 2;
    case Invocation::Kind::headless:
        err << "velotape: --headless is not available in this build\n";
        return 2;
    case Invocation::Kind::window:
        return runWindow(argc, argv);
    }
    return 2;
}
