// The Overview's cost over a journal of 10,000 trades: a refresh (the metrics computed and handed
// to the cards, charts and calendar) and then a full repaint of the screen at the window's size,
// rendered into an image on the offscreen platform, as the window's backing store is painted.
// Twenty of each, after one warm-up.
//
//     journal_overview_bench
//
// See bench/README.md.

#include "journal/ClipJournalStore.h"
#include "journal/ClipMetaStore.h"
#include "ui/journal/JournalOverview.h"
#include "ui/kit/Appearance.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

void writeTrades(const QDir& folder, int count)
{
    const QDate today = QDate::currentDate();
    uint32_t state = 7;
    for (int i = 0; i < count; ++i) {
        state = state * 1103515245U + 12345U;
        const QDate day = today.addDays(-(i / 20));
        const QString name = QStringLiteral("T_%1_%2-%3.mp4")
                                 .arg(day.toString(Qt::ISODate))
                                 .arg(9 + i % 20 / 4, 2, 10, QLatin1Char('0'))
                                 .arg(i % 60, 2, 10, QLatin1Char('0'));
        QFile clip(folder.filePath(QString::number(i) + name));
        if (!clip.open(QIODevice::WriteOnly)) continue;
        clip.close();
        ClipMeta meta;
        const bool win = (state >> 8) % 100 < 55;
        meta.outcome = win ? TradeOutcome::win : TradeOutcome::loss;
        meta.pnl = double((state >> 12) % 500) + 10;
        ClipMetaStore::save(meta, QUrl::fromLocalFile(clip.fileName()));
    }
}

void report(const char* name, std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    std::printf("%-10s %.2f / %.2f / %.2f ms (min / median / max of %zu)\n", name, v.front(), v[v.size() / 2], v.back(),
        v.size());
}

} // namespace

int main(int argc, char** argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QApplication::setPalette(kitPalette(Appearance::dark));
    QTemporaryDir dir;
    writeTrades(QDir(dir.path()), 10'000);
    ClipJournalStore store(QUrl::fromLocalFile(dir.path()));
    store.rescan();
    std::printf("clips %lld, trades %d\n", qlonglong(store.clips().size()), store.metrics().tradeCount());

    // The screen's area at the window's default size, less the sidebar.
    JournalOverview overview(&store);
    overview.resize(880, overview.sizeHint().height());
    overview.ensurePolished();
    overview.show();
    QCoreApplication::processEvents();
    QImage image(overview.size(), QImage::Format_ARGB32_Premultiplied);
    std::vector<double> refresh;
    std::vector<double> repaint;
    for (int run = 0; run <= 20; ++run) {
        QElapsedTimer clock;
        clock.start();
        overview.refresh();
        const double refreshed = double(clock.nsecsElapsed()) / 1e6;
        clock.restart();
        image.fill(Qt::transparent);
        overview.render(&image);
        const double painted = double(clock.nsecsElapsed()) / 1e6;
        if (run == 0) continue;
        refresh.push_back(refreshed);
        repaint.push_back(painted);
    }
    std::printf("size %dx%d\n", overview.width(), overview.height());
    report("refresh", refresh);
    report("repaint", repaint);
    return 0;
}
