#include "journal/ClipJournalStore.h"
#include "support/TestDesktop.h"

#include <QColor>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
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
int counterFromColour(int r, int g) { return ((g / 16) * 16 + r / 16); }

// The first picture a player shows of `path`, as RGB, sampled at the middle.
std::optional<QColor> firstShownColour(const QString& path, double* durationSeconds)
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
            const size_t at = (size_t(frame->height / 2) * frame->width + frame->width / 2) * 3;
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
        ASSERT_EQ(desktop.start(), QString());
        clips = home.filePath(QStringLiteral("clips"));
        runtime = home.filePath(QStringLiteral("runtime"));
        counterFile = home.filePath(QStringLiteral("counter"));
        QDir().mkpath(clips);
        QDir().mkpath(runtime);
        QDir().mkpath(home.filePath(QStringLiteral("config/Velotape")));
        QFile conf(home.filePath(QStringLiteral("config/Velotape/Velotape.conf")));
        ASSERT_TRUE(conf.open(QIODevice::WriteOnly));
        conf.write(QStringLiteral("[General]\nvt2.bufferSeconds=4\nvt2.frameRate=30\nvt2.playSound=false\nvt2.savePath=%1\n")
                       .arg(clips)
                       .toUtf8());
        conf.close();
        env.insert(QStringLiteral("DISPLAY"), desktop.display());
        env.insert(QStringLiteral("PULSE_SERVER"), desktop.pulseServer());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
        env.insert(QStringLiteral("HOME"), home.path());
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

    QString control(const QString& command, int* status)
    {
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(QStringLiteral(VELOTAPE_BINARY), { command });
        p.waitForFinished(10000);
        *status = p.exitCode();
        return QString::fromUtf8(p.readAllStandardOutput() + p.readAllStandardError()).trimmed();
    }
};

} // namespace

TEST_F(HeadlessEndToEnd, ToggleTwiceSavesAClipThatBeginsTheBufferBeforeTheFirstPress)
{
    startPainter();
    instance.setProcessEnvironment(env);
    instance.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    instance.start(QStringLiteral(VELOTAPE_BINARY), { QStringLiteral("--headless") });
    ASSERT_TRUE(instance.waitForStarted());

    // Wait until the ring holds the whole buffer.
    int status = -1;
    QString answer;
    QElapsedTimer waited;
    waited.start();
    const QRegularExpression buffering(QStringLiteral("^buffering (\\d+\\.\\d) s"));
    for (;;) {
        answer = control(QStringLiteral("status"), &status);
        const auto m = buffering.match(answer);
        if (status == 0 && m.hasMatch() && m.captured(1).toDouble() >= 4.0) break;
        ASSERT_LT(waited.elapsed(), 30000) << "never buffered 4 s; last status: " << answer.toStdString()
                                           << "\n" << instance.readAll().toStdString();
        QThread::msleep(250);
    }
    // A second instance does not start, and says so.
    QProcess second;
    second.setProcessEnvironment(env);
    second.start(QStringLiteral(VELOTAPE_BINARY), { QStringLiteral("--headless") });
    ASSERT_TRUE(second.waitForFinished(10000));
    EXPECT_EQ(second.exitCode(), 1);
    EXPECT_TRUE(QString::fromUtf8(second.readAllStandardError()).contains(QStringLiteral("already running")));

    const int counterAtPress = counterNow();
    answer = control(QStringLiteral("toggle"), &status);
    ASSERT_EQ(status, 0) << answer.toStdString();
    EXPECT_EQ(answer, QStringLiteral("recording"));
    QThread::msleep(3000);
    answer = control(QStringLiteral("toggle"), &status);
    ASSERT_EQ(status, 0) << answer.toStdString();

    QStringList saved;
    waited.restart();
    while (saved.isEmpty() && waited.elapsed() < 30000) {
        QThread::msleep(200);
        saved = QDir(clips).entryList({ QStringLiteral("*.mp4") }, QDir::Files);
    }
    ASSERT_EQ(saved.size(), 1) << instance.readAll().toStdString();
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^.+, \\S+ \\d{1,2}, \\d{2}-\\d{2}-\\d{2}\\.mp4$")).match(saved[0]).hasMatch())
        << saved[0].toStdString();
    // The toast reaches standard output.
    waited.restart();
    QByteArray out;
    while (!out.contains("Saved: ") && waited.elapsed() < 5000) {
        instance.waitForReadyRead(200);
        out += instance.readAllStandardOutput();
    }
    EXPECT_TRUE(out.contains(("Saved: " + saved[0]).toUtf8())) << out.toStdString();

    double duration = 0;
    const auto colour = firstShownColour(QDir(clips).filePath(saved[0]), &duration);
    ASSERT_TRUE(colour);
    const int firstCounter = counterFromColour(colour->red(), colour->green());
    // The clip opens about the buffer's 4 s (40 counts) before the press, give or take the
    // painter's and the capture's delays.
    // The colour counts modulo 256.
    const int expected = ((counterAtPress - 40) % 256 + 256) % 256;
    const int distance = std::abs(firstCounter - expected);
    EXPECT_LE(std::min(distance, 256 - distance), 6) << "first " << firstCounter << ", press at " << counterAtPress;
    EXPECT_NEAR(duration, 7.0, 1.5);

    // The journal lists it.
    const QList<ClipEntry> listed = ClipJournalStore::scanFolder(clips);
    ASSERT_EQ(listed.size(), 1);
}
