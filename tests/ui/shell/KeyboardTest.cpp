#include "DesktopTestMain.h"
#include "LaunchedWindow.h"
#include "SampleClip.h"
#include "app/session/RecorderViewModel.h"
#include "app/session/SessionStatus.h"
#include "capture/CaptureEngine.h"
#include "journal/ClipJournalStore.h"
#include "journal/ClipMetaStore.h"
#include "recorder/SegmentedRecorder.h"
#include "support/EventLoop.h"
#include "support/TestDesktop.h"
#include "ui/AppDelegate.h"
#include "ui/ContentView.h"
#include "ui/D1Sidebar.h"
#include "ui/NavRow.h"
#include "ui/RecorderHero.h"
#include "ui/SourcePickerButton.h"
#include "ui/SourcePickerPopover.h"
#include "ui/clips/ClipCard.h"
#include "ui/clips/ClipTagBar.h"
#include "ui/clips/ClipsScreen.h"
#include "ui/journal/JournalScreen.h"
#include "ui/kit/D1RecordButton.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Segmented.h"
#include "ui/kit/V3Toggle.h"
#include "ui/recorder/BigRecordCTA.h"
#include "ui/recorder/EmptyHeroIllustration.h"
#include "ui/recorder/HeroPreviewCard.h"
#include "ui/settings/PremiumSettingsNavRow.h"
#include "ui/settings/SetRow.h"
#include "ui/settings/SettingsView.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

// The window used with the keyboard alone, from launch: keys typed through XTEST go to the window
// the window manager gave the focus, as a keyboard's do.
namespace {

void key(const char* name)
{
    ASSERT_EQ(testDesktop()->run(QStringLiteral("xdotool"), { QStringLiteral("key"), QLatin1String(name) }), 0) << name;
}

// Tab until `target` has the focus, as a user looks for it; false when a whole round of the
// window's controls doesn't reach it.
bool tabTo(QWidget* target, int limit = 80)
{
    for (int i = 0; i < limit; ++i) {
        if (QApplication::focusWidget() == target) return true;
        QWidget* before = QApplication::focusWidget();
        key("Tab");
        spinUntil([before] { return QApplication::focusWidget() != before; }, 500);
    }
    return QApplication::focusWidget() == target;
}

// The launched window with the keyboard's focus, as the window manager gives it to a new window (a
// test before may have left the X input focus elsewhere).
std::unique_ptr<AppDelegate> launchFocused(const QString& clips, const QString& socket)
{
    std::unique_ptr<AppDelegate> delegate = launchWindow(clips, socket);
    if (!delegate) return nullptr;
    const int focused = testDesktop()->run(QStringLiteral("xdotool"),
        { QStringLiteral("windowfocus"), QStringLiteral("--sync"), QString::number(delegate->window()->winId()) });
    if (focused != 0 || !spinUntil([&] { return delegate->window()->isActiveWindow(); })) return nullptr;
    return delegate;
}

// Tab to a screen's row of the sidebar and press it with Space; the screen's widget once shown.
template <class Screen> Screen* openScreen(AppDelegate& delegate, D1Screen which)
{
    if (!tabTo(delegate.contentView()->sidebar()->row(which))) return nullptr;
    key("space");
    Screen* screen = nullptr;
    spinUntil([&] {
        screen = qobject_cast<Screen*>(delegate.contentView()->screenWidget());
        return screen != nullptr;
    });
    return screen;
}

// Tab to a button with a menu and open it with `press`; once it shows, type `inMenu`. The menu runs
// an event loop of its own until it closes, so the keys for it are typed from a timer inside that
// loop. True when the menu showed and has closed again.
bool throughMenu(QAbstractButton* button, const char* press, const QStringList& inMenu)
{
    if (!tabTo(button)) return false;
    bool opened = false;
    QTimer watch;
    watch.setInterval(50);
    QObject::connect(&watch, &QTimer::timeout, [&] {
        if (opened || QApplication::activePopupWidget() == nullptr) return;
        opened = true;
        testDesktop()->run(QStringLiteral("xdotool"), QStringList { QStringLiteral("key") } + inMenu);
    });
    watch.start();
    key(press);
    return spinUntil([&] { return opened && QApplication::activePopupWidget() == nullptr; });
}

// A button's menu opens from the keyboard, and Escape closes it with the focus back on the button.
void openAndEscape(QAbstractButton* button, const char* press)
{
    ASSERT_TRUE(throughMenu(button, press, { QStringLiteral("Escape") }));
    EXPECT_TRUE(spinUntil([&] { return QApplication::focusWidget() == button; }));
}

} // namespace

