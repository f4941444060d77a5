// The screenshot tour: the real window on a private Xvfb, with fixed sample settings, and a PNG of
// every screen in dark and in light at the window's size and at its minimum, named
// SCREEN-APPEARANCE-WxH.png; then the recorder on Wayland (WaylandTour.h), in a second process.
// Run by scripts/screenshots; a test runs it too, so it keeps working.
//
//     screenshot_tour OUTDIR
//     screenshot_tour --wayland OUTDIR    (the Wayland pictures alone)

#include "SampleClip.h"
#include "TourWindow.h"
#include "WaylandTour.h"
#include "app/AppSettings.h"
#include "app/session/AreaCommands.h"
#include "app/session/RecorderViewModel.h"
#include "app/session/SessionStatus.h"
#include "capture/CaptureEngine.h"
#include "journal/ClipMetaStore.h"
#include "monitor/AreaMonitor.h"
#include "recorder/SegmentedRecorder.h"
#include "support/TestDesktop.h"
#include "ui/AppDelegate.h"
#include "ui/ContentView.h"
#include "ui/D1Sidebar.h"
#include "ui/RecorderHero.h"
#include "ui/SourcePickerButton.h"
#include "ui/SourcePickerPopover.h"
#include "ui/ToastView.h"
#include "ui/clips/ClipsScreen.h"
#include "ui/journal/JournalScreen.h"
#include "ui/kit/Appearance.h"
#include "ui/recorder/CameraBubble.h"
#include "ui/recorder/HeroPreviewCard.h"
#include "ui/settings/SettingsView.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QMainWindow>
#include <QPainter>
#include <QProcess>
#include <QScreen>
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
    while (!vm->status()->lastSavedURL() && waited.elapsed() < 20000)
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

// The camera bubble on the streaming preview, in dark at the window's size: as a circle and as the
// wide rectangle, named recorder-camera-SHAPE-dark-WxH.png; each of the twelve frame styles around
// a rounded bubble, cut out of the window, named camera-frame-STYLE.png; and the settings' camera
// rows with the style's preview, settings-camera-rows-dark-WxH.png.
int cameraShots(AppDelegate& delegate, const QString& outDir)
{
    RecorderViewModel* vm = delegate.viewModel();
    AppSettings* settings = vm->settings();
    QMainWindow* window = delegate.window();
    window->resize(AppDelegate::windowSize);
    QApplication::setPalette(kitPalette(Appearance::dark));
    delegate.contentView()->showScreen(D1Screen::recorder);
    if (!vm->engine()->isStreaming()) vm->startPreview();
    settings->setCameraEnabled(true);
    settings->setCameraSize(0.24);
    settings->setCameraPositionX(0.78);
    settings->setCameraPositionY(0.7);
    settings->setCameraFrameEnabled(true);
    settings->setCameraFrameStyle(CameraFrameStyle::glass);
    // The camera's first picture, or a while without one.
    auto* hero = qobject_cast<RecorderHero*>(delegate.contentView()->screenWidget());
    for (int waited = 0; waited < 5000; waited += 100) {
        if (hero && hero->previewCard()->cameraBubble()->state() == CameraBubble::State::picture) break;
        settle(100);
    }
    settle(300);
    int written = 0;
    const auto size = [&] { return QStringLiteral("%1x%2").arg(window->width()).arg(window->height()); };
    for (const auto& [shape, name] :
        { std::pair { CameraShape::circle, "circle" }, std::pair { CameraShape::rect, "rect" } }) {
        settings->setCameraShape(shape);
        settle(500);
        const QString file = QStringLiteral("recorder-camera-%1-dark-%2.png").arg(QLatin1String(name), size());
        if (window->grab().save(QDir(outDir).filePath(file))) ++written;
    }
    // The styles on a larger bubble in the middle, where they can be made out.
    settings->setCameraShape(CameraShape::roundedRect);
    settings->setCameraSize(0.4);
    settings->setCameraPositionX(0.5);
    settings->setCameraPositionY(0.5);
    settle(300);
    CameraBubble* bubble = hero ? hero->previewCard()->cameraBubble() : nullptr;
    if (bubble && bubble->isVisible()) {
        for (const auto& style : EnumTable<CameraFrameStyle>::cases) {
            settings->setCameraFrameStyle(style.value);
            settle(500);
            const QRectF around = bubble->bubbleRect().adjusted(-40, -40, 40, 40);
            const QPoint at = bubble->parentWidget()->mapTo(window, around.topLeft().toPoint());
            const QString file = QStringLiteral("camera-frame-%1.png").arg(QLatin1String(style.raw));
            if (window->grab(QRect(at, around.size().toSize())).save(QDir(outDir).filePath(file))) ++written;
        }
    }
    settings->setCameraFrameStyle(CameraFrameStyle::wave);
    delegate.contentView()->showScreen(D1Screen::settings);
    if (auto* view = qobject_cast<SettingsView*>(delegate.contentView()->screenWidget())) {
        view->setGroup(SettingsView::SettingsGroup::camera);
        settle(600);
        if (window->grab().save(QDir(outDir).filePath(QStringLiteral("settings-camera-rows-dark-%1.png").arg(size()))))
            ++written;
    }
    delegate.contentView()->showScreen(D1Screen::recorder);
    settings->setCameraEnabled(false);
    settle(200);
    return written;
}

