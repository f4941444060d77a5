#include "DesktopTestMain.h"
#include "LaunchedWindow.h"
#include "app/AppSettings.h"
#include "app/session/AreaCommands.h"
#include "app/session/RecorderViewModel.h"
#include "app/session/SessionStatus.h"
#include "capture/CaptureEngine.h"
#include "monitor/AreaMonitor.h"
#include "recorder/SegmentedRecorder.h"
#include "support/EventLoop.h"
#include "support/TestDesktop.h"
#include "ui/AppDelegate.h"
#include "ui/ContentView.h"
#include "ui/RecorderHero.h"
#include "ui/kit/D1RecordButton.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/recorder/AreaMonitorStrip.h"
#include "ui/recorder/BigRecordCTA.h"
#include "ui/recorder/CameraBubble.h"
#include "ui/recorder/EmptyHeroIllustration.h"
#include "ui/recorder/HeroPreviewCard.h"
#include "ui/recorder/HudCard.h"
#include "ui/recorder/HudColumn.h"
#include "ui/recorder/InfoChip.h"
#include "ui/recorder/PreviewSurface.h"
#include "ui/settings/SetRowDevicePicker.h"
#include "ui/settings/SettingsView.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QApplication>
#include <QDir>
#include <QMainWindow>
#include <QMenu>
#include <QPainter>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

// The recorder screen as a user meets it, on the harness's Xvfb: the real shell, controller,
// capture and area monitor; the root window painted in known colours.
namespace {

bool near(QColor a, QColor b, int tolerance = 12)
{
    return std::abs(a.red() - b.red()) <= tolerance && std::abs(a.green() - b.green()) <= tolerance
        && std::abs(a.blue() - b.blue()) <= tolerance;
}

// A new background is drawn without damage being reported; xrefresh then repaints the screen as
// another program would (our own window's repaints are no change of the screen).
void paintRoot(const char* colour)
{
    ASSERT_EQ(testDesktop()->run(QStringLiteral("xsetroot"), { QStringLiteral("-solid"), QLatin1String(colour) }), 0);
    ASSERT_EQ(testDesktop()->run(QStringLiteral("xrefresh"), {}), 0);
}

void press(QAbstractButton* button)
{
    ASSERT_NE(button, nullptr);
    ASSERT_TRUE(button->isVisible());
    QTest::mouseClick(button, Qt::LeftButton, {}, button->rect().center());
}

class RecorderScreen : public ::testing::Test {
protected:
    void SetUp() override
    {
        paintRoot("#20b050");
        delegate = launchWindow(clips.path(), home.filePath(QStringLiteral("control")));
        ASSERT_NE(delegate, nullptr);
        vm = delegate->viewModel();
        ASSERT_TRUE(spinUntil([this] { return vm->engine()->selectedSource().has_value(); }));
        hero = qobject_cast<RecorderHero*>(delegate->contentView()->screenWidget());
        ASSERT_NE(hero, nullptr);
    }

    void TearDown() override { delegate.reset(); }

    // What the empty state's button does: the display's stream, and a picture of it on the card.
    void startCapture()
    {
        ASSERT_TRUE(hero->showsEmptyState());
        press(hero->previewCard()->emptyState()->captureButton());
        ASSERT_TRUE(spinUntil([this] { return !hero->previewCard()->surface()->isHidden(); }));
    }

    QString badge(int index = 0) const
    {
        const QList<HudCard*> cards = hero->previewCard()->badges()->shownCards();
        return index < cards.size() ? cards[index]->label() : QString();
    }

    QString badgeDetail(int index = 0) const
    {
        const QList<HudCard*> cards = hero->previewCard()->badges()->shownCards();
        return index < cards.size() ? cards[index]->detail() : QString();
    }

    QTemporaryDir home;
    QTemporaryDir clips;
    std::unique_ptr<AppDelegate> delegate;
    RecorderViewModel* vm = nullptr;
    RecorderHero* hero = nullptr;
};

} // namespace

