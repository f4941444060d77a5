// The `velotape` command as a user runs it: the control commands answered by the small launcher
// over the socket, without the program's libraries, and everything else handed to the program.

#include "app/control/ControlServer.h"
#include "support/EventLoop.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

struct Ran {
    int status = -1;
    QString out, err;
};

// Runs the launcher while this thread's event loop keeps serving the socket.
Ran runVelotape(const QStringList& args, const QString& runtime, bool traceLibraries = false)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    env.remove(QStringLiteral("DISPLAY"));
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    if (traceLibraries) env.insert(QStringLiteral("LD_DEBUG"), QStringLiteral("files"));
    p.setProcessEnvironment(env);
    p.start(QStringLiteral(VELOTAPE_BINARY), args);
    EXPECT_TRUE(p.waitForStarted());
    EXPECT_TRUE(spinUntil([&] { return p.state() == QProcess::NotRunning; }, 30000));
    return { p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError()) };
}

QTemporaryDir privateRuntime()
{
    QTemporaryDir dir;
    QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return dir;
}

TEST(Launcher, AnswersControlCommandsByItselfWithTheExitStatusesAndLinesOfTheCommandLine)
{
    QTemporaryDir runtime = privateRuntime();
    // Nobody listens: one line on stderr, exit 1.
    Ran r = runVelotape({ QStringLiteral("toggle") }, runtime.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, QString());
    EXPECT_TRUE(r.err.startsWith(QStringLiteral("velotape is not running"))) << r.err.toStdString();

    QStringList heard;
    ControlServer server([&](const QStringList& command) {
        heard << command.join(u' ');
        if (command.first() == QStringLiteral("toggle"))
            return ControlProtocol::Reply::success(QStringLiteral("recording"));
        return ControlProtocol::Reply::failure(QStringLiteral("no area is set"));
    });
    ASSERT_EQ(server.listen(runtime.filePath(QStringLiteral("velotape.sock"))), ControlServer::ListenResult::listening);
    r = runVelotape({ QStringLiteral("toggle") }, runtime.path());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, QStringLiteral("recording\n"));
    r = runVelotape({ QStringLiteral("arm") }, runtime.path());
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, QStringLiteral("no area is set\n"));
    // A bad command never reaches the instance.
    r = runVelotape({ QStringLiteral("stop"), QStringLiteral("now") }, runtime.path());
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(r.err.startsWith(QStringLiteral("velotape: 'stop' takes no arguments"))) << r.err.toStdString();
    EXPECT_EQ(heard, (QStringList { QStringLiteral("toggle"), QStringLiteral("arm") }));

    // What the dynamic loader opened for a command: Qt's core and network, none of the program's.
    r = runVelotape({ QStringLiteral("toggle") }, runtime.path(), true);
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.err.contains(QStringLiteral("libQt6Network.so"))) << r.err.left(2000).toStdString();
    for (const char* heavy : { "libQt6Gui", "libQt6Widgets", "libavcodec", "libxcb.so", "libpulse", "libtesseract" })
        EXPECT_FALSE(r.err.contains(QLatin1String(heavy))) << heavy;
}

TEST(Launcher, HandsEverythingElseToTheProgram)
{
    QTemporaryDir runtime = privateRuntime();
    // The journal is the program's: an empty folder's statistics, in JSON.
    const Ran r = runVelotape(
        { QStringLiteral("journal"), QStringLiteral("--folder"), runtime.path(), QStringLiteral("--json") },
        runtime.path());
    EXPECT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains(QStringLiteral("\"compassScore\""))) << r.out.toStdString();
}

} // namespace
