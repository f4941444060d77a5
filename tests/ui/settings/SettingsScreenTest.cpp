#include "DesktopTestMain.h"
#include "LaunchedWindow.h"
#include "app/AppIdentity.h"
#include "app/AppSettings.h"
#include "app/session/RecorderViewModel.h"
#include "app/session/SessionStatus.h"
#include "capture/CaptureEngine.h"
#include "core/HotkeyBinding.h"
#include "devices/MicCapture.h"
#include "recorder/SegmentedRecorder.h"
#include "support/EventLoop.h"
#include "support/TestDesktop.h"
#include "ui/AppDelegate.h"
#include "ui/CameraFramePreview.h"
#include "ui/ContentView.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Segmented.h"
#include "ui/kit/V3Slider.h"
#include "ui/kit/V3Toggle.h"
#include "ui/settings/PremiumSettingsNavRow.h"
#include "ui/settings/SetRowDevicePicker.h"
#include "ui/settings/SetRowFolder.h"
#include "ui/settings/SetRowHotkey.h"
#include "ui/settings/SetRowMenu.h"
#include "ui/settings/SetRowSlider.h"
#include "ui/settings/SettingsView.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QDir>
#include <QFile>
#include <QMainWindow>
#include <QMenu>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>
#include <xcb/xcb.h>

// The settings screen as a user meets it, in the real window on the harness's Xvfb and PulseAudio:
// rows pressed with the mouse, keys typed through XTEST, and what landed read back from the
// settings file by a fresh QSettings.
namespace {

using Group = SettingsView::SettingsGroup;

QVariant stored(const char* key)
{
    return QSettings().value(QLatin1String(key));
}

void click(QWidget* widget)
{
    ASSERT_NE(widget, nullptr);
    ASSERT_TRUE(widget->isVisible());
    QTest::mouseClick(widget, Qt::LeftButton, {}, widget->rect().center());
}

// The settings file as it stands on the disk, not as this process's QSettings caches it.
// What the settings screen keeps on disk: the settings file, and the session's autostart entry.
QByteArray onDisk()
{
    QByteArray all;
    const QString autostart = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/autostart/") + AppIdentity::appId() + QStringLiteral(".desktop");
    for (const QString& path : { QSettings().fileName(), autostart }) {
        QFile file(path);
        all += path.toUtf8() + (file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)"));
    }
    return all;
}

// The accessible interfaces under `root` that assistive technology can toggle and may use now:
// on screen and enabled.
void toggleables(QAccessibleInterface* root, QList<QAccessibleInterface*>& found)
{
    for (int i = 0; i < root->childCount(); ++i) {
        QAccessibleInterface* child = root->child(i);
        if (!child || child->state().invisible) continue;
        QAccessibleActionInterface* actions = child->actionInterface();
        if (actions && actions->actionNames().contains(QAccessibleActionInterface::toggleAction())) found << child;
        toggleables(child, found);
    }
}

// Keys typed on the display as a keyboard would: they go to the focused window.
void key(const QString& combination)
{
    ASSERT_EQ(testDesktop()->run(QStringLiteral("xdotool"), { QStringLiteral("key"), combination }), 0)
        << combination.toStdString();
}

class SettingsScreen : public ::testing::Test {
protected:
    void SetUp() override
    {
        delegate = launchWindow(clips.path(), home.filePath(QStringLiteral("control")));
        ASSERT_NE(delegate, nullptr);
        vm = delegate->viewModel();
        ASSERT_TRUE(spinUntil([this] { return vm->engine()->selectedSource().has_value(); }));
        delegate->contentView()->showScreen(D1Screen::settings);
        view = qobject_cast<SettingsView*>(delegate->contentView()->screenWidget());
        ASSERT_NE(view, nullptr);
    }

    void TearDown() override { delegate.reset(); }

    void open(Group group)
    {
        click(view->groupButton(group));
        ASSERT_EQ(view->group(), group);
    }

