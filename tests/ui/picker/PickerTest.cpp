#include "CaptureTestSupport.h"
#include "DesktopTestMain.h"
#include "X11TestClient.h"
#include "app/AppSettings.h"
#include "app/session/RecorderViewModel.h"
#include "capture/SourceThumbnailer.h"
#include "platform/wayland/WaylandCaptureBackend.h"
#include "platform/x11/X11CaptureBackend.h"
#include "recorder/SegmentedRecorder.h"
#include "support/EventLoop.h"
#include "support/PortalDesktop.h"
#include "support/TestDesktop.h"
#include "ui/SourcePickerButton.h"
#include "ui/SourcePickerPopover.h"
#include "ui/kit/V3Segmented.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QLineEdit>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

// The source picker as a user meets it on the harness's desktop: the real button and popover over
// the real controller and X11 capture, with windows of a test client to pick.
using namespace CaptureTestSupport;

namespace {

// The region the user draws, without a person to draw it: the picker is the one platform seam
// that can't be driven on a headless desktop.
struct DrawnRegion : AreaPicker {
    std::optional<QRectF> rect;
    std::function<void()> onAsked;
    void pick(Completion completion) override
    {
        if (onAsked) onAsked();
        completion(rect);
    }
};

class Picker : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(client.isConnected());
        settings = std::make_unique<AppSettings>(
            std::make_unique<QSettings>(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat));
        settings->setSaveFolderPath(dir.filePath(QStringLiteral("clips")));
        settings->setSystemAudioEnabled(false);
        RecorderViewModel::Backends backends;
        backends.screen = std::make_shared<X11CaptureBackend>();
        auto picker = std::make_unique<DrawnRegion>();
        region = picker.get();
        backends.areaPicker = std::move(picker);
        vm = std::make_unique<RecorderViewModel>(settings.get(), std::move(backends));
        bool started = false;
        vm->startUp([&] { started = true; });
        ASSERT_TRUE(spinUntil([&] { return started; }));

        host = std::make_unique<QWidget>();
        host->setGeometry(40, 40, 320, 80);
        button = new SourcePickerButton(vm->models(), host.get());
        button->move(20, 20);
        host->show();
        ASSERT_TRUE(showUnderTheWindowManager(host.get()));
    }

    void TearDown() override
    {
        host.reset();
        vm.reset();
    }

    // A click at the widget's centre through the X server, as the user's pointer would make it.
    static void click(const QWidget* widget)
    {
        const QPoint at = widget->mapToGlobal(widget->rect().center());
        ASSERT_EQ(testDesktop()->run(QStringLiteral("xdotool"),
                      { QStringLiteral("mousemove"), QString::number(at.x()), QString::number(at.y()),
                          QStringLiteral("click"), QStringLiteral("1") }),
            0);
    }

    SourcePickerPopover* open()
    {
        QTest::mouseClick(button, Qt::LeftButton);
        if (!spinUntil([this] { return button->isOpen(); }, 3000)) return nullptr;
        SourcePickerPopover* popover = button->popover();
        return QTest::qWaitForWindowExposed(popover) ? popover : nullptr;
    }

    static void showTab(SourcePickerPopover* popover, const QString& tab)
    {
        QTest::mouseClick(popover->findChild<V3Segmented*>()->buttonFor(tab), Qt::LeftButton);
    }

    // The row that assistive technology finds as a button named `title`, once listed.
    static SourcePickerRow* rowNamed(SourcePickerPopover* popover, const QString& title)
    {
        SourcePickerRow* found = nullptr;
        spinUntil(
            [&] {
                for (SourcePickerRow* row : popover->rows()) {
                    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(row);
                    if (accessible->role() == QAccessible::Button && accessible->text(QAccessible::Name) == title)
                        found = row;
                }
                return found != nullptr;
            },
            5000);
        return found;
    }

    // The titles of the rows on show, in order, joined by "|".
    static std::string titles(const SourcePickerPopover* popover)
    {
        QStringList list;
        for (const SourcePickerRow* row : popover->rows())
            list << row->title();
        return list.join(QLatin1Char('|')).toStdString();
    }

    X11TestClient client;
    QTemporaryDir dir;
    std::unique_ptr<AppSettings> settings;
    std::unique_ptr<RecorderViewModel> vm;
    DrawnRegion* region = nullptr;
    std::unique_ptr<QWidget> host;
    SourcePickerButton* button = nullptr;
};

} // namespace