TEST_F(RecorderScreen, PressingRecordTwiceSavesAClipAndTheBadgesFollowTheRecorder)
{
    D1RecordButton* record = hero->recordButton()->button();
    // Nothing is captured yet: nothing to record.
    EXPECT_FALSE(record->isEnabled());
    startCapture();
    EXPECT_TRUE(record->isEnabled());
    ASSERT_TRUE(spinUntil([this] { return badge() == QStringLiteral("Buffering"); }));
    // The chips tell the stream's size and the settings' rate and buffer.
    QStringList chips;
    for (InfoChip* chip : hero->findChildren<InfoChip*>())
        chips << chip->text();
    EXPECT_TRUE(chips.contains(QStringLiteral("1400×900"))) << chips.join(' ').toStdString();
    EXPECT_TRUE(chips.contains(QStringLiteral("3s buffer")));

    SegmentedRecorder* recorder = vm->recorder();
    press(record);
    ASSERT_TRUE(spinUntil([&] { return recorder->isRecording(); }));
    ASSERT_TRUE(spinUntil([&] { return recorder->currentDuration() > 0.3; }));
    EXPECT_EQ(badge(), QStringLiteral("Recording"));
    EXPECT_TRUE(record->isLive());
    const QString early = badgeDetail();
    EXPECT_TRUE(early.endsWith(QStringLiteral(" · 1400×900"))) << early.toStdString();
    EXPECT_EQ(record->text(), early.left(8));
    spinFor(1000);
    const QString later = badgeDetail();
    // "mm:ss.hh" grows in reading order.
    EXPECT_GT(later.left(8), early.left(8));
    EXPECT_GE(later.left(8), QStringLiteral("00:01.00"));

    // The screen has redrawn by the time the export is under way.
    QString duringExport;
    QObject::connect(recorder, &SegmentedRecorder::isExportingChanged, hero, [&](bool exporting) {
        if (exporting) duringExport = badge();
    });
    press(record);
    ASSERT_TRUE(spinUntil([&] { return vm->status()->lastSavedURL().has_value(); }));
    EXPECT_EQ(duringExport, QStringLiteral("Saving"));
    EXPECT_EQ(QDir(clips.path()).entryList({ QStringLiteral("*.mp4") }, QDir::Files).size(), 1);
    ASSERT_TRUE(spinUntil([this] { return badge() == QStringLiteral("Buffering"); }));
    EXPECT_EQ(record->text(), QStringLiteral("Record"));
    EXPECT_FALSE(record->isLive());
}

TEST_F(RecorderScreen, ThePreviewShowsTheScreenAtTheCardsOwnSizeAndNoneIsMadeOffScreen)
{
    startCapture();
    HeroPreviewCard* card = hero->previewCard();
    PreviewSurface* surface = card->surface();
    CaptureEngine* engine = vm->engine();
    // Made at the size it is shown, not at the stream's: a 1400x900 screen in the card's area.
    EXPECT_EQ(engine->previewSize(), card->pictureArea().size());
    ASSERT_TRUE(spinUntil([&] { return engine->latestPreview().size() == surface->size(); }, 5000))
        << engine->latestPreview().width() << "x" << engine->latestPreview().height();
    EXPECT_TRUE(card->pictureArea().contains(surface->geometry()));
    EXPECT_TRUE(surface->width() == card->pictureArea().width() || surface->height() == card->pictureArea().height());

    // The screen's top left is the root window, outside the application's window: its colour shows.
    auto corner = [surface] { return surface->grab().toImage().pixelColor(2, 2); };
    EXPECT_TRUE(near(corner(), QColor(0x20, 0xb0, 0x50))) << corner().name().toStdString();
    paintRoot("#c03090");
    EXPECT_TRUE(spinUntil([&] { return near(corner(), QColor(0xc0, 0x30, 0x90)); }, 5000))
        << corner().name().toStdString();

    // Another screen: the recorder screen is gone, nothing shows previews and none is made.
    delegate->contentView()->showScreen(D1Screen::clips);
    EXPECT_TRUE(engine->previewSize().isEmpty());
    int previews = 0;
    QObject::connect(engine, &CaptureEngine::latestPreviewChanged, delegate.get(), [&previews] { ++previews; });
    spinFor(200);
    previews = 0;
    paintRoot("#2040d0");
    spinFor(600);
    EXPECT_EQ(previews, 0);
    EXPECT_TRUE(engine->isStreaming());
}

// With a camera (the test camera, a red picture): switched on in the settings, its picture fills
// the bubble on the preview, and the settings' camera row lists it.
class RecorderScreenWithCamera : public RecorderScreen {
protected:
    void SetUp() override
    {
        qputenv("VELOTAPE_FAKE_CAMERA", "color=c=0xE61414:size=320x240:rate=30");
        RecorderScreen::SetUp();
    }
    void TearDown() override
    {
        RecorderScreen::TearDown();
        qunsetenv("VELOTAPE_FAKE_CAMERA");
    }
};

