#include "ui/journal/JournalScreen.h"

#include "DesktopTestMain.h"
#include "LaunchedWindow.h"
#include "app/session/RecorderViewModel.h"
#include "capture/CaptureEngine.h"
#include "journal/ClipJournalStore.h"
#include "journal/ClipMetaStore.h"
#include "journal/FormatPnL.h"
#include "support/EventLoop.h"
#include "ui/AppDelegate.h"
#include "ui/ContentView.h"
#include "ui/journal/CalendarGrid.h"
#include "ui/journal/JournalMetricCard.h"
#include "ui/journal/JournalOverview.h"
#include "ui/journal/JournalSimulations.h"

#include <QAccessible>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMainWindow>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QSlider>
#include <QStyleOptionSlider>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

// The journal screens in the real window, over a save folder of clips with known trades.
namespace {

struct Trade {
    int day;
    TradeOutcome outcome;
    double pnl;
    PnLUnit unit;
};

const Trade trades[] = {
    { 2, TradeOutcome::win, 250.5, PnLUnit::dollars },
    { 3, TradeOutcome::loss, 100, PnLUnit::dollars },
    { 3, TradeOutcome::win, 75.25, PnLUnit::dollars },
    { 5, TradeOutcome::loss, 40, PnLUnit::dollars },
    { 6, TradeOutcome::win, 300, PnLUnit::dollars },
    { 9, TradeOutcome::loss, 20, PnLUnit::dollars },
    { 9, TradeOutcome::win, 1.5, PnLUnit::R },
    { 10, TradeOutcome::loss, 1, PnLUnit::R },
};

// What assistive technology reads of a widget.
QString readOut(QWidget* widget, QAccessible::Text text)
{
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(widget);
    return accessible ? accessible->text(text) : QString();
}

// The scheduler's account of a thread or process, in milliseconds: how long it has run, and how
// long it has waited, ready to run, while other processes held the processors (zeros where the
// kernel does not say).
struct SchedStat {
    double ran = 0;
    double waited = 0;
};
SchedStat schedStat(const QString& schedstat)
{
    QFile stats(schedstat);
    if (!stats.open(QIODevice::ReadOnly)) return {};
    const QList<QByteArray> fields = stats.readAll().split(' ');
    if (fields.size() < 2) return {};
    return { fields[0].toDouble() / 1e6, fields[1].toDouble() / 1e6 };
}

// The schedstat file of the harness's X server, a child of this process.
QString xServerSchedstat()
{
    for (const QString& task : QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile children(QStringLiteral("/proc/self/task/%1/children").arg(task));
        if (!children.open(QIODevice::ReadOnly)) continue;
        for (const QByteArray& pid : children.readAll().split(' ')) {
            QFile comm(QStringLiteral("/proc/%1/comm").arg(QString::fromLatin1(pid.trimmed())));
            if (comm.open(QIODevice::ReadOnly) && comm.readAll().trimmed() == "Xvfb")
                return QStringLiteral("/proc/%1/schedstat").arg(QString::fromLatin1(pid.trimmed()));
        }
    }
    return {};
}

class JournalWindow : public ::testing::Test {
protected:
    void SetUp() override
    {
        const QDate month = QDate::currentDate();
        int n = 0;
        for (const Trade& t : trades) {
            const QString name = QStringLiteral("T%1_%2_10-%3.mp4")
                                     .arg(n)
                                     .arg(QDate(month.year(), month.month(), t.day).toString(Qt::ISODate))
                                     .arg(n, 2, 10, QLatin1Char('0'));
            ++n;
            QFile file(clips.filePath(name));
            ASSERT_TRUE(file.open(QIODevice::WriteOnly));
            file.write("mp4");
            ClipMeta meta;
            meta.outcome = t.outcome;
            meta.pnl = t.pnl;
            meta.unit = t.unit;
            // The first two trades share a setup.
            if (n <= 2) meta.tags = QStringList { QStringLiteral("Breakout") };
            ClipMetaStore::save(meta, QUrl::fromLocalFile(clips.filePath(name)));
        }
        delegate = launchWindow(clips.path(), home.filePath(QStringLiteral("control")));
        ASSERT_NE(delegate, nullptr);
        content = delegate->contentView();
        content->showScreen(D1Screen::journal);
        screen = qobject_cast<JournalScreen*>(content->screenWidget());
        ASSERT_NE(screen, nullptr);
        store = delegate->viewModel()->journal();
        ASSERT_TRUE(spinUntil([this] { return store->clips().size() == qsizetype(std::size(trades)); }));
    }