TEST_F(Picker, AWindowOpenedSinceTheLastOpeningIsListedAndChoosingItRestartsTheStreamOnIt)
{
    CaptureEngine* engine = vm->engine();
    FrameLog frames(*engine);
    SourcePickerPopover* first = open();
    ASSERT_NE(first, nullptr);
    showTab(first, QStringLiteral("windows"));
    spinFor(300);
    EXPECT_EQ(titles(first).find("Blotter"), std::string::npos);
    QTest::keyClick(first, Qt::Key_Escape);
    ASSERT_TRUE(spinUntil([this] { return !button->isOpen(); }, 3000));

    // Mapped while the picker is closed, after the sources were listed at start-up.
    const QColor green(30, 160, 90);
    const xcb_window_t blotter = client.create(
        { .rect = QRect(700, 200, 420, 300), .wmClass = "Blotter", .title = QStringLiteral("Blotter EURUSD") });
    client.fill(blotter, QRect(0, 0, 420, 300), green);
    ASSERT_TRUE(spinUntil([&] { return client.listedByWindowManager(blotter); }, 5000));

    SourcePickerPopover* again = open();
    ASSERT_NE(again, nullptr);
    showTab(again, QStringLiteral("windows"));
    SourcePickerRow* row = rowNamed(again, QStringLiteral("Blotter EURUSD"));
    ASSERT_NE(row, nullptr) << titles(again);
    const QString id = QStringLiteral("window-%1").arg(blotter);
    EXPECT_EQ(again->row(id), row);

    // Its thumbnail, grabbed when the row came into view, is the window's own picture.
    ASSERT_TRUE(spinUntil([row] { return row->hasThumbnail(); }, 5000));
    EXPECT_COLOUR(again->thumbnailer()->image(id), 30, 30, green);
    const QImage drawn = row->grab().toImage();
    const QPoint thumbCentre = row->thumbRect().center().toPoint() * drawn.devicePixelRatio();
    EXPECT_COLOUR(drawn, thumbCentre.x(), thumbCentre.y(), green);

    // Chosen: the source changes at once and the picker closes; then the stream runs on the window.
    QAccessible::queryAccessibleInterface(row)->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    ASSERT_TRUE(spinUntil([&] { return engine->selectedSource() && engine->selectedSource()->id() == id; }, 3000));
    EXPECT_FALSE(button->isOpen());
    EXPECT_EQ(button->text(), QStringLiteral("Blotter"));
    ASSERT_TRUE(spinUntil([&] { return engine->isStreaming(); }, 5000));
    client.fill(blotter, QRect(0, 0, 420, 300), green); // painted again once redirected
    // Colours are read away from the middle, where the pointer may be drawn in.
    ASSERT_TRUE(
        frames.waitFor(0, [&](const QImage& i) { return i.size() == QSize(420, 300) && near(i, 30, 30, green); }));
    ASSERT_TRUE(spinUntil([&] { return near(engine->latestPreview(), 30, 30, green); }, 3000));
}

TEST_F(Picker, OneFilterServesBothTabsAndTheRegionRowDrawsTheSource)
{
    const xcb_window_t charts = client.create(
        { .rect = QRect(600, 100, 500, 320), .wmClass = "Charts", .title = QStringLiteral("EURUSD 1h") });
    client.fill(charts, QRect(0, 0, 500, 320), QColor(40, 90, 200));
    const xcb_window_t notes = client.create(
        { .rect = QRect(700, 500, 400, 260), .wmClass = "Notes", .title = QStringLiteral("Shopping list") });
    client.fill(notes, QRect(0, 0, 400, 260), QColor(230, 140, 40));
    ASSERT_TRUE(spinUntil([&] { return client.listedByWindowManager(notes); }, 5000));

    // With the pointer, the button opens the picker and closes it again, rather than reopening it.
    click(button);
    ASSERT_TRUE(spinUntil([this] { return button->isOpen(); }, 3000));
    ASSERT_TRUE(QTest::qWaitForWindowExposed(button->popover()));
    click(button);
    ASSERT_TRUE(spinUntil([this] { return !button->isOpen(); }, 3000));
    spinFor(300);
    EXPECT_FALSE(button->isOpen());

    SourcePickerPopover* popover = open();
    ASSERT_NE(popover, nullptr);
    // The displays tab first, with the selected display marked.
    ASSERT_TRUE(spinUntil([&] { return !popover->rows().empty(); }, 5000));
    ASSERT_EQ(popover->rows().size(), 1u);
    EXPECT_TRUE(popover->rows().front()->isSelected());
    EXPECT_EQ(button->text(), popover->rows().front()->title());

    showTab(popover, QStringLiteral("windows"));
    ASSERT_NE(rowNamed(popover, QStringLiteral("Shopping list")), nullptr);
    auto* filter = popover->findChild<QLineEdit*>();
    // An application's name finds its window though its title doesn't match; a title finds its own.
    QTest::keyClicks(filter, QStringLiteral("chart"));
    EXPECT_EQ(titles(popover), "EURUSD 1h");
    filter->clear();
    QTest::keyClicks(filter, QStringLiteral("LIST"));
    EXPECT_EQ(titles(popover), "Shopping list");
    // The same filter empties the displays tab, which says so.
    showTab(popover, QStringLiteral("displays"));
    EXPECT_TRUE(popover->rows().empty());
    QAccessibleInterface* hint = nullptr;
    for (QWidget* child : popover->findChildren<QWidget*>())
        if (child->isVisible() && child->accessibleName() == QStringLiteral("No displays found"))
            hint = QAccessible::queryAccessibleInterface(child);
    EXPECT_NE(hint, nullptr);

    // The region row closes the picker before the region is drawn; the drawn region is recorded.
    bool openWhileDrawing = true;
    region->onAsked = [&] { openWhileDrawing = button->isOpen(); };
    region->rect = QRectF(100, 80, 320, 200);
    QTest::mouseClick(popover->regionRow(), Qt::LeftButton);
    ASSERT_TRUE(spinUntil([&] { return vm->engine()->selectedSource()->kind() == CaptureSource::Kind::region; }, 3000));
    EXPECT_FALSE(openWhileDrawing);
    EXPECT_EQ(button->text(), QStringLiteral("Region · 320×200"));
}

