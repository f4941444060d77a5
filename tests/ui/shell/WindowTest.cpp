#include "DesktopTestMain.h"
#include "LaunchedWindow.h"
#include "app/AppSettings.h"
#include "app/session/RecorderViewModel.h"
#include "app/session/SessionStatus.h"
#include "capture/CaptureEngine.h"
#include "recorder/SegmentedRecorder.h"
#include "support/EventLoop.h"
#include "ui/AppDelegate.h"
#include "ui/ContentView.h"
#include "ui/D1Sidebar.h"
#include "ui/NavRow.h"
#include "ui/RecorderHero.h"
#include "ui/ToastView.h"
#include "ui/kit/Appearance.h"
#include "ui/kit/V3.h"
#include "ui/settings/SetRow.h"
#include "ui/settings/SettingsView.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QApplication>
#include <QDir>
#include <QMainWindow>
#include <QPointer>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

// The window as a user meets it, on the harness's Xvfb: the real shell, controller and capture.
namespace {

bool near(QColor a, QColor b, int tolerance = 3)
{
    return std::abs(a.red() - b.red()) <= tolerance && std::abs(a.green() - b.green()) <= tolerance
        && std::abs(a.blue() - b.blue()) <= tolerance;
}

class Window : public ::testing::Test {
protected:
    void SetUp() override
    {
        // A fresh start: no saved source, clips into a folder of this test's own.
        delegate = launchWindow(clips.path(), home.filePath(QStringLiteral("control")));
        ASSERT_NE(delegate, nullptr);
        content = delegate->contentView();
        // Start-up lists the sources (and picks the first display, unsaved) before anything is asked.
        ASSERT_TRUE(spinUntil([this] { return delegate->viewModel()->engine()->selectedSource().has_value(); }));
    }

    void TearDown() override
    {
        delegate.reset();
        QApplication::setPalette(kitPalette(Appearance::light));
    }

    QTemporaryDir home;
    QTemporaryDir clips;
    std::unique_ptr<AppDelegate> delegate;
    ContentView* content = nullptr;
};

} // namespace

TEST_F(Window, SidebarRowsShowTheirScreensAndTheKitFollowsTheAppearance)
{
    EXPECT_EQ(delegate->window()->windowTitle(), QStringLiteral("Velotape"));
    EXPECT_EQ(delegate->window()->size(), AppDelegate::windowSize);
    // No saved source: the recorder's empty state, and no stream.
    auto* hero = qobject_cast<RecorderHero*>(content->screenWidget());
    ASSERT_NE(hero, nullptr);
    spinFor(300);
    EXPECT_TRUE(hero->showsEmptyState());
    EXPECT_FALSE(delegate->viewModel()->engine()->isStreaming());

    for (D1Screen screen :
        { D1Screen::clips, D1Screen::journal, D1Screen::settings, D1Screen::about, D1Screen::recorder }) {
        NavRow* row = content->sidebar()->row(screen);
        // Screen readers and desktop automation find the row as a button by its label, and can press it.
        QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(row);
        ASSERT_NE(accessible, nullptr);
        EXPECT_EQ(accessible->role(), QAccessible::Button);
        EXPECT_EQ(accessible->text(QAccessible::Name), navRowContent(screen).label);
        QPointer<QWidget> left = content->screenWidget();
        if (screen == D1Screen::journal)
            accessible->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        else
            QTest::mouseClick(row, Qt::LeftButton);
        // A press through accessibility animates the click first.
        ASSERT_TRUE(spinUntil([&] { return content->screen() == screen; }, 2000));
        EXPECT_TRUE(row->isSelected());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_TRUE(left.isNull()) << "the screen left behind is destroyed";
    }

    // A card of the settings screen is painted in the kit's colour of the appearance on show, and
    // again in the other when it changes: nothing in the screen does it.
    content->showScreen(D1Screen::settings);
    auto* settings = qobject_cast<SettingsView*>(content->screenWidget());
    ASSERT_NE(settings, nullptr);
    // The card that holds the rows.
    QWidget* card = settings->row(QStringLiteral("Pre-record buffer"))->parentWidget();
    auto cardPixel = [card] { return card->grab().toImage().pixelColor(QPoint(14, 14)); };
    for (Appearance appearance : { Appearance::dark, Appearance::light, Appearance::dark }) {
        QApplication::setPalette(kitPalette(appearance));
        spinFor(50);
        EXPECT_TRUE(near(cardPixel(), V3::bgCard.resolve(appearance))) << cardPixel().name().toStdString();
    }

    // At the smallest window the sidebar keeps its width and the screen takes the rest.
    delegate->window()->resize(AppDelegate::minimumWindowSize);
    spinUntil([this] { return delegate->window()->width() == AppDelegate::minimumWindowSize.width(); }, 2000);
    spinFor(100);
    EXPECT_EQ(content->sidebar()->width(), D1Sidebar::fixedWidth);
    EXPECT_EQ(content->screenWidget()->mapTo(content, QPoint(0, 0)).x(), D1Sidebar::fixedWidth);
    EXPECT_GE(content->width(), ContentView::minimumContentSize.width());
}