// What the overlays put on the whole screen, over the window: the area picker in the middle of a
// drag (driven through XTest), and the armed frame in each of its eight styles, named
// area-picker-dragging.png and armed-frame-STYLE.png.
int overlayShots(AppDelegate& delegate, const TestDesktop& desktop, const QString& outDir)
{
    RecorderViewModel* vm = delegate.viewModel();
    QMainWindow* window = delegate.window();
    window->resize(AppDelegate::windowSize);
    QApplication::setPalette(kitPalette(Appearance::dark));
    delegate.contentView()->showScreen(D1Screen::recorder);
    settle(300);
    QScreen* screen = QGuiApplication::primaryScreen();
    int written = 0;

    vm->areaCommands()->pickWatchArea();
    settle(600);
    const auto xdotool = [&](const QStringList& args) { desktop.run(QStringLiteral("xdotool"), args); };
    xdotool({ QStringLiteral("mousemove"), QStringLiteral("380"), QStringLiteral("260"), QStringLiteral("mousedown"),
        QStringLiteral("1"), QStringLiteral("mousemove"), QStringLiteral("600"), QStringLiteral("400"),
        QStringLiteral("mousemove"), QStringLiteral("820"), QStringLiteral("560") });
    settle(500);
    if (screen->grabWindow(0).save(QDir(outDir).filePath(QStringLiteral("area-picker-dragging.png")))) ++written;
    xdotool({ QStringLiteral("key"), QStringLiteral("Escape"), QStringLiteral("mouseup"), QStringLiteral("1") });
    settle(500);

    // Over the recorder's card, which has something to look at.
    const QRectF area(330, 180, 560, 300);
    vm->areaCommands()->setPickedAreaRect(area);
    vm->areaMonitor()->arm();
    for (const auto& style : EnumTable<AreaOverlayStyle>::cases) {
        vm->settings()->setAreaOverlayStyle(style.value);
        settle(900);
        const QRect shot = area.toAlignedRect().adjusted(-60, -70, 60, 60);
        const QString name = QStringLiteral("armed-frame-%1.png").arg(QLatin1String(style.raw));
        if (screen->grabWindow(0, shot.x(), shot.y(), shot.width(), shot.height()).save(QDir(outDir).filePath(name)))
            ++written;
    }
    vm->areaMonitor()->disarm();
    vm->areaMonitor()->setRect(std::nullopt);
    settle(300);
    return written;
}

// The source picker open over the recorder, under its button (or where the button stands in the
// header, while the screen has none), with its thumbnails arrived. The popover is a window of its
// own and may reach past the main window: the picture holds both, on the desktop's grey.
QImage pickerShot(AppDelegate& delegate)
{
    QMainWindow* window = delegate.window();
    delegate.contentView()->showScreen(D1Screen::recorder);
    settle(150);
    SourcePickerPopover* popover = nullptr;
    std::unique_ptr<SourcePickerPopover> standIn;
    if (auto* button = delegate.contentView()->findChild<SourcePickerButton*>()) {
        button->setOpen(true);
        popover = button->popover();
    } else {
        standIn = std::make_unique<SourcePickerPopover>(delegate.viewModel()->models(), std::function<void()> {});
        standIn->setWindowFlags(Qt::Popup);
        standIn->move(window->mapToGlobal(QPoint(D1Sidebar::fixedWidth + 36, 110)));
        standIn->show();
        popover = standIn.get();
    }
    settle(800);
    const QImage inside = window->grab().toImage();
    const QImage over = popover->grab().toImage();
    const QPoint at = window->mapFromGlobal(popover->mapToGlobal(QPoint(0, 0)));
    const QRect both = QRect(QPoint(0, 0), window->size()).united(QRect(at, popover->size()));
    QImage picture(both.size() * inside.devicePixelRatio(), QImage::Format_RGB32);
    picture.setDevicePixelRatio(inside.devicePixelRatio());
    picture.fill(QColor(96, 98, 104));
    QPainter painter(&picture);
    painter.drawImage(-both.topLeft(), inside);
    painter.drawImage(at - both.topLeft(), over);
    painter.end();
    popover->close();
    settle(150);
    return picture;
}