    void TearDown() override { delegate.reset(); }

    // What `velotape journal --json` says of the folder in a unit.
    QJsonObject commandLineStats(const QString& unit)
    {
        QProcess process;
        process.start(QStringLiteral(VELOTAPE_BINARY),
            { QStringLiteral("journal"), QStringLiteral("--folder"), clips.path(), QStringLiteral("--unit"), unit,
                QStringLiteral("--json") });
        EXPECT_TRUE(process.waitForFinished(20000));
        return QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    }

    QTemporaryDir home;
    QTemporaryDir clips;
    std::unique_ptr<AppDelegate> delegate;
    ContentView* content = nullptr;
    JournalScreen* screen = nullptr;
    ClipJournalStore* store = nullptr;
};

} // namespace

TEST_F(JournalWindow, OverviewShowsTheJournalsFiguresInTheChosenUnitAndFollowsTheStore)
{
    auto* overview = qobject_cast<JournalOverview*>(screen->tabWidget());
    ASSERT_NE(overview, nullptr);
    JournalMetricCard* net = overview->card(QStringLiteral("Net P&L"));
    ASSERT_NE(net, nullptr);
    const double dollars = commandLineStats(QStringLiteral("dollars")).value(QLatin1String("netPnL")).toDouble();
    EXPECT_DOUBLE_EQ(dollars, 465.75);
    EXPECT_EQ(readOut(net, QAccessible::Name), QStringLiteral("Net P&L"));
    EXPECT_EQ(readOut(net, QAccessible::Description), formatPnL(dollars, PnLUnit::dollars, 2));
    const QString winRate = overview->card(QStringLiteral("Win Rate"))->figure().value;

    // The day with two trades reads out both, in the calendar of this month.
    const QDate month = QDate::currentDate();
    CalendarCell* third = overview->calendar()->cellFor(QDate(month.year(), month.month(), 3));
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(readOut(third, QAccessible::Description), QStringLiteral("-$25, 2 trades"));

    // Choosing R in the unit menu changes the amounts, not the win rate (which counts every unit).
    QMenu* menu = screen->unitButton()->menu();
    ASSERT_NE(menu, nullptr);
    for (QAction* action : menu->actions())
        if (action->text() == menuLabel(PnLUnit::R)) action->trigger();
    EXPECT_EQ(store->displayUnit(), PnLUnit::R);
    const double r = commandLineStats(QStringLiteral("R")).value(QLatin1String("netPnL")).toDouble();
    EXPECT_EQ(readOut(net, QAccessible::Description), formatPnL(r, PnLUnit::R, 2));
    EXPECT_EQ(net->figure().value, QStringLiteral("0.50R"));
    EXPECT_EQ(overview->card(QStringLiteral("Win Rate"))->figure().value, winRate);
    store->setDisplayUnit(PnLUnit::dollars);

    // A clip tagged elsewhere (the clips screen writes through the store) shows at once.
    const auto inDollars = std::find_if(store->clips().begin(), store->clips().end(),
        [](const ClipEntry& clip) { return clip.meta.unit == PnLUnit::dollars; });
    ASSERT_NE(inDollars, store->clips().end());
    ClipMeta bigger = inDollars->meta;
    bigger.pnl = 1000;
    store->update(*inDollars, bigger);
    const double updated = commandLineStats(QStringLiteral("dollars")).value(QLatin1String("netPnL")).toDouble();
    EXPECT_NE(updated, dollars);
    EXPECT_EQ(readOut(net, QAccessible::Description), formatPnL(updated, PnLUnit::dollars, 2));
}

