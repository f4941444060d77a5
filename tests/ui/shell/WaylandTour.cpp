#include "WaylandTour.h"

#include "TourWindow.h"
#include "app/session/RecorderViewModel.h"
#include "capture/CaptureEngine.h"
#include "recorder/SegmentedRecorder.h"
#include "support/PortalDesktop.h"
#include "support/WestonDesktop.h"
#include "ui/AppDelegate.h"
#include "ui/ContentView.h"
#include "ui/SourcePickerButton.h"
#include "ui/SourcePickerPopover.h"
#include "ui/kit/Appearance.h"
#include "ui/settings/SettingsView.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QMainWindow>
#include <QPainter>
#include <QTemporaryDir>

#include <cstdio>

namespace {

const QSize streamSize(1280, 720);

// Colour bars over a dark ground, a white block and a caption-sized stripe: a picture whose
// colours and edges show at a glance whether the preview is the stream, the right way round.
void paintTestCard(const PortalDesktop& desktop)
{
    const auto fill = [&](int x, int y, int w, int h, const char* colour) {
        desktop.control(QStringLiteral("Fill"), { x, y, w, h, QString::fromLatin1(colour) });
    };
    fill(0, 0, streamSize.width(), streamSize.height(), "#1d2433");
    const char* bars[] = { "#c0c0c0", "#c0c000", "#00c0c0", "#00c000", "#c000c0", "#c00000", "#0000c0" };
    // Edge to edge: the last bar takes what the division leaves over.
    for (int i = 0; i < 7; ++i) {
        const int left = streamSize.width() * i / 7;
        fill(left, 0, streamSize.width() * (i + 1) / 7 - left, streamSize.height() * 2 / 3, bars[i]);
    }
    fill(80, streamSize.height() * 2 / 3 + 40, 360, 140, "#ffffff");
    fill(520, streamSize.height() * 2 / 3 + 90, 680, 40, "#f0a020");
}

void writeSettings(const QString& configHome, const QString& clips)
{
    QDir().mkpath(configHome + QStringLiteral("/Velotape"));
    QDir().mkpath(clips);
    QFile conf(configHome + QStringLiteral("/Velotape/Velotape.conf"));
    if (!conf.open(QIODevice::WriteOnly)) return;
    conf.write(QStringLiteral("[General]\nvt2.bufferSeconds=30\nvt2.playSound=false\nvt2.systemAudio.enabled=false\n"
                              "vt2.savePath=%1\n")
                   .arg(clips)
                   .toUtf8());
}

} // namespace

int waylandTour(int argc, char** argv, const QString& outDir)
{
    if (const QString missing = WestonDesktop::missingProgram(); !missing.isEmpty()) {
        std::fprintf(stderr, "screenshot_tour: %s is not installed: run scripts/deps\n", qPrintable(missing));
        return 1;
    }
    PortalDesktop desktop;
    if (const QString error = desktop.start({ .size = streamSize }); !error.isEmpty()) {
        std::fprintf(stderr, "screenshot_tour: no portal desktop: %s\n", qPrintable(error));
        return 1;
    }
    paintTestCard(desktop);
    WestonDesktop weston;
    if (const QString error = weston.start(desktop.environment(), AppDelegate::windowSize); !error.isEmpty()) {
        std::fprintf(stderr, "screenshot_tour: no compositor: %s\n", qPrintable(error));
        return 1;
    }
    QProcessEnvironment env = weston.clientEnvironment(desktop.environment());
    QTemporaryDir home;
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("TMPDIR"), home.path());
    env.remove(QStringLiteral("VELOTAPE_FAKE_CAMERA"));
    writeSettings(env.value(QStringLiteral("XDG_CONFIG_HOME")), home.filePath(QStringLiteral("clips")));
    // This process becomes the program under test: the session bus, the runtime directory and the
    // display are the private ones from here on.
    qunsetenv("DISPLAY");
    for (const QString& name : env.keys())
        qputenv(qPrintable(name), env.value(name).toUtf8());

    QApplication app(argc, argv);
    const std::unique_ptr<AppDelegate> launched = launchTourWindow(home.filePath(QStringLiteral("control")));
    if (!launched) return 1;
    AppDelegate& delegate = *launched;
    RecorderViewModel* vm = delegate.viewModel();
    QMainWindow* window = delegate.window();
    delegate.contentView()->showScreen(D1Screen::recorder);
    // The shared screen is listed once the desktop answered; then it is captured, as "Capture the
    // screen" would.
    QElapsedTimer waited;
    waited.start();
    while (!vm->engine()->selectedSource() && waited.elapsed() < 20000)
        settle(100);
    vm->startPreview();
    while (vm->recorder()->bufferedSeconds() < 2 && waited.elapsed() < 20000)
        settle(100);
    if (vm->recorder()->bufferedSeconds() < 2)
        std::fprintf(stderr, "screenshot_tour: the portal's stream did not reach the ring on Wayland\n");

    int written = 0;
    const auto save = [&](const QString& stem, Appearance appearance, const QImage& picture) {
        const QString name
            = QStringLiteral("%1-%2-%3x%4.png")
                  .arg(stem, appearance == Appearance::dark ? QStringLiteral("dark") : QStringLiteral("light"))
                  .arg(window->width())
                  .arg(window->height());
        if (picture.save(QDir(outDir).filePath(name))) ++written;
    };
    for (const Appearance appearance : { Appearance::dark, Appearance::light }) {
        QApplication::setPalette(kitPalette(appearance));
        settle(600);
        QString shotError;
        const std::optional<QImage> shot = weston.screenshot(&shotError);
        if (!shot) {
            std::fprintf(stderr, "screenshot_tour: %s\n", qPrintable(shotError));
            return 1;
        }
        save(QStringLiteral("recorder-wayland"), appearance, *shot);
        // A popup on Wayland needs the serial of the click that opened it, and this compositor
        // has no seat: Qt shows the popover as a window of its own, wherever the shell puts it.
        // The picture has it painted where the click would have put it, under its button.
        if (auto* button = delegate.contentView()->findChild<SourcePickerButton*>()) {
            button->setOpen(true);
            settle(800);
            if (SourcePickerPopover* popover = button->popover()) {
                QImage withPicker = shot->convertToFormat(QImage::Format_RGB32);
                QPainter painter(&withPicker);
                painter.drawImage(window->mapFromGlobal(popover->mapToGlobal(QPoint(0, 0))), popover->grab().toImage());
                painter.end();
                save(QStringLiteral("picker-wayland"), appearance, withPicker);
                popover->close();
            }
            settle(200);
        }
        // The settings as this desktop has them: its words for hotkeys and capture, and the
        // overlay frame's row where the compositor has no layer to draw it on.
        delegate.contentView()->showScreen(D1Screen::settings);
        if (auto* view = qobject_cast<SettingsView*>(delegate.contentView()->screenWidget())) {
            for (const SettingsView::SettingsGroup group : { SettingsView::SettingsGroup::recording,
                     SettingsView::SettingsGroup::privacy, SettingsView::SettingsGroup::monitor }) {
                view->setGroup(group);
                settle(500);
                const std::optional<QImage> page = weston.screenshot(&shotError);
                if (!page) {
                    std::fprintf(stderr, "screenshot_tour: %s\n", qPrintable(shotError));
                    return 1;
                }
                save(QStringLiteral("settings-%1-wayland").arg(SettingsView::rawValue(group)), appearance, *page);
            }
        }
        delegate.contentView()->showScreen(D1Screen::recorder);
    }
    std::printf("%d screenshots on Wayland in %s\n", written, qPrintable(outDir));
    return 0;
}