TEST_F(Window, ALongToastStaysOneCardAndANewOneReplacesItInPlace)
{
    ToastView* toast = content->toast();
    const QString longText
        = QStringLiteral("Error: ") + QString(QStringLiteral("the clip could not be written ")).repeated(12);
    delegate->viewModel()->showToast(longText);
    ASSERT_TRUE(spinUntil([toast] { return !toast->cardRect().isEmpty(); }, 2000));
    spinFor(ToastView::animationMilliseconds + 100);
    const QRectF first = toast->cardRect();
    // Wrapped inside the window with its margins, not run off the edge, and at the bottom centre.
    EXPECT_LE(first.width(), content->width() - 2 * ToastView::bottomMargin);
    EXPECT_GT(first.height(), 2 * QFontMetrics(toast->font()).height());
    EXPECT_NEAR(first.center().x(), content->width() / 2.0, 1.0);
    EXPECT_NEAR(first.bottom(), content->height() - ToastView::bottomMargin, 1.0);
    const QImage shown = content->grab().toImage();
    EXPECT_LT(shown.pixelColor(first.topLeft().toPoint() + QPoint(6, first.height() / 2)).lightness(), 60);

    delegate->viewModel()->showToast(QStringLiteral("Saved: Display 1, Nov 23, 09-41-07.mp4"));
    spinFor(ToastView::animationMilliseconds + 100);
    const QRectF second = toast->cardRect();
    EXPECT_EQ(toast->text(), QStringLiteral("Saved: Display 1, Nov 23, 09-41-07.mp4"));
    EXPECT_EQ(content->findChildren<ToastView*>().size(), 1);
    EXPECT_NEAR(second.bottom(), first.bottom(), 1.0) << "replaced where it stood";
    EXPECT_LT(second.height(), first.height());
    // Where the long card's top stood there is only the backdrop now: one card, not two.
    const QImage after = content->grab().toImage();
    EXPECT_GT(after.pixelColor(first.center().toPoint().x(), int(first.top()) + 3).lightness(),
        shown.pixelColor(first.center().toPoint().x(), int(first.top()) + 3).lightness() + 10);
}

TEST_F(Window, TheEmptyStateStartsCaptureTheMenuRecordsAClipAndMinimisingKeepsTheRing)
{
    auto* hero = qobject_cast<RecorderHero*>(content->screenWidget());
    ASSERT_NE(hero, nullptr);
    QAbstractButton* start = nullptr;
    for (QAbstractButton* b : hero->findChildren<QAbstractButton*>())
        if (b->text() == QStringLiteral("Capture the screen")) start = b;
    ASSERT_NE(start, nullptr);
    QTest::mouseClick(start, Qt::LeftButton);
    SegmentedRecorder* recorder = delegate->viewModel()->recorder();
    CaptureEngine* engine = delegate->viewModel()->engine();
    ASSERT_TRUE(spinUntil([&] { return engine->isStreaming() && recorder->bufferedSeconds() > 1; }));
    EXPECT_FALSE(hero->showsEmptyState());

    QAction* item = delegate->recordMenuItem();
    EXPECT_TRUE(item->text().startsWith(QStringLiteral("Start Recording\t")));
    item->trigger();
    ASSERT_TRUE(spinUntil([&] { return recorder->isRecording(); }));
    spinFor(1200);
    item->trigger();
    ASSERT_TRUE(spinUntil([&] { return delegate->viewModel()->status()->lastSavedURL().has_value(); }));
    const QStringList saved = QDir(clips.path()).entryList({ QStringLiteral("*.mp4") }, QDir::Files);
    ASSERT_EQ(saved.size(), 1);
    EXPECT_GT(QFileInfo(QDir(clips.path()).filePath(saved.front())).size(), 1000);

    // Minimised while buffering: previews stop, the stream and the ring go on; back, previews return.
    delegate->window()->showMinimized();
    ASSERT_TRUE(spinUntil([&] { return !engine->isPreviewEnabled(); }, 5000));
    EXPECT_TRUE(engine->isStreaming());
    EXPECT_TRUE(recorder->isBuffering());
    delegate->window()->showNormal();
    ASSERT_TRUE(spinUntil([&] { return engine->isPreviewEnabled(); }, 5000));

    // The save hotkey changed in the settings shows in the menu at once; cleared, the item stays.
    HotkeyBinding off;
    delegate->viewModel()->settings()->setSaveHotkey(off);
    EXPECT_EQ(item->text(), QStringLiteral("Start Recording"));
    EXPECT_TRUE(item->isEnabled());
}

TEST(WindowProcess, ClosingTheWindowQuitsAndRemovesTheSegmentFolder)
{
    QTemporaryDir tmp;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TMPDIR"), tmp.path());
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), tmp.path());
    QFile::setPermissions(tmp.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QProcess velotape;
    velotape.setProcessEnvironment(env);
    velotape.start(QStringLiteral(VELOTAPE_BINARY), {});
    ASSERT_TRUE(velotape.waitForStarted());
    const QDir segments(tmp.filePath(QStringLiteral("velotape")));
    ASSERT_TRUE(spinUntil([&] { return !segments.entryList({ QStringLiteral("segments-*") }, QDir::Dirs).isEmpty(); }));

    // As a user does: the window in front, Ctrl+W.
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"),
        { QStringLiteral("search"), QStringLiteral("--sync"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
            QStringLiteral("^Velotape$"), QStringLiteral("windowactivate"), QStringLiteral("--sync"),
            QStringLiteral("key"), QStringLiteral("ctrl+w") });
    ASSERT_TRUE(xdotool.waitForFinished(15000)) << velotape.readAllStandardError().toStdString();
    ASSERT_TRUE(velotape.waitForFinished(15000)) << "still running after the window closed";
    EXPECT_EQ(velotape.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(velotape.exitCode(), 0) << velotape.readAllStandardError().toStdString();
    EXPECT_TRUE(segments.entryList({ QStringLiteral("segments-*") }, QDir::Dirs).isEmpty());
}