    template <typename T> T* row(const char* label)
    {
        auto* found = qobject_cast<T*>(view->row(QLatin1String(label)));
        EXPECT_NE(found, nullptr) << label;
        return found;
    }

    void pressSegment(const char* rowLabel, const char* value)
    {
        SetRow* r = row<SetRow>(rowLabel);
        ASSERT_NE(r, nullptr);
        auto* segmented = r->findChild<V3Segmented*>();
        ASSERT_NE(segmented, nullptr);
        click(segmented->buttonFor(QLatin1String(value)));
    }

    std::optional<HotkeyBinding> storedBinding(const char* key)
    {
        return HotkeyBinding::fromJson(stored(key).toByteArray());
    }

    QTemporaryDir home;
    QTemporaryDir clips;
    std::unique_ptr<AppDelegate> delegate;
    RecorderViewModel* vm = nullptr;
    SettingsView* view = nullptr;
};

} // namespace

TEST_F(SettingsScreen, RowsWriteTheirSettingsAndTheControllerReactsAsItShould)
{
    vm->startPreview();
    ASSERT_TRUE(spinUntil([this] { return vm->recorder()->bufferedSeconds() > 0.5; }));
    int streamsStarted = 0;
    QObject::connect(vm->engine(), &CaptureEngine::isStreamingChanged, view, [&] {
        if (vm->engine()->isStreaming()) ++streamsStarted;
    });

    // A new frame rate: written at once, one restart of the stream after the debounce.
    pressSegment("Frame rate", "30");
    EXPECT_EQ(stored("vt2.frameRate").toInt(), 30);
    ASSERT_TRUE(spinUntil([&] { return streamsStarted >= 1; }, 5000));
    spinFor(800);
    EXPECT_EQ(streamsStarted, 1);

    // A preset takes over size, rate and bit rate: the rows fade, show what it chose, and take no
    // presses; Manual gives them back with the preset's values left in place.
    pressSegment("Quality", "discord");
    EXPECT_EQ(stored("vt2.qualityMode").toString(), QStringLiteral("discord"));
    EXPECT_EQ(stored("vt2.resolution").toString(), QStringLiteral("Native"));
    EXPECT_EQ(stored("vt2.bitrateMbps").toDouble(), 3.0);
    auto* bitrate = row<SetRowSlider>("Bitrate");
    ASSERT_NE(bitrate, nullptr);
    EXPECT_TRUE(bitrate->isDimmed());
    EXPECT_EQ(bitrate->valueText(), QStringLiteral("3 Mbps"));
    EXPECT_EQ(bitrate->help(), QStringLiteral("Preset-controlled. Switch to Manual to change."));
    EXPECT_FALSE(row<SetRow>("Resolution")->findChild<V3Segmented*>()->buttonFor(QStringLiteral("720p"))->isEnabled());
    pressSegment("Quality", "manual");
    EXPECT_FALSE(bitrate->isDimmed());
    EXPECT_EQ(stored("vt2.bitrateMbps").toDouble(), 3.0);
    // The slider moves by whole steps and writes what it shows.
    bitrate->slider()->setFocus();
    QTest::keyClick(bitrate->slider(), Qt::Key_Right);
    EXPECT_EQ(stored("vt2.bitrateMbps").toDouble(), 4.0);
    EXPECT_EQ(bitrate->valueText(), QStringLiteral("4 Mbps"));

    // A switch writes its setting; the same switch follows a change made elsewhere.
    open(Group::output);
    auto* sound = row<SetRow>("Play sound when saved")->findChild<V3Toggle*>();
    ASSERT_NE(sound, nullptr);
    EXPECT_FALSE(sound->isChecked());
    click(sound);
    EXPECT_EQ(stored("vt2.playSound"), QVariant(true));
    vm->settings()->setPlaySoundOnSave(false);
    EXPECT_FALSE(sound->isChecked());

    // The save folder: a folder no file can be written into is refused with the reason, the old
    // one kept; a writable one chosen through the button lands in the setting.
    auto* folder = row<SetRowFolder>("Save folder");
    ASSERT_NE(folder, nullptr);
    QString offered;
    view->setFolderChooser([&](QWidget*, const QString& start) -> std::optional<QString> {
        offered = start;
        return QStringLiteral("/proc");
    });
    click(folder->chooseButton());
    EXPECT_EQ(offered, clips.path());
    EXPECT_TRUE(folder->warning().startsWith(QStringLiteral("Can't save clips in /proc: ")))
        << folder->warning().toStdString();
    EXPECT_EQ(stored("vt2.savePath").toString(), clips.path());
    QTemporaryDir elsewhere;
    view->setFolderChooser([&](QWidget*, const QString&) -> std::optional<QString> { return elsewhere.path(); });
    click(folder->chooseButton());
    EXPECT_EQ(folder->warning(), QString());
    EXPECT_EQ(stored("vt2.savePath").toString(), elsewhere.path());
    EXPECT_EQ(folder->path(), elsewhere.path());
}

