#include "X11TestClient.h"
#include "journal/ClipFrameReader.h"
#include "journal/ClipJournalStore.h"
#include "support/HeadlessRun.h"
#include "support/TestDesktop.h"

#include <QColor>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSize>
#include <QTemporaryDir>
#include <QThread>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>

namespace {

// The colour the painter gives counter n, and back: 16 levels a channel survive compression.
int counterFromColour(int r, int g)
{
    return ((g / 16) * 16 + r / 16);
}

// The first picture a player shows of `path`, as RGB, sampled near the top-left corner (the
// pointer sits in the middle of the screen, and is drawn in).
std::optional<QColor> firstShownColour(const QString& path, double* durationSeconds, QSize* size)
{
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, path.toUtf8().constData(), nullptr, nullptr) < 0) return std::nullopt;
    std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> formatGuard(
        format, [](AVFormatContext* f) { avformat_close_input(&f); });
    if (avformat_find_stream_info(format, nullptr) < 0) return std::nullopt;
    *durationSeconds = format->duration / double(AV_TIME_BASE);
    const int index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0) return std::nullopt;
    const AVCodecParameters* par = format->streams[index]->codecpar;
    *size = QSize(par->width, par->height);
    const AVCodec* codec = avcodec_find_decoder(par->codec_id);
    std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)> ctx(
        avcodec_alloc_context3(codec), [](AVCodecContext* c) { avcodec_free_context(&c); });
    avcodec_parameters_to_context(ctx.get(), par);
    if (avcodec_open2(ctx.get(), codec, nullptr) < 0) return std::nullopt;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    std::optional<QColor> colour;
    auto take = [&]() {
        while (!colour && avcodec_receive_frame(ctx.get(), frame) == 0) {
            // Frames the edit list hides come out with the discard flag; a player skips them.
            if (frame->flags & AV_FRAME_FLAG_DISCARD) continue;
            SwsContext* sws = sws_getContext(frame->width, frame->height, AVPixelFormat(frame->format), frame->width,
                frame->height, AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr, nullptr);
            std::vector<uint8_t> rgb(size_t(frame->width) * frame->height * 3);
            uint8_t* dst[1] = { rgb.data() };
            int stride[1] = { frame->width * 3 };
            sws_scale(sws, frame->data, frame->linesize, 0, frame->height, dst, stride);
            sws_freeContext(sws);
            const size_t at = (size_t(frame->height / 5) * frame->width + frame->width / 5) * 3;
            colour = QColor(rgb[at], rgb[at + 1], rgb[at + 2]);
        }
    };
    while (!colour && av_read_frame(format, packet) >= 0) {
        if (packet->stream_index == index) avcodec_send_packet(ctx.get(), packet);
        av_packet_unref(packet);
        take();
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    return colour;
}

class HeadlessEndToEnd : public ::testing::Test {
protected:
    TestDesktop desktop;
    QTemporaryDir home;
    QString clips, runtime, counterFile;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    QProcess painter, instance;

    void SetUp() override
    {
        // A small screen keeps the software encoder well ahead of the frames on a busy machine.
        ASSERT_EQ(desktop.start({ .width = 640, .height = 360 }), QString());
        clips = home.filePath(QStringLiteral("clips"));
        runtime = home.filePath(QStringLiteral("runtime"));
        counterFile = home.filePath(QStringLiteral("counter"));
        QDir().mkpath(clips);
        QDir().mkpath(runtime);
        // As a session's runtime directory is: the instance keeps its socket only in a private one.
        QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QDir().mkpath(home.filePath(QStringLiteral("config/Velotape")));
        QFile conf(home.filePath(QStringLiteral("config/Velotape/Velotape.conf")));
        ASSERT_TRUE(conf.open(QIODevice::WriteOnly));
        conf.write(
            QStringLiteral("[General]\nvt2.bufferSeconds=4\nvt2.frameRate=30\nvt2.playSound=false\nvt2.savePath=%1\n")
                .arg(clips)
                .toUtf8());
        conf.close();
        env.insert(QStringLiteral("DISPLAY"), desktop.display());
        env.insert(QStringLiteral("PULSE_SERVER"), desktop.pulseServer());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
        env.insert(QStringLiteral("HOME"), home.path());
        // Segment folders of this test's own, where what a crashed run left can be laid out.
        QDir().mkpath(home.filePath(QStringLiteral("tmp")));
        env.insert(QStringLiteral("TMPDIR"), home.filePath(QStringLiteral("tmp")));
        env.remove(QStringLiteral("QT_QPA_PLATFORM"));
    }

