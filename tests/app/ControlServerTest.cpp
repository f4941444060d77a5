#include "app/ControlServer.h"

#include "app/ControlClient.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>

#include <gtest/gtest.h>

#include <future>

namespace {

// The client blocks, so it runs on another thread while this one serves the socket.
struct ClientResult {
    int status = -1;
    QString out, err;
};

ClientResult runClient(const QString& path, const QStringList& command, int timeoutMs = 3000)
{
    auto future = std::async(std::launch::async, [=] {
        ClientResult r;
        QTextStream out(&r.out), err(&r.err);
        r.status = ControlClient::send(path, command, out, err, timeoutMs);
        out.flush();
        err.flush();
        return r;
    });
    while (future.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready)
        QCoreApplication::processEvents();
    return future.get();
}

} // namespace

TEST(ControlServer, AnswersCommandsWithTheExitStatusesOfTheCommandLine)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("velotape.sock"));
    QStringList received;
    ControlServer server([&](const QStringList& command) {
        received = command;
        if (command.first() == QStringLiteral("toggle"))
            return ControlProtocol::Reply::success(QStringLiteral("recording"));
        return ControlProtocol::Reply::failure(QStringLiteral("unknown command: ") + command.first());
    });
    ASSERT_EQ(server.listen(path), ControlServer::ListenResult::listening);

    // Only the owner may connect.
    const QFileInfo info(path);
    EXPECT_TRUE(info.permissions() & QFile::WriteOwner);
    EXPECT_FALSE(info.permissions() & (QFile::WriteGroup | QFile::WriteOther | QFile::ReadOther));

    ClientResult r = runClient(path, { QStringLiteral("toggle") });
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, QStringLiteral("recording\n"));

    r = runClient(path, { QStringLiteral("frobnicate") });
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, QStringLiteral("unknown command: frobnicate\n"));

    // Arguments with spaces and non-ASCII text arrive as they were sent.
    runClient(path, { QStringLiteral("area"), QStringLiteral("Chart: BTC / 1m ünïcode"), QStringLiteral("10") });
    EXPECT_EQ(received,
        (QStringList { QStringLiteral("area"), QStringLiteral("Chart: BTC / 1m ünïcode"), QStringLiteral("10") }));
}

TEST(ControlServer, NoInstanceGivesStatusOne)
{
    QTemporaryDir dir;
    ClientResult r = runClient(dir.filePath(QStringLiteral("none.sock")), { QStringLiteral("status") }, 500);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains(QStringLiteral("not running"))) << r.err.toStdString();
}

TEST(ControlServer, SecondInstanceIsRefusedAndAStaleSocketIsTakenOver)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("velotape.sock"));
    auto ok = [](const QStringList&) { return ControlProtocol::Reply::success(QStringLiteral("first")); };
    {
        ControlServer first(ok);
        ASSERT_EQ(first.listen(path), ControlServer::ListenResult::listening);
        ControlServer second(ok);
        EXPECT_EQ(second.listen(path), ControlServer::ListenResult::alreadyRunning);
        EXPECT_EQ(runClient(path, { QStringLiteral("status") }).out, QStringLiteral("first\n"));
    }
    // A crashed instance leaves its socket file behind; nobody answers on it.
    QFile stale(path);
    ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
    stale.close();
    ControlServer third([](const QStringList&) { return ControlProtocol::Reply::success(QStringLiteral("third")); });
    EXPECT_EQ(third.listen(path), ControlServer::ListenResult::listening);
    EXPECT_EQ(runClient(path, { QStringLiteral("status") }).out, QStringLiteral("third\n"));
}
