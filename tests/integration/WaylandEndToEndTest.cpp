#include "support/FirstShownPicture.h"
#include "support/HeadlessRun.h"
#include "support/PortalDesktop.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/prctl.h>

// `velotape --headless` on a Wayland session with no X display: the screen comes from the real
// xdg-desktop-portal and PipeWire, fed by our test backend, which paints a counter as a colour.

namespace {

const QSize streamSize(704, 396); // not a size any default would give by chance

class WaylandEndToEnd : public ::testing::Test {
protected:
    PortalDesktop desktop;
    QTemporaryDir home;
    QString clips;
    QProcessEnvironment env;
    QProcess instance;
    QString instanceOutput;

    void SetUp() override
    {
        if (const QString missing = PortalDesktop::missingProgram(); !missing.isEmpty())
            GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
        ASSERT_EQ(desktop.start({ .size = streamSize }), QString());
        env = desktop.environment();
        clips = home.filePath(QStringLiteral("clips"));
        QDir().mkpath(clips);
        QDir().mkpath(home.filePath(QStringLiteral("tmp")));
        env.insert(QStringLiteral("TMPDIR"), home.filePath(QStringLiteral("tmp")));
        const QString config = env.value(QStringLiteral("XDG_CONFIG_HOME")) + QStringLiteral("/Velotape");
        QDir().mkpath(config);
        QFile conf(config + QStringLiteral("/Velotape.conf"));
        ASSERT_TRUE(conf.open(QIODevice::WriteOnly));
        conf.write(
            QStringLiteral("[General]\nvt2.bufferSeconds=4\nvt2.frameRate=30\nvt2.playSound=false\nvt2.savePath=%1\n")
                .arg(clips)
                .toUtf8());
    }

    void TearDown() override { stopInstance(); }

    void stopInstance() { HeadlessRun::stop(instance); }

    void startInstance()
    {
        instanceOutput.clear();
        ASSERT_TRUE(HeadlessRun::start(instance, QStringLiteral(VELOTAPE_BINARY), env));
    }

    QString control(const QStringList& command, int* status)
    {
        return HeadlessRun::control(QStringLiteral(VELOTAPE_BINARY), env, command, status);
    }

    void waitUntilBuffered(double seconds)
    {
        const QString problem = HeadlessRun::waitUntilBuffered(QStringLiteral(VELOTAPE_BINARY), env, seconds);
        ASSERT_EQ(problem, QString()) << instance.readAll().toStdString();
    }

    bool instanceSaid(const QString& text, int ms) { return HeadlessRun::said(instance, instanceOutput, text, ms); }

    QStringList waitForClips(int count) { return HeadlessRun::waitForClips(clips, count); }

    int counterNow() const { return desktop.control(QStringLiteral("Counter")).toInt(); }
    uint chooserShown() const { return desktop.control(QStringLiteral("ChooserShown")).toUInt(); }
};

} // namespace