TEST_F(RecorderScreenWithCamera, TheCamerasPictureFillsTheBubbleAndTheSettingsListTheCamera)
{
    startCapture();
    vm->settings()->setCameraShape(CameraShape::roundedRect);
    vm->settings()->setCameraSize(0.4);
    vm->settings()->setCameraEnabled(true);
    CameraBubble* bubble = hero->previewCard()->cameraBubble();
    ASSERT_TRUE(
        spinUntil([&] { return bubble->isVisible() && bubble->state() == CameraBubble::State::picture; }, 15000));
    const QImage shown = hero->previewCard()->surface()->grab().toImage();
    const QColor centre = shown.pixelColor((bubble->bubbleRect().center() * shown.devicePixelRatio()).toPoint());
    EXPECT_GT(centre.red(), 180) << centre.name().toStdString();
    EXPECT_LT(centre.green(), 80) << centre.name().toStdString();

    delegate->contentView()->showScreen(D1Screen::settings);
    auto* view = qobject_cast<SettingsView*>(delegate->contentView()->screenWidget());
    ASSERT_NE(view, nullptr);
    view->setGroup(SettingsView::SettingsGroup::camera);
    auto* picker = qobject_cast<SetRowDevicePicker*>(view->row(QStringLiteral("Camera")));
    ASSERT_NE(picker, nullptr);
    ASSERT_TRUE(spinUntil([&] { return picker->help() == QStringLiteral("1 device detected"); }))
        << picker->help().toStdString();
    QStringList listed;
    for (QAction* item : picker->button()->menu()->actions())
        listed << item->text();
    EXPECT_TRUE(listed.contains(QStringLiteral("Test camera"))) << listed.join(", ").toStdString();
}

