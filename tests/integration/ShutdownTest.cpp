#include "support/TestDesktop.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/prctl.h>
#include <sys/stat.h>

// A headless instance on a private desktop, ended in the ways a session ends it: a signal, the X
// server going away. Whatever is being recorded is saved, and nothing is left behind.
namespace {

class Shutdown : public ::testing::Test {
protected:
    TestDesktop desktop;
    QTemporaryDir home;
    QString clips;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    QProcess instance;
    QString output;

    void SetUp() override
    {
        ASSERT_EQ(desktop.start({ .width = 320, .height = 180 }), QString());
        clips = home.filePath(QStringLiteral("clips"));
        const QString runtime = home.filePath(QStringLiteral("runtime"));
        for (const char* dir : { "clips", "runtime", "tmp", "cache", "config/Velotape" })
            QDir().mkpath(home.filePath(QString::fromLatin1(dir)));
        QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QFile conf(home.filePath(QStringLiteral("config/Velotape/Velotape.conf")));
        ASSERT_TRUE(conf.open(QIODevice::WriteOnly));
        conf.write(QStringLiteral("[General]\nvt2.bufferSeconds=3\nvt2.frameRate=15\nvt2.playSound=false\n"
                                  "vt2.savePath=%1\n")
                       .arg(clips)
                       .toUtf8());
        conf.close();
        env.insert(QStringLiteral("DISPLAY"), desktop.display());
        env.insert(QStringLiteral("PULSE_SERVER"), desktop.pulseServer());
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("XDG_CACHE_HOME"), home.filePath(QStringLiteral("cache")));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
        env.insert(QStringLiteral("TMPDIR"), home.filePath(QStringLiteral("tmp")));
        env.remove(QStringLiteral("QT_QPA_PLATFORM"));
    }

    void TearDown() override
    {
        if (instance.state() == QProcess::NotRunning) return;
        instance.kill();
        instance.waitForFinished(2000);
    }

    // `shell` runs before the instance replaces it (exec), to start it with descriptors closed. The
    // window is asked for a source that matches nothing, and so streams the first display.
    void startInstance(const QString& shell = {}, bool window = false)
    {
        output.clear();
        instance.setProcessEnvironment(env);
        instance.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        instance.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
        const QString mode = window ? QStringLiteral("--source display:0") : QStringLiteral("--headless");
        instance.start(QStringLiteral("bash"),
            { QStringLiteral("-c"),
                shell + QStringLiteral(" exec '%1' %2").arg(QStringLiteral(VELOTAPE_BINARY), mode) });
        ASSERT_TRUE(instance.waitForStarted());
    }

    QString control(const QStringList& command, int* status)
    {
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(QStringLiteral(VELOTAPE_BINARY), command);
        p.waitForFinished(10000);
        *status = p.exitCode();
        return QString::fromUtf8(p.readAllStandardOutput() + p.readAllStandardError()).trimmed();
    }

    // Waits until the ring holds a whole buffer, then starts a recording and lets it run a moment.
    void record()
    {
        const QRegularExpression buffering(QStringLiteral("^buffering (\\d+\\.\\d) s"));
        QElapsedTimer waited;
        waited.start();
        for (int status = -1;;) {
            const QString answer = control({ QStringLiteral("status") }, &status);
            const auto m = buffering.match(answer);
            if (status == 0 && m.hasMatch() && m.captured(1).toDouble() >= 3.0) break;
            ASSERT_LT(waited.elapsed(), 30000) << "never buffered; last status: " << answer.toStdString();
            // The desktop is still: the pointer moving makes frames.
            desktop.run(QStringLiteral("xdotool"),
                { QStringLiteral("mousemove"), QString::number(50 + waited.elapsed() / 100 % 200),
                    QStringLiteral("90") });
            QThread::msleep(250);
        }
        int status = -1;
        const QString answer = control({ QStringLiteral("toggle") }, &status);
        ASSERT_EQ(status, 0) << answer.toStdString();
        ASSERT_EQ(answer, QStringLiteral("recording"));
        QThread::msleep(1500);
    }

    bool ended(int ms)
    {
        const bool done = instance.waitForFinished(ms);
        output += QString::fromUtf8(instance.readAllStandardOutput());
        return done;
    }

