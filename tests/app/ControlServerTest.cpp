#include "app/control/ControlServer.h"

#include "app/client/ControlClient.h"
#include "app/client/ControlSocketPath.h"
#include "support/EventLoop.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <memory>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

// The client blocks, so it runs on another thread while this one serves the socket.
struct ClientResult {
    int status = -1;
    QString out, err;
};

ClientResult runClient(
    const QString& path, const QStringList& command, int timeoutMs = 3000, std::optional<uint32_t> ownerUid = {})
{
    auto future = std::async(std::launch::async, [=] {
        ClientResult r;
        QTextStream out(&r.out), err(&r.err);
        r.status = ControlClient::send(path, command, out, err, timeoutMs, ownerUid);
        out.flush();
        err.flush();
        return r;
    });
    while (future.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready)
        QCoreApplication::processEvents();
    return future.get();
}

sockaddr_un socketAddress(const QString& path)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    const QByteArray native = QFile::encodeName(path);
    std::memcpy(address.sun_path, native.constData(), size_t(native.size()));
    return address;
}

// A client that speaks the socket by hand, to do what `velotape` never does; it reads while the
// main loop runs, as the server lives there.
class RawClient {
public:
    explicit RawClient(const QString& path)
        : fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const sockaddr_un address = socketAddress(path);
        connected = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
    }
    ~RawClient() { ::close(fd); }

    bool connected = false;

    // As much of `bytes` as the socket takes without waiting.
    void write(const QByteArray& bytes)
    {
        [[maybe_unused]] auto n = ::send(fd, bytes.constData(), size_t(bytes.size()), MSG_NOSIGNAL);
    }
    // Everything until the server closes the connection, or what came within `timeoutMs`.
    QByteArray readUntilClosed(int timeoutMs)
    {
        QByteArray got;
        spinUntil(
            [&] {
                char buffer[4096];
                const ssize_t n = ::read(fd, buffer, sizeof buffer);
                if (n > 0) got.append(buffer, n);
                closedByServer = n == 0 || (n < 0 && errno != EAGAIN);
                return closedByServer;
            },
            timeoutMs);
        return got;
    }
    bool closedByServer = false;

private:
    int fd;
};

// Lowers this process's limit of open files to just above what is open, then takes every
// descriptor left, as a busy instance would find itself; all is given back at the end.
class NoFreeDescriptors {
public:
    NoFreeDescriptors()
    {
        ::getrlimit(RLIMIT_NOFILE, &saved);
        int highest = 0;
        for (const QString& name :
            QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System))
            highest = std::max(highest, name.toInt());
        rlimit low = saved;
        low.rlim_cur = rlim_t(highest) + 32;
        ::setrlimit(RLIMIT_NOFILE, &low);
        for (int fd; (fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
            taken.push_back(fd);
        exhausted = errno == EMFILE;
    }
    ~NoFreeDescriptors()
    {
        for (int fd : taken)
            ::close(fd);
        ::setrlimit(RLIMIT_NOFILE, &saved);
    }
    bool exhausted = false;

private:
    rlimit saved {};
    std::vector<int> taken;
};

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

TEST(ControlClient, SaysNotRunningOnlyWhenNothingListens)
{
    QTemporaryDir dir;
    // No socket at all, and the socket file of an instance that is gone: nobody listens.
    const QString stale = dir.filePath(QStringLiteral("stale.sock"));
    {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un address = socketAddress(stale);
        ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ::close(fd);
    }
    for (const QString& path : { dir.filePath(QStringLiteral("none.sock")), stale }) {
        ClientResult r = runClient(path, { QStringLiteral("status") }, 500);
        EXPECT_EQ(r.status, 1);
        EXPECT_TRUE(r.err.contains(QStringLiteral("not running"))) << r.err.toStdString();
    }

    // Something listens but does not answer: once with room in its backlog (the line is sent and
    // nothing comes back), once with the backlog full (the connection is never taken).
    for (const int backlog : { 8, 0 }) {
        const QString path = dir.filePath(QStringLiteral("mute%1.sock").arg(backlog));
        const int listening = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un address = socketAddress(path);
        ASSERT_EQ(::bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(::listen(listening, backlog), 0);
        std::vector<int> waiting;
        if (backlog == 0) {
            for (int i = 0; i < 4; ++i) {
                const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
                ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
                waiting.push_back(fd);
            }
        }
        ClientResult r = runClient(path, { QStringLiteral("status") }, 500);
        EXPECT_EQ(r.status, 1);
        EXPECT_TRUE(r.err.contains(QStringLiteral("no answer from the running instance"))) << r.err.toStdString();
        EXPECT_FALSE(r.err.contains(QStringLiteral("not running"))) << r.err.toStdString();
        for (int fd : waiting)
            ::close(fd);
        ::close(listening);
    }
}

TEST(ControlServer, ClientsThatSayNothingCannotLockTheSocketOut)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("velotape.sock"));
    ControlServer server([](const QStringList&) { return ControlProtocol::Reply::success(QStringLiteral("here")); });
    ASSERT_EQ(server.listen(path), ControlServer::ListenResult::listening);