TEST_F(WaylandEndToEnd, ToggleTwiceSavesThePreRollAtTheStreamsSizeAndTheNextStartIsNotAsked)
{
    desktop.control(QStringLiteral("StartCounter"));
    ASSERT_NO_FATAL_FAILURE(startInstance());
    ASSERT_NO_FATAL_FAILURE(waitUntilBuffered(4.0));
    EXPECT_EQ(chooserShown(), 1u);

    // Pressed once the ring holds well over the buffer, so that a clip that kept the whole ring
    // would stand out.
    QElapsedTimer ringFilling;
    ringFilling.start();
    while (counterNow() < 90 && ringFilling.elapsed() < 20000)
        QThread::msleep(100);
    int status = -1;
    const int counterBeforePress = counterNow();
    QElapsedTimer pressing;
    pressing.start();
    QString answer = control({ QStringLiteral("toggle") }, &status);
    const int counterAfterPress = counterNow();
    const double firstPressAnswered = pressing.elapsed() / 1000.0;
    ASSERT_EQ(status, 0) << answer.toStdString();
    EXPECT_EQ(answer, QStringLiteral("recording"));
    QThread::msleep(3000);
    const double secondPressCalled = pressing.elapsed() / 1000.0;
    answer = control({ QStringLiteral("toggle") }, &status);
    const double secondPressAnswered = pressing.elapsed() / 1000.0;
    ASSERT_EQ(status, 0) << answer.toStdString();

    const QStringList saved = waitForClips(1);
    ASSERT_EQ(saved.size(), 1) << instanceOutput.toStdString();
    EXPECT_TRUE(instanceSaid(QStringLiteral("Saved: ") + saved[0], 5000)) << instanceOutput.toStdString();
    const std::optional<FirstShownPicture> first = FirstShownPicture::read(QDir(clips).filePath(saved[0]));
    ASSERT_TRUE(first);
    EXPECT_EQ(first->size, streamSize);
    // The clip opens about the buffer's 4 s (40 counts) before the press; a second either way is
    // allowed for a busy machine, as on X11. A clip cut at the press, or one that kept the whole
    // ring, is far outside that.
    const int firstCounter = counterFromColour(first->colour);
    const int earliest = counterBeforePress - 40 - 10;
    const int sinceEarliest = ((firstCounter - earliest) % 256 + 256) % 256;
    EXPECT_LE(sinceEarliest, counterAfterPress - counterBeforePress + 20)
        << "first " << firstCounter << ", press between " << counterBeforePress << " and " << counterAfterPress;
    EXPECT_GE(first->durationSeconds, 4.0 + (secondPressCalled - firstPressAnswered) - 1.0);
    EXPECT_LE(first->durationSeconds, 4.0 + secondPressAnswered + 1.0);

    // The next run passes the kept token: the desktop shares again without asking anyone.
    stopInstance();
    ASSERT_NO_FATAL_FAILURE(startInstance());
    ASSERT_NO_FATAL_FAILURE(waitUntilBuffered(0.5));
    EXPECT_EQ(chooserShown(), 1u);
}

TEST_F(WaylandEndToEnd, TheDesktopEndingTheSessionIsToldAndTheRingKeepsWhatItHad)
{
    desktop.control(QStringLiteral("StartCounter"));
    ASSERT_NO_FATAL_FAILURE(startInstance());
    ASSERT_NO_FATAL_FAILURE(waitUntilBuffered(3.0));
    desktop.control(QStringLiteral("CloseSessions"));
    EXPECT_TRUE(instanceSaid(QStringLiteral("Capture stopped: the desktop stopped sharing the screen"), 5000))
        << instanceOutput.toStdString();

    // What was buffered before the end is still there to save.
    int status = -1;
    EXPECT_EQ(control({ QStringLiteral("toggle") }, &status), QStringLiteral("recording"));
    control({ QStringLiteral("toggle") }, &status);
    EXPECT_EQ(status, 0);
    const QStringList saved = waitForClips(1);
    ASSERT_EQ(saved.size(), 1) << instanceOutput.toStdString();
    const std::optional<FirstShownPicture> clip = FirstShownPicture::read(QDir(clips).filePath(saved[0]));
    ASSERT_TRUE(clip);
    EXPECT_GE(clip->durationSeconds, 2.5);
}

TEST_F(WaylandEndToEnd, AShortcutThatTheDesktopHoldsSavesAClip)
{
    desktop.control(QStringLiteral("StartCounter"));
    ASSERT_NO_FATAL_FAILURE(startInstance());
    ASSERT_NO_FATAL_FAILURE(waitUntilBuffered(2.0));
    // The desktop was offered both actions, the save key as the user set it (the default here).
    QStringList bound;
    QElapsedTimer waited;
    waited.start();
    while (bound.size() < 2 && waited.elapsed() < 10000) {
        bound = desktop.control(QStringLiteral("BoundShortcuts")).toStringList();
        QThread::msleep(100);
    }
    EXPECT_EQ(bound, (QStringList { QStringLiteral("save=CTRL+SHIFT+r"), QStringLiteral("arm=") }));

    // The user presses it twice, wherever the focus is.
    ASSERT_TRUE(desktop.control(QStringLiteral("Trigger"), { QStringLiteral("save") }).toBool());
    int status = -1;
    QString answer;
    waited.restart();
    while (!answer.startsWith(QStringLiteral("recording")) && waited.elapsed() < 5000) {
        answer = control({ QStringLiteral("status") }, &status);
        QThread::msleep(100);
    }
    EXPECT_TRUE(answer.startsWith(QStringLiteral("recording"))) << answer.toStdString();
    QThread::msleep(1500);
    ASSERT_TRUE(desktop.control(QStringLiteral("Trigger"), { QStringLiteral("save") }).toBool());
    const QStringList saved = waitForClips(1);
    ASSERT_EQ(saved.size(), 1) << instanceOutput.toStdString();
    EXPECT_TRUE(instanceSaid(QStringLiteral("Saved: ") + saved[0], 5000)) << instanceOutput.toStdString();
}