TEST(Keyboard, FromLaunchTabAndSpaceRecordAClipEscapeClosesThePickerASwitchFlipsAndCtrlHHides)
{
    QTemporaryDir home;
    QTemporaryDir clips;
    std::unique_ptr<AppDelegate> delegate = launchWindow(clips.path(), home.filePath(QStringLiteral("control")));
    ASSERT_NE(delegate, nullptr);
    RecorderViewModel* vm = delegate->viewModel();
    ASSERT_TRUE(spinUntil([&] { return vm->engine()->selectedSource().has_value(); }));
    // The keyboard's focus on the window as the window manager gives it to a new window; a test
    // before this one may have left the X input focus elsewhere.
    ASSERT_EQ(
        testDesktop()->run(QStringLiteral("xdotool"),
            { QStringLiteral("windowfocus"), QStringLiteral("--sync"), QString::number(delegate->window()->winId()) }),
        0);
    ASSERT_TRUE(spinUntil([&] { return delegate->window()->isActiveWindow(); }));
    auto* hero = qobject_cast<RecorderHero*>(delegate->contentView()->screenWidget());
    ASSERT_NE(hero, nullptr);

    // The empty state's button starts the screen's stream.
    ASSERT_TRUE(tabTo(hero->previewCard()->emptyState()->captureButton()));
    key("space");
    ASSERT_TRUE(spinUntil([&] { return vm->engine()->isStreaming(); }));

    // The source picker opens from its button and Escape closes it, the focus back on the button.
    auto* source = hero->findChild<SourcePickerButton*>();
    ASSERT_NE(source, nullptr);
    ASSERT_TRUE(tabTo(source));
    key("space");
    ASSERT_TRUE(spinUntil([&] { return source->isOpen(); }));
    key("Escape");
    ASSERT_TRUE(spinUntil([&] { return !source->isOpen(); }));
    EXPECT_TRUE(spinUntil([&] { return QApplication::focusWidget() == source; }));

    // Record, and Return stops it: a clip in the folder.
    D1RecordButton* record = hero->recordButton()->button();
    ASSERT_TRUE(spinUntil([&] { return record->isEnabled(); }));
    ASSERT_TRUE(tabTo(record));
    key("space");
    ASSERT_TRUE(spinUntil([&] { return vm->recorder()->currentDuration() > 0.5; }));
    EXPECT_EQ(QApplication::focusWidget(), record);
    key("Return");
    ASSERT_TRUE(spinUntil([&] { return vm->status()->lastSavedURL().has_value(); }));
    EXPECT_EQ(QDir(clips.path()).entryList({ QStringLiteral("*.mp4") }, QDir::Files).size(), 1);

    // Settings, its Output group, and a switch, each reached by Tab and pressed by a key.
    ASSERT_TRUE(tabTo(delegate->contentView()->sidebar()->row(D1Screen::settings)));
    key("space");
    SettingsView* settings = nullptr;
    ASSERT_TRUE(spinUntil([&] {
        settings = qobject_cast<SettingsView*>(delegate->contentView()->screenWidget());
        return settings != nullptr;
    }));
    ASSERT_TRUE(tabTo(settings->groupButton(SettingsView::SettingsGroup::output)));
    key("Return");
    ASSERT_TRUE(spinUntil([&] { return settings->group() == SettingsView::SettingsGroup::output; }));
    SetRow* row = settings->row(QStringLiteral("Play sound when saved"));
    ASSERT_NE(row, nullptr);
    auto* sound = row->findChild<V3Toggle*>();
    ASSERT_TRUE(tabTo(sound));
    ASSERT_FALSE(sound->isChecked());
    key("space");
    ASSERT_TRUE(spinUntil([&] { return sound->isChecked(); }));
    EXPECT_EQ(QSettings().value(QStringLiteral("vt2.playSound")), QVariant(true));

    // "Hide Velotape" sends the window down to the taskbar; the ring goes on behind it.
    key("ctrl+h");
    EXPECT_TRUE(spinUntil([&] { return delegate->window()->isMinimized(); }));
    EXPECT_TRUE(vm->engine()->isStreaming());
}