    // More silent connections than the server keeps open at once.
    std::vector<std::unique_ptr<RawClient>> silent;
    for (int i = 0; i < 20; ++i) {
        silent.push_back(std::make_unique<RawClient>(path));
        ASSERT_TRUE(silent.back()->connected);
    }
    spinFor(100); // all of them taken in
    const ClientResult r = runClient(path, { QStringLiteral("status") }, 3000);
    EXPECT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QStringLiteral("here\n"));
    // And each of them is let go before long.
    for (const auto& client : silent) {
        client->readUntilClosed(3000);
        EXPECT_TRUE(client->closedByServer);
    }
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

TEST(ControlServer, AConnectionThatArrivesWithNoDescriptorLeftIsAnsweredOnceOneIsFree)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("velotape.sock"));
    ControlServer server(
        [](const QStringList&) { return ControlProtocol::Reply::success(QStringLiteral("still here")); });
    ASSERT_EQ(server.listen(path), ControlServer::ListenResult::listening);

    RawClient early(path); // its descriptor is made before they run out
    ASSERT_TRUE(early.connected);
    {
        NoFreeDescriptors none;
        ASSERT_TRUE(none.exhausted);
        spinFor(600); // the server tries to take the connection, and fails
    }
    EXPECT_TRUE(QFileInfo::exists(path)) << "the socket file must stay";
    early.write("status\n");
    EXPECT_EQ(early.readUntilClosed(3000), QByteArray("ok still here\n"));
    EXPECT_EQ(runClient(path, { QStringLiteral("status") }).out, QStringLiteral("still here\n"));
    ControlServer second([](const QStringList&) { return ControlProtocol::Reply::success(QString()); });
    EXPECT_EQ(second.listen(path), ControlServer::ListenResult::alreadyRunning);
}

TEST(ControlServer, ARequestIsBoundedInSizeAndInTime)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("velotape.sock"));
    int handled = 0;
    ControlServer server(
        [&](const QStringList&) {
            ++handled;
            return ControlProtocol::Reply::success(QStringLiteral("fine"));
        },
        ControlServer::Options {
            .maxRequestBytes = 4096, .requestTimeoutMs = 300, .maxConnections = 16, .ownerUid = {} });
    ASSERT_EQ(server.listen(path), ControlServer::ListenResult::listening);

    // A line with no end, longer than any request: refused at once, after one request's worth.
    RawClient flood(path);
    flood.write(QByteArray(64 * 1024, 'x'));
    EXPECT_EQ(flood.readUntilClosed(3000), QByteArray("error request longer than 4096 bytes\n"));
    EXPECT_TRUE(flood.closedByServer);

    // A line that never ends, and a client that says nothing: told so and dropped when time is up.
    RawClient slow(path), silent(path);
    slow.write("stat");
    EXPECT_EQ(slow.readUntilClosed(3000), QByteArray("error no request line within 300 ms\n"));
    EXPECT_TRUE(slow.closedByServer);
    silent.readUntilClosed(1000);
    EXPECT_TRUE(silent.closedByServer);
    EXPECT_EQ(handled, 0);

    // A request of exactly the largest size is still served.
    RawClient largest(path);
    largest.write("status " + QByteArray(4096 - 8, 'a') + '\n');
    EXPECT_EQ(largest.readUntilClosed(3000), QByteArray("ok fine\n"));
    EXPECT_EQ(handled, 1);
}