    void TearDown() override
    {
        for (QProcess* p : { &instance, &painter }) {
            if (p->state() == QProcess::NotRunning) continue;
            p->terminate();
            if (!p->waitForFinished(5000)) p->kill();
            p->waitForFinished(2000);
        }
    }

    // The root window shows a counter that goes up every 100 ms, as a colour.
    void startPainter()
    {
        const QString script = QStringLiteral(
            "start=$(date +%s%N); while :; do n=$(( ($(date +%s%N) - start) / 100000000 )); "
            "printf '%d' $n > '%1.tmp' && mv '%1.tmp' '%1'; "
            "xsetroot -solid $(printf '#%02x%02x80' $(( (n % 16) * 16 + 8 )) $(( ((n / 16) % 16) * 16 + 8 ))); "
            "sleep 0.03; done")
                                   .arg(counterFile);
        painter.setProcessEnvironment(env);
        painter.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
        painter.start(QStringLiteral("bash"), { QStringLiteral("-c"), script });
        ASSERT_TRUE(painter.waitForStarted());
    }

    int counterNow() const
    {
        QFile f(counterFile);
        if (!f.open(QIODevice::ReadOnly)) return -1;
        return f.readAll().toInt();
    }

    void startInstance() { ASSERT_TRUE(HeadlessRun::start(instance, QStringLiteral(VELOTAPE_BINARY), env)); }

    // Waits until the ring holds `seconds` of the screen.
    void waitUntilBuffered(double seconds)
    {
        const QString problem = HeadlessRun::waitUntilBuffered(QStringLiteral(VELOTAPE_BINARY), env, seconds);
        ASSERT_EQ(problem, QString()) << instance.readAll().toStdString();
    }

    // What the instance printed so far, waiting up to `ms` for `text` to be among it.
    bool instanceSaid(const QString& text, int ms) { return HeadlessRun::said(instance, instanceOutput, text, ms); }

    QStringList waitForClips(int count) { return HeadlessRun::waitForClips(clips, count); }

    QString instanceOutput;

    QString control(const QStringList& command, int* status)
    {
        return HeadlessRun::control(QStringLiteral(VELOTAPE_BINARY), env, command, status);
    }
};

} // namespace