// The camera bubble on the live picture: the size and place the settings give, masked to its
// shape, the picture showing around it; a drag stores its new centre as fractions of the picture,
// and never lets it leave. Without a camera picture it says the camera is starting.
TEST_F(RecorderScreen, TheCameraBubbleStandsWhereTheSettingsPutItAndADragMovesIt)
{
    // The test camera, the same on every machine: a blue picture, 4:3, with green bands at its sides.
    delegate.reset();
    qputenv("VELOTAPE_FAKE_CAMERA", "color=c=0x1e3cdc:size=520x480:rate=15,pad=640:480:60:0:color=0x14c828");
    delegate = launchWindow(clips.path(), home.filePath(QStringLiteral("control2")));
    qunsetenv("VELOTAPE_FAKE_CAMERA");
    ASSERT_NE(delegate, nullptr);
    vm = delegate->viewModel();
    ASSERT_TRUE(spinUntil([this] { return vm->engine()->selectedSource().has_value(); }));
    hero = qobject_cast<RecorderHero*>(delegate->contentView()->screenWidget());
    ASSERT_NE(hero, nullptr);
    startCapture();
    HeroPreviewCard* card = hero->previewCard();
    PreviewSurface* surface = card->surface();
    ASSERT_TRUE(spinUntil([&] { return vm->engine()->latestPreview().size() == surface->size(); }, 5000));
    AppSettings* settings = vm->settings();
    settings->setCameraShape(CameraShape::circle);
    settings->setCameraSize(0.3);
    settings->setCameraPositionX(0.3);
    settings->setCameraPositionY(0.4);
    settings->setCameraEnabled(true);
    CameraBubble* bubble = card->cameraBubble();
    ASSERT_TRUE(spinUntil([&] { return bubble->isVisible(); }));
    ASSERT_TRUE(spinUntil([&] { return bubble->state() == CameraBubble::State::picture; }, 10000));

    const double w = surface->width(), h = surface->height();
    const double d = 0.3 * std::min(w, h);
    const auto isCamera
        = [](QColor c) { return near(c, QColor(0x1e, 0x3c, 0xdc), 24) || near(c, QColor(0x14, 0xc8, 0x28), 24); };
    // What the bubble covers shows the camera; what it leaves shows the picture exactly.
    const auto check = [&](QPointF centre, double width, double height, bool cornersCovered) {
        const QImage shown = surface->grab().toImage();
        const QImage& picture = surface->image();
        const auto covered = [&](QPointF at) { return isCamera(shown.pixelColor(at.toPoint())); };
        const auto clear = [&](QPointF at) { return shown.pixel(at.toPoint()) == picture.pixel(at.toPoint()); };
        EXPECT_TRUE(covered(centre)) << shown.pixelColor(centre.toPoint()).name().toStdString();
        EXPECT_TRUE(covered(centre + QPointF(-width / 2 + 3, 0)));
        EXPECT_TRUE(covered(centre + QPointF(width / 2 - 3, 0)));
        EXPECT_TRUE(clear(centre + QPointF(-width / 2 - 3, 0)));
        EXPECT_TRUE(clear(centre + QPointF(0, height / 2 + 3)));
        const QPointF corner = centre + QPointF(-width / 2 + 3, -height / 2 + 3);
        EXPECT_EQ(covered(corner), cornersCovered);
        EXPECT_EQ(clear(corner), !cornersCovered);
    };
    {
        SCOPED_TRACE("circle");
        check(QPointF(0.3 * w, 0.4 * h), d, d, false);
        // Filled, not squeezed: the round bubble cuts the green sides away.
        const QColor edge = surface->grab().toImage().pixelColor(QPointF(0.3 * w - d / 2 + 3, 0.4 * h).toPoint());
        EXPECT_TRUE(near(edge, QColor(0x1e, 0x3c, 0xdc), 24)) << edge.name().toStdString();
    }
    settings->setCameraShape(CameraShape::rect);
    {
        SCOPED_TRACE("rectangle");
        check(QPointF(0.3 * w, 0.4 * h), d * 16 / 9, d, true);
    }

    // Grabbed at its middle and moved 40 right and 20 up.
    const QPoint grip = (bubble->bubbleRect().center() - QPointF(bubble->pos())).toPoint();
    QTest::mousePress(bubble, Qt::LeftButton, {}, grip);
    QTest::mouseMove(bubble, grip + QPoint(40, -20));
    QTest::mouseRelease(bubble, Qt::LeftButton, {}, grip + QPoint(40, -20));
    EXPECT_NEAR(QSettings().value(QStringLiteral("vt2.camera.posX")).toDouble(), 0.3 + 40 / w, 1e-6);
    EXPECT_NEAR(QSettings().value(QStringLiteral("vt2.camera.posY")).toDouble(), 0.4 - 20 / h, 1e-6);
    spinFor(100);
    {
        SCOPED_TRACE("moved");
        check(QPointF(0.3 * w + 40, 0.4 * h - 20), d * 16 / 9, d, true);
    }
    // Dragged far past the right edge: pinned there, the whole bubble still on the picture.
    const QPoint again = (bubble->bubbleRect().center() - QPointF(bubble->pos())).toPoint();
    QTest::mousePress(bubble, Qt::LeftButton, {}, again);
    QTest::mouseMove(bubble, again + QPoint(2000, 0));
    QTest::mouseRelease(bubble, Qt::LeftButton, {}, again + QPoint(2000, 0));
    EXPECT_NEAR(settings->cameraPositionX(), 1 - d * 8 / 9 / w, 1e-6);
    EXPECT_NEAR(bubble->bubbleRect().right(), w, 1e-6);

    // A camera that stops: the bubble says so, in grey.
    bubble->setCameraOn(false);
    EXPECT_EQ(bubble->state(), CameraBubble::State::off);
    {
        const QColor grey
            = surface->grab().toImage().pixelColor((bubble->bubbleRect().center() + QPointF(0, -d * 0.35)).toPoint());
        EXPECT_LT(std::abs(grey.blue() - grey.red()), 40) << grey.name().toStdString();
    }

    // Off: the bubble goes.
    settings->setCameraEnabled(false);
    EXPECT_FALSE(bubble->isVisible());

    // The chosen source's stream gone for a moment (a restart, say): the card says the preview is
    // on its way instead of inviting the user to start one.
    vm->engine()->stopStream();
    ASSERT_TRUE(spinUntil([&] { return !vm->engine()->isStreaming(); }));
    EXPECT_FALSE(card->showsEmptyState());
    EXPECT_EQ(card->waitingLine(), QStringLiteral("Preview starting…"));
}

