// The clips screen over a save folder of 5,000 clips, in the real window on a private Xvfb: from
// the press on "Clips" in the sidebar (the screen made, the folder listed) to the first paint of a
// card, and on to every card in view showing its thumbnail; the folder's listing by itself. The 24 newest clips are
// real, the rest empty files whose thumbnails fail at once. Ten switches from the recorder screen, after one warm-up;
// then a scroll through the whole grid, a page at a time, each page's layout timed.
//
//     clips_screen_bench [COUNT]
//
// See bench/README.md.

#include "SampleClip.h"
#include "app/session/RecorderViewModel.h"
#include "support/TestDesktop.h"
#include "ui/AppDelegate.h"
#include "ui/ContentView.h"
#include "ui/clips/ClipCard.h"
#include "ui/clips/ClipGrid.h"
#include "ui/clips/ClipsScreen.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMainWindow>
#include <QScrollBar>
#include <QSettings>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

namespace {

void settle(int ms)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

// Notes when the first card paints.
class CardPaint : public QObject {
public:
    bool painted = false;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Paint && qobject_cast<ClipCard*>(watched)) painted = true;
        return false;
    }
};

// This thread's CPU time in milliseconds: on a machine shared with builds the clock on the wall
// mostly measures the others.
double threadCpuMs()
{
    timespec ts {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

void report(const char* name, std::vector<double> v)
{
    if (v.empty()) return;
    std::sort(v.begin(), v.end());
    std::printf("%-28s %.1f / %.1f / %.1f ms (min / median / max of %zu)\n", name, v.front(), v[v.size() / 2], v.back(),
        v.size());
}

} // namespace

int main(int argc, char** argv)
{
    const int count = argc > 1 ? std::max(1, atoi(argv[1])) : 5000;
    QTemporaryDir home;
    const QDir clips(home.filePath(QStringLiteral("clips")));
    QDir().mkpath(clips.path());
    // Oldest first, a minute apart, so that the real clips are the newest and come first.
    const QDateTime start = QDateTime::currentDateTime().addSecs(-60LL * count);
    for (int i = 0; i < count; ++i) {
        const QString path = clips.filePath(QStringLiteral("Display 1, clip %1.mp4").arg(i, 5, 10, QLatin1Char('0')));
        if (i >= count - 24) {
            writeSampleClip(path, 3.0, i);
        } else {
            QFile file(path);
            file.open(QIODevice::WriteOnly);
        }
        QFile(path).setFileTime(start.addSecs(60LL * i), QFileDevice::FileModificationTime);
    }
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", home.filePath(QStringLiteral("config")).toUtf8());
    qputenv("TMPDIR", home.path().toUtf8());
    TestDesktop desktop;
    if (const QString error = desktop.start({ .width = 1400, .height = 900, .audio = false }); !error.isEmpty()) {
        std::fprintf(stderr, "no desktop: %s\n", qPrintable(error));
        return 1;
    }
    qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationName(QStringLiteral("Velotape"));
    {
        QSettings settings;
        settings.setValue(QStringLiteral("vt2.savePath"), clips.path());
        settings.setValue(QStringLiteral("vt2.playSound"), false);
        settings.setValue(QStringLiteral("vt2.systemAudio.enabled"), false);
    }
    AppDelegate delegate(AppSession::Options {
        .headless = false, .source = {}, .socketPath = home.filePath(QStringLiteral("control")) });
    QString error;
    if (!delegate.applicationDidFinishLaunching(&error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    settle(2000);
    ContentView* content = delegate.contentView();
    CardPaint probe;
    app.installEventFilter(&probe);

    std::vector<double> listing, listingCpu;
    for (int run = 0; run < 10; ++run) {
        QElapsedTimer clock;
        clock.start();
        const double cpu = threadCpuMs();
        const qsizetype listed = ClipsScreenModel::listFolder(clips.path()).size();
        listingCpu.push_back(threadCpuMs() - cpu);
        listing.push_back(double(clock.nsecsElapsed()) / 1e6);
        if (listed != count) std::printf("listed %lld of %d\n", qlonglong(listed), count);
    }
    report("folder listed", listing);
    report("folder listed, CPU", listingCpu);

    std::vector<double> firstPaint, firstPaintCpu, thumbnails;
    for (int run = 0; run <= 10; ++run) {
        content->showScreen(D1Screen::recorder);
        settle(300);
        probe.painted = false;
        QElapsedTimer clock;
        clock.start();
        const double cpu = threadCpuMs();
        content->showScreen(D1Screen::clips);
        while (!probe.painted && clock.elapsed() < 10000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        const double painted = double(clock.nsecsElapsed()) / 1e6;
        const double paintedCpu = threadCpuMs() - cpu;
        auto* screen = qobject_cast<ClipsScreen*>(content->screenWidget());
        auto allThumbs = [screen] {
            for (ClipCard* card : screen->grid()->visibleCards())
                if (card->wantsThumbnail()) return false;
            return true;
        };
        while (!allThumbs() && clock.elapsed() < 20000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        if (run == 0) {
            std::printf("clips %lld, cards in view %lld\n", qlonglong(screen->model()->clips().size()),
                qlonglong(screen->grid()->visibleCards().size()));
            continue;
        }
        firstPaint.push_back(painted);
        firstPaintCpu.push_back(paintedCpu);
        thumbnails.push_back(double(clock.nsecsElapsed()) / 1e6);
    }
    report("first paint of a card", firstPaint);
    report("first paint, main thread CPU", firstPaintCpu);
    report("thumbnails in view", thumbnails);

    // A page at a time to the end: the cards handed their clips and painted.
    auto* screen = qobject_cast<ClipsScreen*>(content->screenWidget());
    QScrollBar* bar = screen->grid()->verticalScrollBar();
    std::vector<double> pages;
    for (int value = 0; value <= bar->maximum(); value += bar->pageStep()) {
        QElapsedTimer clock;
        clock.start();
        bar->setValue(value);
        screen->grid()->viewport()->repaint();
        pages.push_back(double(clock.nsecsElapsed()) / 1e6);
    }
    report("page scrolled and painted", pages);
    return 0;
}