TEST_F(HeadlessEndToEnd, ToggleTwiceSavesAClipThatBeginsTheBufferBeforeTheFirstPress)
{
    // What a run that crashed left: its segments and a clip it was writing. The start sweeps both.
    const QDir segments(runtime + QStringLiteral("/velotape"));
    const QString crashed = segments.filePath(QStringLiteral("segments-deadbeef"));
    const QString unfinished = QDir(clips).filePath(QStringLiteral(".Clip, Mar 1, 10-00-00.mp4.0123abcd.part"));
    QDir().mkpath(crashed);
    // As the crashed run made it: the user's alone, or the instance would pass it over.
    QFile::setPermissions(segments.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    for (const QString& path : { crashed + QStringLiteral("/seg-00000000.mp4"), unfinished }) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    startPainter();
    ASSERT_NO_FATAL_FAILURE(startInstance());
    ASSERT_NO_FATAL_FAILURE(waitUntilBuffered(4.0));
    EXPECT_FALSE(QFileInfo::exists(crashed));
    EXPECT_FALSE(QFileInfo::exists(unfinished));
    EXPECT_EQ(segments.entryList({ QStringLiteral("segments-*") }, QDir::Dirs).size(), 1); // its own
    int status = -1;
    QString answer;
    // A second instance does not start, and says so.
    QProcess second;
    second.setProcessEnvironment(env);
    second.start(QStringLiteral(VELOTAPE_BINARY), { QStringLiteral("--headless") });
    ASSERT_TRUE(second.waitForFinished(10000));
    EXPECT_EQ(second.exitCode(), 1);
    EXPECT_TRUE(QString::fromUtf8(second.readAllStandardError()).contains(QStringLiteral("already running")));

    // Press once the ring holds well over the buffer (it keeps up to one segment more), so that a
    // clip that kept the whole ring would stand out.
    QElapsedTimer ringFilling;
    ringFilling.start();
    while (counterNow() < 90 && ringFilling.elapsed() < 20000)
        QThread::msleep(100);
    // Each press is a process of its own, which a busy machine may take a second or two to start:
    // the instance hears it somewhere between the call and its answer, so the checks below allow
    // for that window rather than for a fixed time.
    const int counterBeforePress = counterNow();
    QElapsedTimer pressing;
    pressing.start();
    answer = control({ QStringLiteral("toggle") }, &status);
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
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^.+, \\S+ \\d{1,2}, \\d{2}-\\d{2}-\\d{2}\\.mp4$"))
                    .match(saved[0])
                    .hasMatch())
        << saved[0].toStdString();
    // The toast reaches standard output.
    EXPECT_TRUE(instanceSaid(QStringLiteral("Saved: ") + saved[0], 5000)) << instanceOutput.toStdString();

    double duration = 0;
    QSize size;
    const auto colour = firstShownColour(QDir(clips).filePath(saved[0]), &duration, &size);
    ASSERT_TRUE(colour);
    const int firstCounter = counterFromColour(colour->red(), colour->green());
    // The clip opens about the buffer's 4 s (40 counts) before the press. On a busy machine the
    // painter and the capture both lag, and a frame that came late stands for the time before it,
    // so a second either way is allowed; a clip cut at the press, or one that kept the whole
    // ring, is far outside that.
    // Counted forward from the earliest the press can have been heard, modulo 256 as the colours go.
    const int earliest = counterBeforePress - 40 - 10;
    const int sinceEarliest = ((firstCounter - earliest) % 256 + 256) % 256;
    EXPECT_LE(sinceEarliest, counterAfterPress - counterBeforePress + 20)
        << "first " << firstCounter << " (" << colour->red() << ", " << colour->green() << ", " << colour->blue()
        << "), press between " << counterBeforePress << " and " << counterAfterPress;
    // The buffer's 4 s and the time between the two presses as the instance heard them.
    EXPECT_GE(duration, 4.0 + (secondPressCalled - firstPressAnswered) - 1.0);
    EXPECT_LE(duration, 4.0 + secondPressAnswered + 1.0);
    EXPECT_EQ(size, QSize(640, 360)); // the display's own size at the default resolution

    // The journal lists it.
    const QList<ClipEntry> listed = ClipJournalStore::scanFolder(clips);
    ASSERT_EQ(listed.size(), 1);
}

