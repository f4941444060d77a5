#include "support/PortalDesktop.h"
#include "support/WestonDesktop.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>

// The program's window on Qt's Wayland platform, on a headless weston, capturing through the real
// desktop portal and PipeWire: what the portal's stream shows is what the preview shows, as the
// compositor has it on its output.

namespace {

int pixelsNear(const QImage& image, QColor colour)
{
    const QImage picture = image.convertToFormat(QImage::Format_RGB32);
    int count = 0;
    for (int y = 0; y < picture.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(picture.constScanLine(y));
        for (int x = 0; x < picture.width(); ++x)
            if (std::abs(qRed(line[x]) - colour.red()) <= 16 && std::abs(qGreen(line[x]) - colour.green()) <= 16
                && std::abs(qBlue(line[x]) - colour.blue()) <= 16)
                ++count;
    }
    return count;
}

} // namespace

TEST(WaylandWindow, ThePreviewOnTheCompositorShowsTheStreamsPixelsAsTheyChange)
{
    if (const QString missing = PortalDesktop::missingProgram(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
    if (const QString missing = WestonDesktop::missingProgram(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
    const QSize streamSize(640, 360);
    const QColor first(208, 26, 160), second(16, 160, 160); // colours the window has nowhere else
    PortalDesktop desktop;
    ASSERT_EQ(desktop.start({ .size = streamSize }), QString());
    const auto fill = [&](const QColor& colour) {
        desktop.control(
            QStringLiteral("Fill"), { 0, 0, streamSize.width(), streamSize.height(), colour.name(QColor::HexRgb) });
    };
    fill(first);
    WestonDesktop weston;
    ASSERT_EQ(weston.start(desktop.environment(), QSize(1180, 760)), QString());

    // Shared on an earlier run, so the window streams it at once rather than waiting for a click.
    QProcessEnvironment env = weston.clientEnvironment(desktop.environment());
    QTemporaryDir home;
    const QString config = env.value(QStringLiteral("XDG_CONFIG_HOME")) + QStringLiteral("/Velotape");
    QDir().mkpath(config);
    QFile conf(config + QStringLiteral("/Velotape.conf"));
    ASSERT_TRUE(conf.open(QIODevice::WriteOnly));
    conf.write(QStringLiteral("[General]\nvt2.bufferSeconds=4\nvt2.playSound=false\nvt2.savePath=%1\n"
                              "vt2.savedSourceDescriptor=display:1\n")
                   .arg(home.path())
                   .toUtf8());
    conf.close();
    env.insert(QStringLiteral("TMPDIR"), home.path());

    QProcess window;
    window.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    window.setProcessEnvironment(env);
    window.setProcessChannelMode(QProcess::MergedChannels);
    window.start(QStringLiteral(VELOTAPE_BINARY), {});
    ASSERT_TRUE(window.waitForStarted(5000));

    // The picture fitted into the card is some 600x340 pixels: most of it must be on the output.
    constexpr int shown = 150000;
    const auto waitForColour = [&](const QColor& colour) {
        QElapsedTimer waited;
        waited.start();
        int count = 0;
        while (waited.elapsed() < 20000 && window.state() == QProcess::Running) {
            if (const std::optional<QImage> shot = weston.screenshot()) {
                count = pixelsNear(*shot, colour);
                if (count >= shown) break;
            }
            QThread::msleep(250);
        }
        return count;
    };
    EXPECT_GE(waitForColour(first), shown) << window.readAll().toStdString();
    fill(second);
    EXPECT_GE(waitForColour(second), shown) << window.readAll().toStdString();
    std::optional<QImage> last = weston.screenshot();
    ASSERT_TRUE(last);
    EXPECT_LT(pixelsNear(*last, first), 1000); // the old picture is gone, not beside the new one

    window.terminate();
    if (!window.waitForFinished(5000)) window.kill();
}