TEST_F(SettingsScreen, TheMicrophonePickerListsTheSoundServersMicrophonesAsTheyComeAndGo)
{
    open(Group::camera);
    auto* microphone = row<SetRow>("Microphone");
    ASSERT_NE(microphone, nullptr);
    EXPECT_FALSE(microphone->isVisible());
    click(row<SetRow>("Record microphone")->findChild<V3Toggle*>());
    EXPECT_EQ(stored("vt2.mic.enabled"), QVariant(true));
    auto* picker = row<SetRowDevicePicker>("Microphone");
    ASSERT_TRUE(spinUntil([&] { return picker->isVisible() && picker->help() == QStringLiteral("1 device detected"); }))
        << picker->help().toStdString();
    EXPECT_EQ(picker->button()->text(), QStringLiteral("None"));

    // A microphone plugged in while the screen is open.
    QString index;
    ASSERT_EQ(testDesktop()->run(QStringLiteral("pactl"),
                  { QStringLiteral("load-module"), QStringLiteral("module-sine-source"),
                      QStringLiteral("source_name=usbmic"), QStringLiteral("frequency=880") },
                  &index),
        0);
    ASSERT_TRUE(spinUntil([&] { return picker->help() == QStringLiteral("2 devices detected"); }))
        << picker->help().toStdString();
    QString name;
    for (const MicrophoneDevice& device : vm->mic()->availableDevices())
        if (device.uniqueID == QStringLiteral("usbmic")) name = device.name;
    QAction* usb = nullptr;
    for (QAction* item : picker->button()->menu()->actions())
        if (item->text() == name) usb = item;
    ASSERT_NE(usb, nullptr);
    usb->trigger();
    EXPECT_EQ(stored("vt2.mic.deviceID").toString(), QStringLiteral("usbmic"));
    EXPECT_EQ(picker->button()->text(), name);

    // Unplugged: gone from the list, and the button no longer names it.
    ASSERT_EQ(testDesktop()->run(QStringLiteral("pactl"), { QStringLiteral("unload-module"), index.trimmed() }), 0);
    ASSERT_TRUE(spinUntil([&] { return picker->help() == QStringLiteral("1 device detected"); }));
    EXPECT_EQ(picker->button()->text(), QStringLiteral("None"));
}