TEST_F(HeadlessEndToEnd, ArmedOverAWindowItRecordsWhileTheWindowLooksDifferent)
{
    X11TestClient client;
    ASSERT_TRUE(client.isConnected());
    const QColor calm(60, 60, 70);
    const xcb_window_t window = client.create({ .rect = QRect(100, 100, 240, 160),
        .wmClass = "Chart",
        .title = QStringLiteral("Order book"),
        .background = calm });
    client.fill(window, QRect(0, 0, 240, 160), calm);
    ASSERT_NO_FATAL_FAILURE(startInstance());
    // A still screen sends one frame and then nothing: streaming is what counts here.
    ASSERT_NO_FATAL_FAILURE(waitUntilBuffered(0.0));

    int status = -1;
    EXPECT_EQ(control({ QStringLiteral("arm") }, &status), QStringLiteral("Pick an area first."));
    EXPECT_EQ(status, 2);
    EXPECT_EQ(control({ QStringLiteral("area"), QStringLiteral("120"), QStringLiteral("120"), QStringLiteral("200"),
                          QStringLiteral("120") },
                  &status),
        QStringLiteral("Watch area captured"));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(control({ QStringLiteral("arm") }, &status), QStringLiteral("Area monitor armed"));
    EXPECT_EQ(status, 0);

    // The window changes: a recording starts by itself.
    QThread::msleep(600);
    client.fill(window, QRect(0, 0, 240, 160), QColor(230, 40, 40));
    ASSERT_TRUE(instanceSaid(QStringLiteral("Area changed — recording…"), 5000)) << instanceOutput.toStdString();
    QThread::msleep(1500);
    EXPECT_TRUE(control({ QStringLiteral("status") }, &status).startsWith(QStringLiteral("recording")));

    // Back to the reference: after three seconds of match the clip is saved.
    QElapsedTimer calmSince;
    client.fill(window, QRect(0, 0, 240, 160), calm);
    calmSince.start();
    ASSERT_TRUE(instanceSaid(QStringLiteral("Area back to default — saving…"), 8000)) << instanceOutput.toStdString();
    EXPECT_GE(calmSince.elapsed(), 2900);
    const QStringList saved = waitForClips(1);
    ASSERT_EQ(saved.size(), 1) << instanceOutput.toStdString();
    EXPECT_TRUE(instanceSaid(QStringLiteral("Saved: ") + saved[0], 5000)) << instanceOutput.toStdString();
    const QList<ClipEntry> listed = ClipJournalStore::scanFolder(clips);
    ASSERT_EQ(listed.size(), 1);

    EXPECT_EQ(control({ QStringLiteral("disarm") }, &status), QStringLiteral("Area monitor disarmed"));
    // A bad command is a bad command, and the instance keeps running.
    EXPECT_NE(control({ QStringLiteral("area"), QStringLiteral("1"), QStringLiteral("2") }, &status), QString());
    EXPECT_EQ(status, 2);
    EXPECT_EQ(control({ QStringLiteral("status") }, &status).left(9), QStringLiteral("buffering"));
}

TEST_F(HeadlessEndToEnd, TheCameraLeftOnInTheSettingsIsBurntIntoAHeadlessClip)
{
    // A streamer's set-up: the camera on, bottom right, a quarter of the height, the test camera.
    QFile conf(home.filePath(QStringLiteral("config/Velotape/Velotape.conf")));
    ASSERT_TRUE(conf.open(QIODevice::Append));
    conf.write("vt2.camera.enabled=true\nvt2.camera.shape=rect\nvt2.camera.posX=0.75\nvt2.camera.posY=0.7\n"
               "vt2.camera.size=0.25\nvt2.camera.frameEnabled=false\n");
    conf.close();
    env.insert(QStringLiteral("VELOTAPE_FAKE_CAMERA"), QStringLiteral("color=c=0xE61414:size=320x240:rate=30"));
    ASSERT_NO_FATAL_FAILURE(startInstance());
    ASSERT_NO_FATAL_FAILURE(waitUntilBuffered(1.0));
    int status = -1;
    ASSERT_EQ(control({ QStringLiteral("toggle") }, &status), QStringLiteral("recording"));
    QThread::msleep(1500);
    control({ QStringLiteral("toggle") }, &status);
    ASSERT_EQ(status, 0);
    const QStringList saved = waitForClips(1);
    ASSERT_EQ(saved.size(), 1) << instanceOutput.toStdString();

    ClipFrameReader reader(QDir(clips).filePath(saved[0]));
    const std::optional<QImage> picture = reader.frameAt(reader.duration() - 0.5, QSize(640, 360), 0.2);
    ASSERT_TRUE(picture);
    // The rectangle's centre is the camera's red; the top left of the screen is not.
    const QColor inside = picture->pixelColor(480, 252);
    const QColor outside = picture->pixelColor(100, 60);
    EXPECT_GT(inside.red(), 180) << inside.name().toStdString();
    EXPECT_LT(inside.green(), 70) << inside.name().toStdString();
    EXPECT_FALSE(outside.red() > 180 && outside.green() < 70) << outside.name().toStdString();
}
