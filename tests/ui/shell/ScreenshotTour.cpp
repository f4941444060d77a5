// The screenshot tour: the real window on a private Xvfb, with fixed sample settings, and a PNG of
// every screen in dark and in light at the window's size and at its minimum, named
// SCREEN-APPEARANCE-WxH.png. Run by scripts/screenshots; a test runs it too, so it keeps working.
//
//     screenshot_tour OUTDIR

#include "app/AppSettings.h"
#include "app/AreaCommands.h"
#include "app/RecorderViewModel.h"
#include "monitor/AreaMonitor.h"
#include "recorder/SegmentedRecorder.h"
#include "support/TestDesktop.h"
#include "ui/AppDelegate.h"
#include "ui/ContentView.h"
#include "ui/ToastView.h"
#include "ui/kit/Appearance.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QMainWindow>
#include <QTemporaryDir>

#include <cstdio>

namespace {

const char* screenName(D1Screen screen)
{
    switch (screen) {
    case D1Screen::recorder:
        return "recorder";
    case D1Screen::clips:
        return "clips";
    case D1Screen::journal:
        return "journal";
    case D1Screen::settings:
        return "settings";
    case D1Screen::about:
        return "about";
    }
    return "screen";
}

void settle(int milliseconds)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < milliseconds)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

// The same settings every run: a private save folder and no sound, nothing of the user's.
void writeSampleSettings(const QDir& home)
{
    home.mkpath(QStringLiteral("config/Velotape"));
    home.mkpath(QStringLiteral("clips"));
    QFile conf(home.filePath(QStringLiteral("config/Velotape/Velotape.conf")));
    if (!conf.open(QIODevice::WriteOnly)) return;
    conf.write(QStringLiteral("[General]\nvt2.bufferSeconds=30\nvt2.playSound=false\nvt2.systemAudio.enabled=false\n"
                              "vt2.savePath=%1\n")
                   .arg(home.filePath(QStringLiteral("clips")))
                   .toUtf8());
}

// The recorder screen in its states, in both appearances at the window's size, named
// recorder-STATE-APPEARANCE-WxH.png (the empty state is the plain recorder-… shot): the ring
// buffering the display, a recording running, the area monitor armed over the root's corner.
int recorderStates(AppDelegate& delegate, const TestDesktop& desktop, const QString& outDir)
{
    RecorderViewModel* vm = delegate.viewModel();
    QMainWindow* window = delegate.window();
    window->resize(AppDelegate::windowSize);
    delegate.contentView()->showScreen(D1Screen::recorder);
    desktop.run(QStringLiteral("xsetroot"), { QStringLiteral("-solid"), QStringLiteral("#2f5d8a") });
    vm->startPreview();
    QElapsedTimer waited;
    waited.start();
    while (vm->recorder()->bufferedSeconds() < 2 && waited.elapsed() < 10000)
        settle(100);
    int written = 0;
    auto shoot = [&](const char* state, Appearance appearance) {
        QApplication::setPalette(kitPalette(appearance));
        settle(300);
        const QString name = QStringLiteral("recorder-%1-%2-%3x%4.png")
                                 .arg(QLatin1String(state),
                                     appearance == Appearance::dark ? QStringLiteral("dark") : QStringLiteral("light"))
                                 .arg(window->width())
                                 .arg(window->height());
        if (window->grab().save(QDir(outDir).filePath(name))) ++written;
    };
    for (const Appearance appearance : { Appearance::dark, Appearance::light })
        shoot("buffering", appearance);
    vm->startRecording();
    settle(1500);
    for (const Appearance appearance : { Appearance::dark, Appearance::light })
        shoot("recording", appearance);
    vm->stopRecording();
    // The save's toast is not part of these pictures.
    while (!vm->lastSavedURL() && waited.elapsed() < 20000)
        settle(100);
    settle(100);
    delegate.contentView()->toast()->setText(std::nullopt);
    // The root's bottom right corner, beside the window and clear of the badges.
    vm->areaCommands()->setPickedAreaRect(QRectF(1300, 720, 90, 160));
    vm->areaMonitor()->arm();
    settle(600);
    for (const Appearance appearance : { Appearance::dark, Appearance::light })
        shoot("armed", appearance);
    vm->areaMonitor()->disarm();
    vm->areaMonitor()->setRect(std::nullopt);
    return written;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: screenshot_tour OUTDIR\n");
        return 2;
    }
    const QString outDir = QString::fromLocal8Bit(argv[1]);
    if (!QDir().mkpath(outDir)) {
        std::fprintf(stderr, "screenshot_tour: cannot make %s\n", argv[1]);
        return 1;
    }
    QTemporaryDir home;
    writeSampleSettings(QDir(home.path()));
    qputenv("XDG_CONFIG_HOME", home.filePath(QStringLiteral("config")).toUtf8());
    qputenv("HOME", home.path().toUtf8());
    qputenv("TMPDIR", home.path().toUtf8());
    TestDesktop desktop;
    if (const QString error = desktop.start({ .width = 1400, .height = 900, .audio = false }); !error.isEmpty()) {
        std::fprintf(stderr, "screenshot_tour: no desktop: %s\n", qPrintable(error));
        return 1;
    }
    qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Velotape"));
    QCoreApplication::setOrganizationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELOTAPE_VERSION));

    AppDelegate delegate(AppSession::Options {
        .headless = false, .source = {}, .socketPath = home.filePath(QStringLiteral("control")) });
    QString error;
    if (!delegate.applicationDidFinishLaunching(&error)) {
        std::fprintf(stderr, "screenshot_tour: %s\n", qPrintable(error));
        return 1;
    }
    QMainWindow* window = delegate.window();
    settle(500);

    int written = 0;
    for (const QSize size : { AppDelegate::windowSize, AppDelegate::minimumWindowSize }) {
        window->resize(size);
        for (const Appearance appearance : { Appearance::dark, Appearance::light }) {
            QApplication::setPalette(kitPalette(appearance));
            for (const D1Screen screen : allScreens) {
                delegate.contentView()->showScreen(screen);
                settle(150);
                const QString name
                    = QStringLiteral("%1-%2-%3x%4.png")
                          .arg(QLatin1String(screenName(screen)),
                              appearance == Appearance::dark ? QStringLiteral("dark") : QStringLiteral("light"))
                          .arg(window->width())
                          .arg(window->height());
                if (!window->grab().save(QDir(outDir).filePath(name))) {
                    std::fprintf(stderr, "screenshot_tour: cannot write %s\n", qPrintable(name));
                    return 1;
                }
                ++written;
            }
            // The toast over the recorder, as it looks after a save.
            delegate.contentView()->showScreen(D1Screen::recorder);
            delegate.viewModel()->showToast(QStringLiteral("Saved: Display 1, Nov 23, 09-41-07.mp4"));
            settle(400);
            const QString name
                = QStringLiteral("toast-%1-%2x%3.png")
                      .arg(appearance == Appearance::dark ? QStringLiteral("dark") : QStringLiteral("light"))
                      .arg(window->width())
                      .arg(window->height());
            window->grab().save(QDir(outDir).filePath(name));
            ++written;
            // Gone before the next pictures, without waiting out its time.
            delegate.contentView()->toast()->setText(std::nullopt);
            settle(300);
        }
    }
    written += recorderStates(delegate, desktop, outDir);
    std::printf("%d screenshots in %s\n", written, qPrintable(outDir));
    return 0;
}