// The camera's rows come with its switch, write their settings, and the style's preview animates
// the chosen style on the chosen shape.
TEST_F(SettingsScreen, TheCameraRowsWriteTheirSettingsAndThePreviewShowsTheChosenStyle)
{
    open(Group::camera);
    EXPECT_FALSE(view->row(QStringLiteral("Shape"))->isVisible());
    click(row<SetRow>("Show camera overlay")->findChild<V3Toggle*>());
    EXPECT_EQ(stored("vt2.camera.enabled"), QVariant(true));
    for (const char* label : { "Camera", "Shape", "Size", "Frame chrome" })
        EXPECT_TRUE(view->row(QLatin1String(label))->isVisible()) << label;
    EXPECT_EQ(row<SetRowDevicePicker>("Camera")->help(), QStringLiteral("No cameras found"));
    EXPECT_FALSE(view->row(QStringLiteral("Frame style"))->isVisible());

    pressSegment("Shape", "circle");
    EXPECT_EQ(stored("vt2.camera.shape").toString(), QStringLiteral("circle"));
    auto* size = row<SetRowSlider>("Size");
    ASSERT_NE(size, nullptr);
    size->slider()->setFocus();
    QTest::keyClick(size->slider(), Qt::Key_Right);
    EXPECT_NEAR(stored("vt2.camera.size").toDouble(), 0.13, 1e-9);
    EXPECT_EQ(size->valueText(), QStringLiteral("13%"));

    click(row<SetRow>("Frame chrome")->findChild<V3Toggle*>());
    EXPECT_EQ(stored("vt2.camera.frameEnabled"), QVariant(true));
    auto* style = row<SetRowMenu>("Frame style");
    ASSERT_NE(style, nullptr);
    ASSERT_TRUE(spinUntil([&] { return style->isVisible(); }));
    auto* preview = style->findChild<CameraFramePreview*>();
    ASSERT_NE(preview, nullptr);
    ASSERT_TRUE(spinUntil([&] { return preview->isVisible(); }));
    // Soft stands still; March moves, so its preview redraws by itself.
    EXPECT_FALSE(preview->isAnimating());
    QAction* march = nullptr;
    for (QAction* item : style->button()->menu()->actions())
        if (item->text() == QStringLiteral("March")) march = item;
    ASSERT_NE(march, nullptr);
    march->trigger();
    EXPECT_EQ(stored("vt2.camera.frameStyle").toString(), QStringLiteral("march"));
    EXPECT_EQ(preview->style(), CameraFrameStyle::march);
    EXPECT_TRUE(preview->isAnimating());
    const QImage before = preview->grab().toImage();
    spinFor(400);
    EXPECT_NE(preview->grab().toImage(), before);
    // The sample bubble is a circle now: the corner of its square shows the card, not the face.
    const QImage shown = preview->grab().toImage();
    const QRectF sample = preview->sampleRect();
    const QColor corner = shown.pixelColor((sample.topLeft() + QPointF(3, 3)).toPoint() * shown.devicePixelRatio());
    const QColor middle
        = shown.pixelColor(QPointF(sample.center().x(), sample.top() + 6).toPoint() * shown.devicePixelRatio());
    EXPECT_LT(corner.blue(), 60) << corner.name().toStdString();
    EXPECT_GT(middle.blue(), 80) << middle.name().toStdString();

    // Off: its rows go, their values stay.
    click(row<SetRow>("Show camera overlay")->findChild<V3Toggle*>());
    EXPECT_FALSE(view->row(QStringLiteral("Shape"))->isVisible());
    EXPECT_FALSE(style->isVisible());
    EXPECT_EQ(stored("vt2.camera.shape").toString(), QStringLiteral("circle"));
}

