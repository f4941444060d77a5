// `velotape`, the one command users run. The control commands (toggle, start, stop, status, arm,
// disarm, area) and --help/--version are answered here, with Qt Core and Qt Network alone: a key
// bound to `velotape toggle` does not wait for the GUI's libraries to load. Everything else
// replaces this process with the program itself (same process id, same arguments), which lies in
// the library-executables folder when installed and beside this one in a build tree.

#include "app/client/CommandLine.h"
#include "app/client/ControlClient.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QTextStream>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

std::string ownDirectory()
{
    char path[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0) return {};
    const std::string self(path, size_t(n));
    return self.substr(0, self.find_last_of('/'));
}

// Never returns unless the program cannot be started.
int runProgram(char** argv)
{
    const std::string dir = ownDirectory();
    const std::string self = dir + "/velotape";
    // The program writes this launcher, not itself, into the autostart entry.
    ::setenv("VELOTAPE_LAUNCHER", self.c_str(), 1);
    std::string tried;
    for (const char* relative : { VELOTAPE_PROGRAM_FROM_BINDIR, "velotape-app" }) {
        const std::string program = dir + '/' + relative;
        ::execv(program.c_str(), argv);
        tried += (tried.empty() ? "" : ", ") + program + " (" + std::strerror(errno) + ')';
    }
    std::fprintf(stderr, "velotape: cannot start the program: %s\n", tried.c_str());
    return 1;
}

bool answeredHere(int argc, char** argv)
{
    if (argc < 2) return false;
    // Decided on the first word alone, before anything else is set up.
    static const char* const here[]
        = { "toggle", "start", "stop", "status", "arm", "disarm", "area", "--help", "-h", "help", "--version" };
    for (const char* word : here)
        if (std::strcmp(argv[1], word) == 0) return true;
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    if (!answeredHere(argc, argv)) return runProgram(argv);

    QCoreApplication app(argc, argv);
    const Invocation invocation = CommandLine::parse(CommandLine::arguments(argc, argv));
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (const std::optional<int> status = CommandLine::answerAtOnce(invocation, VELOTAPE_VERSION, out, err))
        return *status;
    if (invocation.kind == Invocation::Kind::control)
        return ControlClient::sendToOwnInstance(invocation.command, out, err);
    return runProgram(argv);
}