// The clips screen with the keyboard alone: the header's menu, a card's trade tags, its rename
// field and its journal panel, each reached by Tab and pressed by Space or Return.
TEST(Keyboard, TheClipsScreenTagsRenamesAndOpensTheJournalPanelFromTheKeyboard)
{
    QTemporaryDir home;
    QTemporaryDir clips;
    const QString path = clips.filePath(QStringLiteral("Chart, Mar 5, 14-00-00.mp4"));
    ASSERT_TRUE(writeSampleClip(path, 1.0, 7));
    const QUrl clip = QUrl::fromLocalFile(path);
    std::unique_ptr<AppDelegate> delegate = launchFocused(clips.path(), home.filePath(QStringLiteral("control")));
    ASSERT_NE(delegate, nullptr);
    auto* screen = openScreen<ClipsScreen>(*delegate, D1Screen::clips);
    ASSERT_NE(screen, nullptr);

    QAbstractButton* trades = nullptr;
    for (V3Button* button : screen->findChildren<V3Button*>())
        if (button->accessibleName() == QStringLiteral("Trades")) trades = button;
    ASSERT_NE(trades, nullptr);
    openAndEscape(trades, "space");

    ClipCard* card = nullptr;
    ASSERT_TRUE(spinUntil([&] { return (card = screen->cardFor(clip)) != nullptr; }));
    // A loss by Space on its pill, then the amount typed and committed with Return.
    QAbstractButton* loss = card->tagBar()->pill(TradeOutcome::loss);
    ASSERT_TRUE(tabTo(loss));
    key("space");
    ASSERT_TRUE(spinUntil([&] { return ClipMetaStore::load(clip).outcome == TradeOutcome::loss; }));
    QLineEdit* amount = card->tagBar()->amountField();
    ASSERT_TRUE(tabTo(amount));
    ASSERT_EQ(testDesktop()->run(QStringLiteral("xdotool"), { QStringLiteral("type"), QStringLiteral("42.5") }), 0);
    key("Return");
    ASSERT_TRUE(spinUntil([&] { return ClipMetaStore::load(clip).pnl == 42.5; }));

    // Rename opens its field with Return; Escape gives up and leaves the name as it was.
    ASSERT_TRUE(tabTo(card->renameButton()));
    key("Return");
    ASSERT_TRUE(spinUntil([&] { return screen->model()->renamingId() == clip; }));
    EXPECT_TRUE(spinUntil([&] { return QApplication::focusWidget() == card->renameField(); }));
    key("Escape");
    ASSERT_TRUE(spinUntil([&] { return !screen->model()->renamingId().has_value(); }));
    EXPECT_TRUE(QFile::exists(path));

    // The journal panel opens from its toggle.
    ASSERT_TRUE(tabTo(card->journalToggle()));
    key("space");
    ASSERT_TRUE(spinUntil([&] { return screen->model()->expandedId() == clip; }));
}

// The journal with the keyboard alone: the sub-tabs by Tab and Space, the unit and filter menus
// opened by Space or Return and closed by Escape, a symbol chosen with the arrows.
TEST(Keyboard, TheJournalSwitchesTabsAndOpensAndClosesItsMenusFromTheKeyboard)
{
    QTemporaryDir home;
    QTemporaryDir clips;
    const QString path = clips.filePath(QStringLiteral("ES_2024-03-05_14-00.mp4"));
    ASSERT_TRUE(writeSampleClip(path, 1.0, 3));
    ClipMeta tagged;
    tagged.outcome = TradeOutcome::win;
    tagged.pnl = 40;
    ASSERT_FALSE(ClipMetaStore::save(tagged, QUrl::fromLocalFile(path)));
    std::unique_ptr<AppDelegate> delegate = launchFocused(clips.path(), home.filePath(QStringLiteral("control")));
    ASSERT_NE(delegate, nullptr);
    auto* screen = openScreen<JournalScreen>(*delegate, D1Screen::journal);
    ASSERT_NE(screen, nullptr);

    // Tab stops at the sub-tab on show, as at the chosen one of any group; the arrows choose another.
    ASSERT_TRUE(tabTo(screen->tabBar()->buttonFor(QStringLiteral("overview"))));
    key("Right");
    ASSERT_TRUE(spinUntil([&] { return screen->tab() == JournalScreen::SubTab::stats; }));
    key("Left");
    ASSERT_TRUE(spinUntil([&] { return screen->tab() == JournalScreen::SubTab::overview; }));

    openAndEscape(screen->unitButton(), "space");
    openAndEscape(screen->tagButton(), "Return");

    // The symbol menu's first entry lets everything through; the one after it is the clip's symbol.
    ClipJournalStore* store = delegate->viewModel()->journal();
    ASSERT_TRUE(throughMenu(
        screen->symbolButton(), "space", { QStringLiteral("Down"), QStringLiteral("Down"), QStringLiteral("Return") }));
    ASSERT_TRUE(spinUntil([&] { return store->filter().symbol == QStringLiteral("ES"); }));
    EXPECT_TRUE(spinUntil([&] { return QApplication::focusWidget() == screen->symbolButton(); }));
}