// Sample trades for the journal's pictures: a few dozen clips over this month and the last, tagged
// in dollars with a fixed sequence of wins and losses, so every run shows the same journal. The
// last week's are real clips, which the clips screen shows with their pictures.
void writeSampleTrades(const QDir& clips)
{
    const QDate today = QDate::currentDate();
    const QDate start = today.addDays(-40);
    uint32_t state = 12345;
    auto next = [&state] {
        state = state * 1103515245U + 12345U;
        return (state >> 8) % 1000;
    };
    static const char* const tickers[] = { "AAPL", "NVDA", "ES", "TSLA", "MSFT" };
    for (QDate day = start; day <= today; day = day.addDays(1)) {
        if (day.dayOfWeek() > 5) continue;
        const int count = int(next() % 3);
        for (int i = 0; i < count; ++i) {
            const QString name = QStringLiteral("%1_%2_%3-%4.mp4")
                                     .arg(QLatin1String(tickers[next() % 5]), day.toString(Qt::ISODate))
                                     .arg(9 + i * 2, 2, 10, QLatin1Char('0'))
                                     .arg(int(next() % 60), 2, 10, QLatin1Char('0'));
            if (day.daysTo(today) < 7) {
                if (!writeSampleClip(clips.filePath(name), 2.0 + count + i, int(state % 1000))) continue;
            } else {
                QFile clip(clips.filePath(name));
                if (!clip.open(QIODevice::WriteOnly)) continue;
                clip.write("sample");
            }
            ClipMeta meta;
            const bool win = next() < 560;
            meta.outcome = win ? TradeOutcome::win : TradeOutcome::loss;
            meta.pnl = win ? 40 + double(next() % 400) : 30 + double(next() % 250);
            ClipMetaStore::save(meta, QUrl::fromLocalFile(clips.filePath(name)));
        }
    }
}

// The clips screen in its states, in both appearances at the window's size, named
// clips-STATE-APPEARANCE-WxH.png: the pointer over the first card, its name being edited, its
// journal panel open, and the empty state of a folder without clips.
int clipsStates(AppDelegate& delegate, const QString& outDir)
{
    QMainWindow* window = delegate.window();
    window->resize(AppDelegate::windowSize);
    delegate.contentView()->showScreen(D1Screen::clips);
    auto* screen = qobject_cast<ClipsScreen*>(delegate.contentView()->screenWidget());
    if (!screen || screen->model()->clips().isEmpty()) return 0;
    ClipsScreenModel* clips = screen->model();
    const QUrl first = clips->clips().first().id;
    // The thumbnails of the cards in view.
    settle(2500);
    int written = 0;
    auto shoot = [&](const char* state) {
        for (const Appearance appearance : { Appearance::dark, Appearance::light }) {
            QApplication::setPalette(kitPalette(appearance));
            settle(300);
            const QString name
                = QStringLiteral("clips-%1-%2-%3x%4.png")
                      .arg(QLatin1String(state),
                          appearance == Appearance::dark ? QStringLiteral("dark") : QStringLiteral("light"))
                      .arg(window->width())
                      .arg(window->height());
            if (window->grab().save(QDir(outDir).filePath(name))) ++written;
        }
    };
    clips->setHovered(first, true);
    shoot("hover");
    clips->setHovered(first, false);
    clips->startRename(first);
    shoot("rename");
    clips->cancelRename();
    clips->toggleJournal(first);
    shoot("journal");
    clips->toggleJournal(first);

    AppSettings* settings = delegate.viewModel()->settings();
    const QString folder = settings->saveFolderPath();
    const QString empty = QDir(folder).filePath(QStringLiteral("empty"));
    QDir().mkpath(empty);
    settings->setSaveFolderPath(empty);
    delegate.contentView()->showScreen(D1Screen::recorder);
    delegate.contentView()->showScreen(D1Screen::clips);
    shoot("empty");
    settings->setSaveFolderPath(folder);
    QDir(empty).removeRecursively();
    return written;
}

// Every group of the settings screen in both appearances at the window's size and at its minimum,
// named settings-GROUP-APPEARANCE-WxH.png.
int settingsGroups(AppDelegate& delegate, const QString& outDir)
{
    QMainWindow* window = delegate.window();
    int written = 0;
    for (const QSize size : { AppDelegate::windowSize, AppDelegate::minimumWindowSize }) {
        window->resize(size);
        for (const Appearance appearance : { Appearance::dark, Appearance::light }) {
            QApplication::setPalette(kitPalette(appearance));
            for (const SettingsView::SettingsGroup group : SettingsView::allGroups) {
                delegate.contentView()->showScreen(D1Screen::recorder);
                delegate.contentView()->showScreen(D1Screen::settings);
                auto* view = qobject_cast<SettingsView*>(delegate.contentView()->screenWidget());
                if (!view) return written;
                view->setGroup(group);
                settle(200);
                const QString name
                    = QStringLiteral("settings-%1-%2-%3x%4.png")
                          .arg(SettingsView::rawValue(group),
                              appearance == Appearance::dark ? QStringLiteral("dark") : QStringLiteral("light"))
                          .arg(window->width())
                          .arg(window->height());
                if (window->grab().save(QDir(outDir).filePath(name))) ++written;
            }
        }
    }
    delegate.contentView()->showScreen(D1Screen::recorder);
    return written;
}

} // namespace