TEST_F(SettingsScreen, ARecordedHotkeySavesClipsAndTheOldOneNoLongerDoes)
{
    auto* save = row<SetRowHotkey>("Save hotkey");
    ASSERT_NE(save, nullptr);
    EXPECT_EQ(save->pill()->text(), QStringLiteral("Ctrl+Shift+R"));
    EXPECT_EQ(save->warning(), QString());

    // Escape cancels; a key without a modifier keeps listening; a combination finishes.
    click(save->pill());
    EXPECT_EQ(save->pill()->text(), QStringLiteral("Press any key…"));
    key(QStringLiteral("Escape"));
    ASSERT_TRUE(spinUntil([&] { return save->pill()->text() == QStringLiteral("Ctrl+Shift+R"); }, 5000));
    click(save->pill());
    key(QStringLiteral("k"));
    spinFor(200);
    EXPECT_EQ(save->pill()->text(), QStringLiteral("Press any key…"));
    key(QStringLiteral("ctrl+alt+k"));
    ASSERT_TRUE(spinUntil([&] { return save->pill()->text() == QStringLiteral("Ctrl+Alt+K"); }, 5000))
        << save->pill()->text().toStdString();
    const HotkeyBinding recorded { true, 45, QStringLiteral("k"),
        HotkeyBinding::commandBit | HotkeyBinding::optionBit };
    EXPECT_EQ(storedBinding("vt2.saveHotkeyBinding"), recorded);
    EXPECT_TRUE(save->clearButton()->isVisible());

    // The old combination does nothing now; the new one starts and saves a clip.
    vm->startPreview();
    ASSERT_TRUE(spinUntil([this] { return vm->recorder()->bufferedSeconds() > 0.5; }));
    key(QStringLiteral("ctrl+shift+r"));
    spinFor(600);
    EXPECT_FALSE(vm->recorder()->isRecording());
    key(QStringLiteral("ctrl+alt+k"));
    ASSERT_TRUE(spinUntil([this] { return vm->recorder()->isRecording(); }, 5000));
    spinFor(500);
    key(QStringLiteral("ctrl+alt+k"));
    ASSERT_TRUE(spinUntil([this] { return vm->status()->lastSavedURL().has_value(); }));
    EXPECT_EQ(QDir(clips.path()).entryList({ QStringLiteral("*.mp4") }, QDir::Files).size(), 1);

    // Cleared: off, and the cross goes away.
    click(save->clearButton());
    EXPECT_EQ(save->pill()->text(), QStringLiteral("Off"));
    EXPECT_FALSE(save->clearButton()->isVisible());
    EXPECT_EQ(storedBinding("vt2.saveHotkeyBinding"), (HotkeyBinding { false, 0, QString(), 0 }));
}

