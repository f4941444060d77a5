#include "DesktopTestMain.h"
#include "LaunchedWindow.h"
#include "app/session/RecorderViewModel.h"
#include "app/session/SessionStatus.h"
#include "capture/CaptureEngine.h"
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
#include "ui/kit/D1RecordButton.h"
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
#include <QMainWindow>
#include <QSettings>
#include <QTemporaryDir>

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