TEST_F(WaylandEndToEnd, TheAreaMonitorReadsTheSameStreamAndSeesOnlyItsRectangle)
{
    ASSERT_NO_FATAL_FAILURE(startInstance());
    ASSERT_NO_FATAL_FAILURE(waitUntilBuffered(0.0));
    int status = -1;
    EXPECT_EQ(control({ QStringLiteral("area"), QStringLiteral("100"), QStringLiteral("100"), QStringLiteral("200"),
                          QStringLiteral("120") },
                  &status),
        QStringLiteral("Watch area captured"));
    EXPECT_EQ(control({ QStringLiteral("arm") }, &status), QStringLiteral("Area monitor armed"));

    // A change elsewhere on the screen is not the area's.
    desktop.control(QStringLiteral("Fill"), { 400, 250, 150, 100, QStringLiteral("#e02020") });
    EXPECT_FALSE(instanceSaid(QStringLiteral("Area changed"), 1500)) << instanceOutput.toStdString();
    EXPECT_TRUE(control({ QStringLiteral("status") }, &status).startsWith(QStringLiteral("buffering")));

    desktop.control(QStringLiteral("Fill"), { 120, 120, 160, 80, QStringLiteral("#e02020") });
    EXPECT_TRUE(instanceSaid(QStringLiteral("Area changed — recording…"), 5000)) << instanceOutput.toStdString();
    // One session for the stream and the monitor: the desktop asked once.
    EXPECT_EQ(chooserShown(), 1u);
    EXPECT_EQ(desktop.control(QStringLiteral("SessionCount")).toUInt(), 2u); // the screen cast and the shortcuts
}

TEST(WaylandWithoutPortal, TheUserIsToldWhatTheSessionLacks)
{
    QTemporaryDir dir;
    const QString runtime = dir.filePath(QStringLiteral("run"));
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("DISPLAY"));
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    env.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland"));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
        QStringLiteral("unix:path=") + dir.filePath(QStringLiteral("no-bus")));
    env.insert(QStringLiteral("HOME"), dir.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), dir.filePath(QStringLiteral("config")));
    QProcess instance;
    instance.setProcessEnvironment(env);
    instance.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    instance.start(QStringLiteral(VELOTAPE_BINARY), { QStringLiteral("--headless") });
    ASSERT_TRUE(instance.waitForStarted());

    QString answer;
    QElapsedTimer waited;
    waited.start();
    while (!answer.contains(QStringLiteral("Wayland")) && waited.elapsed() < 15000) {
        QProcess status;
        status.setProcessEnvironment(env);
        status.start(QStringLiteral(VELOTAPE_BINARY), { QStringLiteral("status") });
        status.waitForFinished(10000);
        answer = QString::fromUtf8(status.readAllStandardOutput());
        if (!answer.contains(QStringLiteral("Wayland"))) QThread::msleep(200);
    }
    EXPECT_TRUE(
        answer.contains(QStringLiteral("Screen capture on Wayland needs xdg-desktop-portal and PipeWire running")))
        << answer.toStdString();
    EXPECT_FALSE(answer.startsWith(QStringLiteral("buffering")));
    instance.terminate();
    instance.waitForFinished(5000);
}