TEST_F(JournalWindow, TheSymbolAndTagMenusNarrowEveryFigure)
{
    auto* overview = qobject_cast<JournalOverview*>(screen->tabWidget());
    ASSERT_NE(overview, nullptr);
    JournalMetricCard* net = overview->card(QStringLiteral("Net P&L"));
    // Each menu is filled from the journal as it opens; then an entry is chosen.
    const auto choose = [](QPushButton* button, const QString& entry) {
        QMenu* menu = button->menu();
        emit menu->aboutToShow();
        QStringList entries;
        for (QAction* action : menu->actions()) {
            if (!action->isSeparator()) entries << action->text();
            if (action->text() == entry) action->trigger();
        }
        return entries;
    };
    EXPECT_EQ(screen->symbolButton()->text(), QStringLiteral("All symbols"));
    // Clips named TICKER_date_time carry their symbol in the name.
    const QStringList symbols = choose(screen->symbolButton(), QStringLiteral("T0"));
    EXPECT_EQ(symbols.size(), 1 + qsizetype(std::size(trades)));
    EXPECT_EQ(screen->symbolButton()->text(), QStringLiteral("T0"));
    EXPECT_EQ(net->figure().value, QStringLiteral("$250.50"));

    EXPECT_EQ(choose(screen->tagButton(), QStringLiteral("Breakout")), (QStringList { "All tags", "Breakout" }));
    choose(screen->symbolButton(), QStringLiteral("All symbols"));
    EXPECT_EQ(net->figure().value, QStringLiteral("$150.50"));
    // The filter holds across sub-tabs: Stats counts the same two trades.
    screen->setTab(JournalScreen::SubTab::stats);
    EXPECT_EQ(store->metrics().tradeCount(), 2);
    choose(screen->tagButton(), QStringLiteral("All tags"));
    EXPECT_EQ(store->metrics().tradeCount(), 6);
}

TEST_F(JournalWindow, DraggingThePathsSliderToItsEndKeepsTheWindowAnswering)
{
    screen->setTab(JournalScreen::SubTab::simulations);
    auto* simulations = qobject_cast<JournalSimulations*>(screen->tabWidget());
    ASSERT_NE(simulations, nullptr);
    EXPECT_FALSE(simulations->showsEmptyState());
    ASSERT_TRUE(spinUntil([simulations] { return simulations->result().has_value(); }));
    EXPECT_EQ(simulations->result()->finalEquities.size(), 2000U);

    // The longest paths first (by the keyboard, which runs at once), so that the run at the end of
    // the drag is the largest the screen can ask for.
    QTest::keyClick(simulations->horizonSlider(), Qt::Key_End);
    EXPECT_EQ(simulations->settings().horizon, 500);
    ASSERT_TRUE(spinUntil([simulations] { return simulations->result()->bands.size() == 501U; }));

    QSlider* slider = simulations->pathsSlider();
    slider->setFocus();
    ASSERT_TRUE(spinUntil([slider] { return slider->isVisible() && !slider->visibleRegion().isEmpty(); }, 2000));
    // The main thread's longest stall: how late a 5 ms timer fires, less the time that this thread
    // waited for a processor held by other processes, and the time the X server it waits on spent
    // working or waiting likewise. The machine is shared: that time is not the window's, while a
    // main thread computing, or waiting on anything of its own, still counts in full.
    const QString mainThread = QStringLiteral("/proc/thread-self/schedstat");
    const QString xServer = xServerSchedstat();
    auto waited = [&] {
        const SchedStat x = xServer.isEmpty() ? SchedStat {} : schedStat(xServer);
        return schedStat(mainThread).waited + x.ran + x.waited;
    };
    QElapsedTimer clock;
    qint64 last = -1;
    double lastWait = 0;
    double worst = 0;
    double worstWall = 0;
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        const qint64 now = clock.elapsed();
        const double wait = waited();
        if (last >= 0) {
            const double late = double(now - last - 5);
            worstWall = std::max(worstWall, late);
            worst = std::max(worst, late - (wait - lastWait));
        }
        last = now;
        lastWait = wait;
    });
    clock.start();
    tick.start(5);

    QStyleOptionSlider option;
    option.initFrom(slider);
    option.orientation = Qt::Horizontal;
    option.minimum = slider->minimum();
    option.maximum = slider->maximum();
    option.sliderPosition = slider->sliderPosition();
    option.sliderValue = slider->value();
    const QPoint handle
        = slider->style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, slider).center();
    QTest::mousePress(slider, Qt::LeftButton, {}, handle);
    for (int x = handle.x(); x <= slider->width() + 20; x += 8) {
        QMouseEvent move(QEvent::MouseMove, QPointF(x, handle.y()), slider->mapToGlobal(QPointF(x, handle.y())),
            Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(slider, &move);
        spinFor(8);
    }
    QTest::mouseRelease(slider, Qt::LeftButton, {}, QPoint(slider->width() - 1, handle.y()));
    EXPECT_EQ(slider->value(), slider->maximum());
    EXPECT_EQ(simulations->settings().paths, 10000);
    ASSERT_TRUE(spinUntil(
        [simulations] { return simulations->result() && simulations->result()->finalEquities.size() == 10000U; }));
    spinFor(50);
    tick.stop();
    EXPECT_LT(worst, 50) << "the main thread stalled for " << worst << " ms (" << worstWall << " ms on the clock)";
}