TEST(ControlServer, BothEndsTalkOnlyToTheirOwnUser)
{
    // No second user's program can run here, so each end is told that another user owns it: the
    // peer check, on the real credentials of the socket, then sees a stranger.
    const uint32_t stranger = ::getuid() + 1;
    QTemporaryDir dir;
    const QString ours = dir.filePath(QStringLiteral("ours.sock"));
    const QString theirs = dir.filePath(QStringLiteral("theirs.sock"));
    QStringList received;
    const auto handler = [&](const QStringList& command) {
        received += command;
        return ControlProtocol::Reply::success(QStringLiteral("recording"));
    };
    ControlServer ourServer(handler);
    ASSERT_EQ(ourServer.listen(ours), ControlServer::ListenResult::listening);
    ControlServer strangersServer(handler,
        ControlServer::Options {
            .maxRequestBytes = 4096, .requestTimeoutMs = 2000, .maxConnections = 16, .ownerUid = stranger });
    ASSERT_EQ(strangersServer.listen(theirs), ControlServer::ListenResult::listening);

    // A client does not give its command to a socket that another user answers.
    ClientResult r = runClient(ours, { QStringLiteral("toggle") }, 3000);
    EXPECT_EQ(r.status, 0);
    r = runClient(ours, { QStringLiteral("toggle") }, 3000, stranger);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains(QStringLiteral("another user (uid %1)").arg(::getuid()))) << r.err.toStdString();

    // A server closes another user's connection unanswered.
    r = runClient(theirs, { QStringLiteral("toggle") }, 1000);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(received, QStringList { QStringLiteral("toggle") }) << "only our own client was heard";

    // And an instance does not start beside one that is not its own user's, nor call it "running".
    ControlServer second(handler,
        ControlServer::Options {
            .maxRequestBytes = 4096, .requestTimeoutMs = 2000, .maxConnections = 16, .ownerUid = stranger });
    QString error;
    EXPECT_EQ(second.listen(ours, &error), ControlServer::ListenResult::failed);
    EXPECT_TRUE(error.contains(QStringLiteral("another user"))) << error.toStdString();
}

TEST(ControlSocketPath, TheSocketLivesOnlyInAPrivateDirectoryOfTheUser)
{
    using ControlSocketPath::resolve;
    const uint32_t me = ::getuid();
    QTemporaryDir tmp; // stands for /tmp
    const QString fallback = tmp.filePath(QStringLiteral("velotape-%1").arg(me));
    const auto mode = [](const QString& path) {
        struct stat info { };
        return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode : 0u;
    };

    // A client makes nothing: no directory means nobody listens.
    EXPECT_EQ(resolve({}, tmp.path(), me, false).path, fallback + QStringLiteral("/velotape.sock"));
    EXPECT_FALSE(QFileInfo::exists(fallback));
    // Without a runtime directory the instance makes <tmp>/velotape-UID, for its owner alone.
    const auto made = resolve({}, tmp.path(), me, true);
    EXPECT_EQ(made.path, fallback + QStringLiteral("/velotape.sock"));
    EXPECT_EQ(mode(fallback), S_IFDIR | 0700u);

    // A private runtime directory is used as it is; one open to others is passed over, with a word.
    QTemporaryDir runtime;
    ASSERT_EQ(mode(runtime.path()) & 077, 0u);
    EXPECT_EQ(resolve(runtime.path(), tmp.path(), me, true).path, runtime.filePath(QStringLiteral("velotape.sock")));
    ::chmod(QFile::encodeName(runtime.path()).constData(), 0755);
    const auto passedOver = resolve(runtime.path(), tmp.path(), me, true);
    EXPECT_EQ(passedOver.path, made.path);
    EXPECT_TRUE(passedOver.note.contains(QStringLiteral("open to other users"))) << passedOver.note.toStdString();

    // The name taken first by someone else's means, by the instance and the client alike.
    const auto refused = [&](uint32_t uid, const QString& why) {
        for (bool create : { true, false }) {
            const auto at = resolve({}, tmp.path(), uid, create);
            EXPECT_TRUE(at.path.isEmpty()) << at.path.toStdString();
            EXPECT_TRUE(at.error.contains(why)) << at.error.toStdString();
        }
    };
    ASSERT_TRUE(QDir(fallback).removeRecursively());
    ASSERT_EQ(::mkdir(QFile::encodeName(fallback).constData(), 0700), 0);
    ::chmod(QFile::encodeName(fallback).constData(), 0777);
    refused(me, QStringLiteral("open to other users"));
    ASSERT_TRUE(QDir(fallback).removeRecursively());
    ASSERT_TRUE(QFile::link(runtime.path(), fallback)); // a link, even to a directory of ours
    refused(me, QStringLiteral("symbolic link"));
    QFile::remove(fallback);
    // Another user's directory: here ours, seen by a user one id further.
    const QString strangers = tmp.filePath(QStringLiteral("velotape-%1").arg(me + 1));
    ASSERT_EQ(::mkdir(QFile::encodeName(strangers).constData(), 0700), 0);
    refused(me + 1, QStringLiteral("belongs to another user (uid %1)").arg(me));
}