    // Oldest first.
    QStringList savedClips() const
    {
        return QDir(clips).entryList({ QStringLiteral("*.mp4") }, QDir::Files, QDir::Time | QDir::Reversed);
    }

    // Segment folders and sockets anywhere in this test's home, runtime, cache and temporary folders.
    QStringList leftBehind() const
    {
        QStringList found;
        QDirIterator it(home.path(), QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
            QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            struct stat info { };
            if (::lstat(QFile::encodeName(path).constData(), &info) != 0) continue;
            if (S_ISSOCK(info.st_mode)
                || (S_ISDIR(info.st_mode) && it.fileName().startsWith(QStringLiteral("segments-"))))
                found << path;
        }
        return found;
    }
};

} // namespace

TEST_F(Shutdown, EachQuittingSignalSavesTheRunningRecordingAndLeavesNothingBehind)
{
    // The three signals without a window, and one with it.
    for (const auto& [signal, window] :
        { std::pair(SIGTERM, false), std::pair(SIGINT, false), std::pair(SIGHUP, false), std::pair(SIGTERM, true) }) {
        SCOPED_TRACE(::testing::Message() << "signal " << signal << (window ? " to the window" : ""));
        const int before = int(savedClips().size());
        ASSERT_NO_FATAL_FAILURE(startInstance({}, window));
        ASSERT_NO_FATAL_FAILURE(record());
        ::kill(pid_t(instance.processId()), signal);
        ASSERT_TRUE(ended(30000));
        EXPECT_EQ(instance.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(instance.exitCode(), 0);
        const QStringList saved = savedClips();
        ASSERT_EQ(saved.size(), before + 1) << output.toStdString();
        // Without a window the toast is a line of standard output.
        if (!window) {
            EXPECT_TRUE(output.contains(QStringLiteral("Saved: "))) << output.toStdString();
        }
        EXPECT_GT(QFileInfo(QDir(clips).filePath(saved.last())).size(), 1000);
        EXPECT_EQ(leftBehind(), QStringList());
    }
}

TEST_F(Shutdown, ASecondSignalEndsTheProcessWithoutWaitingForTheSave)
{
    ASSERT_NO_FATAL_FAILURE(startInstance());
    ASSERT_NO_FATAL_FAILURE(record());
    // Two different signals: two of the same kind may merge into one while the first is pending.
    ::kill(pid_t(instance.processId()), SIGTERM);
    ::kill(pid_t(instance.processId()), SIGINT);
    ASSERT_TRUE(ended(5000));
    EXPECT_EQ(instance.exitStatus(), QProcess::CrashExit) << "exit code " << instance.exitCode();
}

TEST_F(Shutdown, TheDisplayGoingAwaySavesTheRunningRecordingAndLeavesNothingBehind)
{
    ASSERT_NO_FATAL_FAILURE(startInstance());
    ASSERT_NO_FATAL_FAILURE(record());
    desktop.stopDisplay();
    ASSERT_TRUE(ended(30000));
    EXPECT_EQ(savedClips().size(), 1) << output.toStdString();
    EXPECT_EQ(leftBehind(), QStringList());
}

TEST_F(Shutdown, StartedWithClosedStandardStreamsItPrintsIntoNothingAndKeepsWorking)
{
    ASSERT_NO_FATAL_FAILURE(startInstance(QStringLiteral("exec 0<&- 1>&-;")));
    ASSERT_NO_FATAL_FAILURE(record());
    int status = -1;
    ASSERT_EQ(control({ QStringLiteral("toggle") }, &status), QStringLiteral("stopped; saving the clip"));
    QElapsedTimer waited;
    waited.start();
    while (savedClips().isEmpty() && waited.elapsed() < 20000)
        QThread::msleep(200);
    ASSERT_EQ(savedClips().size(), 1);
    // The toast went to /dev/null, not into whatever took the place of standard output.
    const QString pid = QString::number(instance.processId());
    for (const char* fd : { "0", "1" })
        EXPECT_EQ(QFileInfo(QStringLiteral("/proc/%1/fd/%2").arg(pid, QLatin1String(fd))).symLinkTarget(),
            QStringLiteral("/dev/null"))
            << "fd " << fd;
    // And it still answers, and still talks to its display.
    QThread::msleep(500);
    EXPECT_EQ(control({ QStringLiteral("status") }, &status).left(9), QStringLiteral("buffering"));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(instance.state(), QProcess::Running);
}