TEST_F(JournalWindow, ClipsTaggedByAnotherProgramShowInTheOpenOverview)
{
    auto* overview = qobject_cast<JournalOverview*>(screen->tabWidget());
    ASSERT_NE(overview, nullptr);
    JournalMetricCard* net = overview->card(QStringLiteral("Net P&L"));
    ASSERT_NE(net, nullptr);
    ASSERT_EQ(net->figure().value, QStringLiteral("$465.75"));
    auto writeByHand = [](const QString& path, const QByteArray& json) {
        // Plain writes into the file itself, as a script or an editor that does not rename would.
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(json);
    };

    // A new clip with its sidecar.
    const QDate month = QDate::currentDate();
    const QString clip = clips.filePath(
        QStringLiteral("NEW_%1_11-00.mp4").arg(QDate(month.year(), month.month(), 12).toString(Qt::ISODate)));
    {
        QFile file(clip);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("mp4");
    }
    writeByHand(ClipMetaStore::sidecarPath(QUrl::fromLocalFile(clip)),
        R"({"mistakes": "", "notes": "", "outcome": "win", "pnl": 34.25, "unit": "dollars"})");
    EXPECT_TRUE(spinUntil([net] { return net->figure().value == QStringLiteral("$500.00"); }, 10000))
        << net->figure().value.toStdString();

    // An existing sidecar rewritten in place: the 250.50 win becomes a 50.50 one.
    const auto first = std::find_if(
        store->clips().begin(), store->clips().end(), [](const ClipEntry& c) { return c.meta.pnl == 250.5; });
    ASSERT_NE(first, store->clips().end());
    writeByHand(ClipMetaStore::sidecarPath(first->url),
        R"({"mistakes": "", "notes": "", "outcome": "win", "pnl": 50.5, "unit": "dollars"})");
    EXPECT_TRUE(spinUntil([net] { return net->figure().value == QStringLiteral("$300.00"); }, 10000))
        << net->figure().value.toStdString();
}

TEST_F(JournalWindow, AtTheSmallestWindowEverySubTabFitsBesideTheSidebar)
{
    delegate->window()->resize(AppDelegate::minimumWindowSize);
    ASSERT_TRUE(
        spinUntil([this] { return delegate->window()->width() == AppDelegate::minimumWindowSize.width(); }, 2000));
    QWidget* viewport = screen->parentWidget();
    ASSERT_NE(viewport, nullptr);
    for (JournalScreen::SubTab tab :
        { JournalScreen::SubTab::overview, JournalScreen::SubTab::stats, JournalScreen::SubTab::simulations }) {
        screen->setTab(tab);
        // Until the layout has reached the new size; a screen that cannot shrink so far never does.
        spinUntil(
            [&] { return screen->width() <= viewport->width() && screen->tabWidget()->width() <= screen->width(); },
            3000);
        spinFor(100);
        // The screen scrolls only up and down: whatever reaches past the visible width is cut off.
        int right = 0;
        QString widest;
        for (QWidget* widget : screen->findChildren<QWidget*>()) {
            if (!widget->isVisibleTo(screen)) continue;
            const int edge = widget->mapTo(viewport, QPoint(widget->width(), 0)).x();
            if (edge > right) {
                right = edge;
                widest = QStringLiteral("%1 \"%2\" at %3 of %4")
                             .arg(QLatin1String(widget->metaObject()->className()),
                                 qobject_cast<QLabel*>(widget) ? qobject_cast<QLabel*>(widget)->text()
                                                               : widget->accessibleName())
                             .arg(edge)
                             .arg(viewport->width());
            }
        }
        EXPECT_LE(right, viewport->width()) << "sub-tab " << int(tab) << ": " << widest.toStdString();
    }
}