TEST_F(RecorderScreen, TheStripFollowsTheMonitorFromOffToTriggeredAndBack)
{
    startCapture();
    AreaMonitorStrip* strip = hero->areaStrip();
    AreaMonitor* monitor = vm->areaMonitor();
    EXPECT_EQ(strip->chipText(), QStringLiteral("OFF"));
    EXPECT_EQ(strip->detailText(), QStringLiteral("Pick a region to watch"));
    EXPECT_NE(strip->button(QStringLiteral("Select watch area")), nullptr);
    EXPECT_EQ(strip->button(QStringLiteral("Arm")), nullptr);

    // Drawing the area is the picker's; it ends in the controller, which the strip follows. The
    // root's top left corner, clear of the window.
    vm->areaCommands()->setPickedAreaRect(QRectF(0, 0, 100, 60));
    EXPECT_EQ(strip->chipText(), QStringLiteral("IDLE"));
    EXPECT_EQ(strip->detailText(), QStringLiteral("Ready"));
    EXPECT_EQ(strip->button(QStringLiteral("Select watch area")), nullptr);
    EXPECT_NE(strip->button(QStringLiteral("Re-pick")), nullptr);
    EXPECT_NE(strip->button(QStringLiteral("Recapture reference")), nullptr);
    EXPECT_TRUE(strip->button(QStringLiteral("Medium"))->isChecked());

    press(strip->button(QStringLiteral("High")));
    EXPECT_EQ(monitor->sensitivity(), AreaSensitivity::high);
    EXPECT_EQ(vm->settings()->areaSensitivity(), AreaSensitivity::high);
    EXPECT_TRUE(strip->button(QStringLiteral("High"))->isChecked());
    EXPECT_FALSE(strip->button(QStringLiteral("Medium"))->isChecked());

    press(strip->button(QStringLiteral("Arm")));
    ASSERT_TRUE(monitor->isArmed());
    EXPECT_EQ(strip->chipText(), QStringLiteral("ARMED"));
    EXPECT_EQ(strip->detailText(), QStringLiteral("Δ 0 · quiet"));
    EXPECT_NE(strip->button(QStringLiteral("Disarm")), nullptr);
    EXPECT_EQ(badge(1), QStringLiteral("Armed"));
    EXPECT_EQ(badgeDetail(1), QStringLiteral("Δ 0 / 900"));
    // The watched area is framed on the picture in the armed colour.
    PreviewSurface* surface = hero->previewCard()->surface();
    const std::optional<QRectF> box = surface->watchedBox();
    ASSERT_TRUE(box);
    const QImage shown = surface->grab().toImage();
    EXPECT_TRUE(near(shown.pixelColor(int(box->center().x()), int(box->top()) + 1), V3::match.resolve(surface)))
        << shown.pixelColor(int(box->center().x()), int(box->top()) + 1).name().toStdString();

    // The area changes: the monitor asks for a recording and the strip says so.
    paintRoot("#d03030");
    ASSERT_TRUE(spinUntil([&] { return strip->chipText() == QStringLiteral("TRIGGERED"); }, 5000));
    EXPECT_TRUE(strip->detailText().endsWith(QStringLiteral(" · recording"))) << strip->detailText().toStdString();
    EXPECT_EQ(badge(1), QStringLiteral("Triggered"));
    ASSERT_TRUE(spinUntil([&] { return vm->recorder()->isRecording(); }));

    press(strip->button(QStringLiteral("Stop & disarm")));
    EXPECT_FALSE(monitor->isArmed());
    EXPECT_EQ(strip->chipText(), QStringLiteral("IDLE"));
    ASSERT_TRUE(spinUntil([&] { return vm->status()->lastSavedURL().has_value(); }));
    EXPECT_FALSE(vm->recorder()->isRecording());
}

TEST_F(RecorderScreen, TheRecordButtonIsNamedByWhatAPressDoesAndKeepsTheReadersFocus)
{
    startCapture();
    D1RecordButton* record = hero->recordButton()->button();
    record->setFocus(Qt::TabFocusReason);
    QAccessibleInterface* button = QAccessible::queryAccessibleInterface(record);
    ASSERT_NE(button, nullptr);
    EXPECT_EQ(button->role(), QAccessible::Button);
    EXPECT_EQ(button->text(QAccessible::Name), QStringLiteral("Record"));
    EXPECT_EQ(button->text(QAccessible::Description), QString());

    // Pressed as a screen reader presses it.
    button->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    ASSERT_TRUE(spinUntil([&] { return vm->recorder()->currentDuration() > 0.5; }));
    // The name says what the next press does; the running time is the description, not the name.
    EXPECT_EQ(button->text(QAccessible::Name), QStringLiteral("Stop recording"));
    const QRegularExpression elapsed(QStringLiteral("^\\d\\d:\\d\\d\\.\\d\\d$"));
    const QString early = button->text(QAccessible::Description);
    EXPECT_TRUE(elapsed.match(early).hasMatch()) << early.toStdString();
    spinFor(300);
    EXPECT_GT(button->text(QAccessible::Description), early);
    EXPECT_EQ(button->text(QAccessible::Name), QStringLiteral("Stop recording"));
    // The same widget all along, so the focus never left it.
    EXPECT_EQ(QAccessible::queryAccessibleInterface(record), button);
    EXPECT_EQ(record->window()->focusWidget(), record);

    button->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    ASSERT_TRUE(spinUntil([&] { return vm->status()->lastSavedURL().has_value(); }));
    EXPECT_EQ(button->text(QAccessible::Name), QStringLiteral("Record"));
    EXPECT_EQ(button->text(QAccessible::Description), QString());
    EXPECT_EQ(record->window()->focusWidget(), record);
}