int main(int argc, char** argv)
{
    const bool waylandOnly = argc == 3 && QByteArray(argv[1]) == "--wayland";
    if (argc != 2 && !waylandOnly) {
        std::fprintf(stderr, "usage: screenshot_tour [--wayland] OUTDIR\n");
        return 2;
    }
    const QString outDir = QString::fromLocal8Bit(argv[argc - 1]);
    if (!QDir().mkpath(outDir)) {
        std::fprintf(stderr, "screenshot_tour: cannot make %s\n", argv[argc - 1]);
        return 1;
    }
    if (waylandOnly) return waylandTour(argc, argv, QDir(outDir).absolutePath());
    QTemporaryDir home;
    writeSampleSettings(QDir(home.path()));
    writeSampleTrades(QDir(home.filePath(QStringLiteral("clips"))));
    qputenv("XDG_CONFIG_HOME", home.filePath(QStringLiteral("config")).toUtf8());
    // A moving test picture in the camera bubble, where no camera is plugged in.
    if (qEnvironmentVariableIsEmpty("VELOTAPE_FAKE_CAMERA"))
        qputenv("VELOTAPE_FAKE_CAMERA", "testsrc2=size=640x480:rate=30");
    qputenv("HOME", home.path().toUtf8());
    qputenv("TMPDIR", home.path().toUtf8());
    TestDesktop desktop;
    if (const QString error = desktop.start({ .width = 1400, .height = 900, .audio = false }); !error.isEmpty()) {
        std::fprintf(stderr, "screenshot_tour: no desktop: %s\n", qPrintable(error));
        return 1;
    }
    qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    const std::unique_ptr<AppDelegate> launched = launchTourWindow(home.filePath(QStringLiteral("control")));
    if (!launched) return 1;
    AppDelegate& delegate = *launched;
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
            // The journal's three sub-tabs, each over the sample trades.
            for (const auto& [tab, tabName] : { std::pair { JournalScreen::SubTab::overview, "overview" },
                     std::pair { JournalScreen::SubTab::stats, "stats" },
                     std::pair { JournalScreen::SubTab::simulations, "simulations" } }) {
                delegate.contentView()->showScreen(D1Screen::journal);
                if (auto* journal = qobject_cast<JournalScreen*>(delegate.contentView()->screenWidget()))
                    journal->setTab(tab);
                // The simulation runs off the main thread.
                settle(tab == JournalScreen::SubTab::simulations ? 1500 : 300);
                const QString name
                    = QStringLiteral("journal-%1-%2-%3x%4.png")
                          .arg(QLatin1String(tabName),
                              appearance == Appearance::dark ? QStringLiteral("dark") : QStringLiteral("light"))
                          .arg(window->width())
                          .arg(window->height());
                window->grab().save(QDir(outDir).filePath(name));
                ++written;
                delegate.contentView()->showScreen(D1Screen::recorder);
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
            const QString picker
                = QStringLiteral("picker-%1-%2x%3.png")
                      .arg(appearance == Appearance::dark ? QStringLiteral("dark") : QStringLiteral("light"))
                      .arg(window->width())
                      .arg(window->height());
            pickerShot(delegate).save(QDir(outDir).filePath(picker));
            ++written;
        }
    }
    written += clipsStates(delegate, outDir);
    written += settingsGroups(delegate, outDir);
    written += recorderStates(delegate, desktop, outDir);
    written += cameraShots(delegate, outDir);
    written += overlayShots(delegate, desktop, outDir);
    std::printf("%d screenshots in %s\n", written, qPrintable(outDir));
    std::fflush(stdout);

    QProcess wayland;
    wayland.setProcessChannelMode(QProcess::ForwardedChannels);
    wayland.start(
        QCoreApplication::applicationFilePath(), { QStringLiteral("--wayland"), QDir(outDir).absolutePath() });
    if (!wayland.waitForFinished(120000) || wayland.exitStatus() != QProcess::NormalExit || wayland.exitCode() != 0) {
        std::fprintf(stderr, "screenshot_tour: the pictures on Wayland failed\n");
        return 1;
    }
    return 0;
}