// The picker over the Wayland backend, against the real xdg-desktop-portal and PipeWire of the
// portal harness (the popover itself shows on the Xvfb): the desktop's dialog is the only chooser.
TEST(PickerOnWayland, TheDesktopAsksEntryShowsTheDialogOnceMoreAndTheNewChoiceIsKept)
{
    if (const QString missing = PortalDesktop::missingProgram(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
    PortalDesktop desktop;
    ASSERT_EQ(desktop.start(), QString());
    const auto chooserShown = [&] { return desktop.control(QStringLiteral("ChooserShown")).toUInt(); };
    QTemporaryDir dir;
    AppSettings settings(
        std::make_unique<QSettings>(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat));
    settings.setSaveFolderPath(dir.filePath(QStringLiteral("clips")));
    settings.setSystemAudioEnabled(false);
    WaylandCaptureBackend::Kept kept;
    RecorderViewModel::Backends backends;
    backends.screen
        = std::make_shared<WaylandCaptureBackend>(WaylandCaptureBackend::TokenStore { [&] { return kept; },
                                                      [&](const WaylandCaptureBackend::Kept& k) { kept = k; } },
            desktop.bus());
    auto vm = std::make_unique<RecorderViewModel>(&settings, std::move(backends));
    bool started = false;
    vm->startUp([&] { started = true; });
    ASSERT_TRUE(spinUntil([&] { return started; }, 10000));
    vm->startPreview();
    ASSERT_TRUE(spinUntil([&] { return vm->engine()->isStreaming(); }, 5000));
    ASSERT_EQ(chooserShown(), 1u);
    const QString firstToken = kept.token;
    ASSERT_FALSE(firstToken.isEmpty());

    QWidget host;
    host.setGeometry(40, 40, 320, 80);
    auto* button = new SourcePickerButton(vm->models(), &host);
    button->move(20, 20);
    host.show();
    ASSERT_TRUE(showUnderTheWindowManager(&host));
    EXPECT_EQ(button->text(), QStringLiteral("Screen TEST-1"));
    QTest::mouseClick(button, Qt::LeftButton);
    ASSERT_TRUE(spinUntil([&] { return button->isOpen(); }, 3000));
    SourcePickerPopover* popover = button->popover();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(popover));
    // No tabs of displays and windows to pick from: the shared source and the desktop's entry.
    EXPECT_FALSE(popover->findChild<V3Segmented*>()->isVisible());
    ASSERT_TRUE(spinUntil([&] { return popover->rows().size() == 1; }, 5000));
    EXPECT_EQ(popover->rows().front()->title(), QStringLiteral("Screen TEST-1"));
    ASSERT_NE(popover->askDesktopRow(), nullptr);

    // In the dialog the user shares another monitor: the kept token would have restored the old
    // one without asking.
    desktop.control(QStringLiteral("ReplaceMonitor"), { QStringLiteral("TEST-2"), false });
    QTest::mouseClick(popover->askDesktopRow(), Qt::LeftButton);
    EXPECT_TRUE(spinUntil([&] { return !button->isOpen(); }, 3000));
    ASSERT_TRUE(spinUntil([&] { return chooserShown() == 2u && vm->engine()->isStreaming(); }, 10000));
    EXPECT_TRUE(spinUntil([&] { return button->text() == QStringLiteral("Screen TEST-2"); }, 5000))
        << button->text().toStdString();
    EXPECT_FALSE(kept.token.isEmpty());
    EXPECT_NE(kept.token, firstToken);
    EXPECT_TRUE(spinUntil([&] { return vm->recorder()->bufferedSeconds() > 0.5; }, 10000));
    EXPECT_EQ(chooserShown(), 2u); // the stream runs on the session just chosen
    vm.reset();
}