TEST_F(SettingsScreen, ACombinationThatAnotherProgramGrabsIsReported)
{
    // Another client takes Ctrl+Alt+G (keycode 42) for itself, as a desktop's shortcut daemon does.
    xcb_connection_t* other = xcb_connect(nullptr, nullptr);
    ASSERT_FALSE(xcb_connection_has_error(other));
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(other)).data->root;
    xcb_generic_error_t* error = xcb_request_check(other,
        xcb_grab_key_checked(
            other, 1, root, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1, 42, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    ASSERT_EQ(error, nullptr);

    auto* arm = row<SetRowHotkey>("Arm monitor hotkey");
    ASSERT_NE(arm, nullptr);
    EXPECT_EQ(arm->pill()->text(), QStringLiteral("Off"));
    vm->settings()->setArmHotkey(
        HotkeyBinding { true, 42, QStringLiteral("g"), HotkeyBinding::commandBit | HotkeyBinding::optionBit });
    EXPECT_EQ(arm->warning(), QStringLiteral("Ctrl+Alt+G is taken by another program"));
    // Only that combination: with Shift it is free, and so is the save hotkey.
    vm->settings()->setArmHotkey(HotkeyBinding { true, 42, QStringLiteral("g"),
        HotkeyBinding::commandBit | HotkeyBinding::optionBit | HotkeyBinding::shiftBit });
    EXPECT_EQ(arm->warning(), QString());
    EXPECT_EQ(row<SetRowHotkey>("Save hotkey")->warning(), QString());

    // Once the other program lets go, the screen no longer warns, and the check left no grab of
    // its own behind: the other program can take the key again.
    xcb_disconnect(other);
    vm->settings()->setArmHotkey(
        HotkeyBinding { true, 42, QStringLiteral("g"), HotkeyBinding::commandBit | HotkeyBinding::optionBit });
    EXPECT_EQ(arm->warning(), QString());
    other = xcb_connect(nullptr, nullptr);
    error = xcb_request_check(other,
        xcb_grab_key_checked(
            other, 1, root, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1, 42, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    EXPECT_EQ(error, nullptr);
    std::free(error);
    xcb_disconnect(other);
}

TEST_F(SettingsScreen, AScreenReaderTogglesEveryCheckableControlAndEachChangeIsOnTheDiskAtOnce)
{
    // What a screen reader does through AT-SPI: the control's toggle action, no click. Each one must
    // change the settings file before control returns, let alone within 100 ms.
    int toggled = 0;
    for (const Group group : SettingsView::allGroups) {
        open(group);
        QList<QAccessibleInterface*> controls;
        toggleables(QAccessible::queryAccessibleInterface(view), controls);
        for (QAccessibleInterface* control : controls) {
            const QString name = control->text(QAccessible::Name);
            SCOPED_TRACE(name.toStdString());
            if (control->state().disabled) continue;
            // A chosen item of a segmented control is chosen already: toggling it changes nothing.
            if (control->role() == QAccessible::RadioButton && control->state().checked) continue;
            const bool wasChecked = control->state().checked;
            const QByteArray before = onDisk();
            control->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
            EXPECT_NE(onDisk(), before) << "the setting behind '" << name.toStdString() << "' stayed as it was";
            EXPECT_NE(control->state().checked, wasChecked);
            ++toggled;
            // A switch goes back, which is a change too.
            if (control->role() == QAccessible::CheckBox) {
                const QByteArray on = onDisk();
                control->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
                EXPECT_NE(onDisk(), on);
            }
            // A preset would disable the rows of size, rate and bit rate that come next.
            vm->settings()->setQualityMode(QualityMode::manual);
        }
    }
    // Recording: three other qualities, four resolutions, three rates, a cursor mode; Camera & Mic
    // and Output two switches each, Privacy one; Area monitor two sensitivities and a switch.
    EXPECT_GE(toggled, 19);
}

TEST_F(SettingsScreen, WhereTheDesktopTakesNoKeysAndDrawsOverNoWindowTheRowsSaySoOnEveryVisit)
{
    // The same session's screens, told that the desktop keeps its keys and has no overlay layer, as
    // GNOME before 48 on Wayland.
    SessionModels models = vm->models();
    models.desktopWords = DesktopWords::wayland(false, false);
    ContentView content(models);
    content.resize(1100, 760);
    content.show();
    content.showScreen(D1Screen::settings);
    auto* gnome = qobject_cast<SettingsView*>(content.screenWidget());
    ASSERT_NE(gnome, nullptr);

    // The hotkey pills would record keys nothing hears: the note on binding the commands stands in
    // their place, also when the group is built again after a visit elsewhere.
    for (int visit = 0; visit < 2; ++visit) {
        SCOPED_TRACE(visit);
        EXPECT_EQ(gnome->row(QStringLiteral("Save hotkey")), nullptr);
        EXPECT_EQ(gnome->row(QStringLiteral("Arm monitor hotkey")), nullptr);
        SetRow* note = gnome->row(QStringLiteral("Hotkeys"));
        ASSERT_NE(note, nullptr);
        EXPECT_TRUE(note->isVisible());
        EXPECT_TRUE(note->help().contains(QStringLiteral("velotape toggle")));
        click(gnome->groupButton(Group::output));
        click(gnome->groupButton(Group::recording));
    }

    // The frame's switch says why it does nothing here and takes no press: the setting stays as it
    // was, for a desktop that can draw the frame.
    click(gnome->groupButton(Group::monitor));
    SetRow* overlay = gnome->row(QStringLiteral("Show overlay frame"));
    ASSERT_NE(overlay, nullptr);
    EXPECT_EQ(overlay->help(), models.desktopWords.noOverlayFrame);
    auto* toggle = overlay->findChild<V3Toggle*>();
    ASSERT_NE(toggle, nullptr);
    const bool before = vm->settings()->areaOverlayEnabled();
    QTest::mouseClick(toggle, Qt::LeftButton, {}, toggle->rect().center());
    EXPECT_EQ(toggle->isChecked(), before);
    EXPECT_EQ(vm->settings()->areaOverlayEnabled(), before);
}
