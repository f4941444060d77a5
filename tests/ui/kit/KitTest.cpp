#include "DesktopTestMain.h"
#include "support/EventLoop.h"
#include "support/TestDesktop.h"
#include "ui/kit/Appearance.h"
#include "ui/kit/D1AmbientBackground.h"
#include "ui/kit/D1RecordButton.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Segmented.h"
#include "ui/kit/V3Slider.h"
#include "ui/kit/V3Toggle.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QApplication>
#include <QCursor>
#include <QScreen>
#include <QWindow>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace {

// What the X server shows of a window: the pixels after Qt painted and flushed them.
QImage onScreen(QWidget& window)
{
    return window.screen()->grabWindow(window.winId()).toImage();
}

bool near(QColor seen, const QColor& expected, int tolerance = 3)
{
    return std::abs(seen.red() - expected.red()) <= tolerance && std::abs(seen.green() - expected.green()) <= tolerance
        && std::abs(seen.blue() - expected.blue()) <= tolerance;
}

QString describe(const QColor& c)
{
    return c.name();
}

void showAndWait(QWidget& window)
{
    window.move(0, 0);
    window.show();
    ASSERT_TRUE(spinUntil([&] { return window.windowHandle() && window.windowHandle()->isExposed(); }, 5000));
    spinFor(100);
}

// Clicks at a widget's centre through the X server, as the user's pointer would. (No --sync: it waits
// for ever when the pointer is already there; XTest keeps the move before the click.)
void click(QWidget& widget)
{
    const QPoint at = widget.mapToGlobal(widget.rect().center());
    ASSERT_EQ(testDesktop()->run(QStringLiteral("xdotool"),
                  { QStringLiteral("mousemove"), QString::number(at.x()), QString::number(at.y()),
                      QStringLiteral("click"), QStringLiteral("1") }),
        0);
}

void pointerAway()
{
    QCursor::setPos(QGuiApplication::primaryScreen()->geometry().bottomRight() - QPoint(1, 1));
}

} // namespace

TEST(KitTest, SwitchingTheApplicationPaletteRepaintsFromTheOtherTriple)
{
    QApplication::setPalette(kitPalette(Appearance::dark));
    pointerAway();
    D1AmbientBackground window;
    window.resize(400, 300);
    V3Button button(V3Button::Kind::secondary, QStringLiteral("Refresh"), &window);
    button.setGeometry(QRect(QPoint(200, 200), button.sizeHint()));
    V3Toggle toggle(&window);
    toggle.setGeometry(QRect(QPoint(330, 205), toggle.sizeHint()));
    showAndWait(window);

    // Points that show one named colour each: the backdrop's bare corner, the button's plate beside
    // its text, the free end of the switched-off toggle's track.
    const QPoint corner(2, 297);
    const QPoint plate = button.geometry().topLeft() + QPoint(5, button.height() / 2);
    const QPoint track = toggle.geometry().topLeft() + toggle.trackRect().toRect().topLeft()
        + QPoint(int(V3Toggle::trackWidth) - 6, int(V3Toggle::trackHeight) / 2);

    auto matches = [&](Appearance a) {
        const QImage shot = onScreen(window);
        return near(shot.pixelColor(corner), V3::bg.resolve(a)) && near(shot.pixelColor(plate), V3::bgElev.resolve(a))
            && near(shot.pixelColor(track), V3::line.resolve(a));
    };
    auto report = [&] {
        const QImage shot = onScreen(window);
        return (describe(shot.pixelColor(corner)) + QLatin1Char(' ') + describe(shot.pixelColor(plate))
            + QLatin1Char(' ') + describe(shot.pixelColor(track)))
            .toStdString();
    };

    EXPECT_TRUE(spinUntil([&] { return matches(Appearance::dark); }, 5000)) << report();
    QApplication::setPalette(kitPalette(Appearance::light));
    EXPECT_TRUE(spinUntil([&] { return matches(Appearance::light); }, 5000)) << report();
    QApplication::setPalette(kitPalette(Appearance::dark));
    EXPECT_TRUE(spinUntil([&] { return matches(Appearance::dark); }, 5000)) << report();
}

TEST(KitTest, ASegmentPressSelectsOnceAndTheToggleFlips)
{
    QApplication::setPalette(kitPalette(Appearance::light));
    QWidget window;
    window.resize(360, 120);
    V3Segmented segmented(
        { { QStringLiteral("low"), QStringLiteral("Low") }, { QStringLiteral("medium"), QStringLiteral("Medium") },
            { QStringLiteral("high"), QStringLiteral("High") } },
        &window);
    segmented.setGeometry(QRect(QPoint(10, 10), segmented.sizeHint()));
    segmented.setSelection(QStringLiteral("low"));
    QStringList emitted;
    QObject::connect(&segmented, &V3Segmented::selectionChanged, [&](const QString& v) { emitted << v; });
    V3Toggle toggle(&window);
    toggle.setGeometry(QRect(QPoint(10, 60), toggle.sizeHint()));
    showAndWait(window);

    QAbstractButton* medium = segmented.buttonFor(QStringLiteral("medium"));
    ASSERT_NE(medium, nullptr);
    click(*medium);
    ASSERT_TRUE(spinUntil([&] { return segmented.selection() == QStringLiteral("medium"); }, 5000));
    spinFor(100);
    EXPECT_EQ(emitted, QStringList { QStringLiteral("medium") });
    EXPECT_TRUE(medium->isChecked());
    EXPECT_FALSE(segmented.buttonFor(QStringLiteral("low"))->isChecked());

    // Pressing the selected item again is no change.
    click(*medium);
    spinFor(200);
    EXPECT_EQ(emitted.size(), 1);

    // Assistive technology presses an item through its accessible action, found among the
    // segmented control's children.
    QAccessibleInterface* group = QAccessible::queryAccessibleInterface(&segmented);
    ASSERT_NE(group, nullptr);
    QAccessibleInterface* high = nullptr;
    for (int i = 0; i < group->childCount(); ++i)
        if (group->child(i)->object() == segmented.buttonFor(QStringLiteral("high"))) high = group->child(i);
    ASSERT_NE(high, nullptr);
    ASSERT_NE(high->actionInterface(), nullptr);
    high->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    ASSERT_TRUE(spinUntil([&] { return segmented.selection() == QStringLiteral("high"); }, 5000));
    EXPECT_EQ(emitted, (QStringList { QStringLiteral("medium"), QStringLiteral("high") }));

    EXPECT_FALSE(toggle.isChecked());
    click(toggle);
    ASSERT_TRUE(spinUntil([&] { return toggle.isChecked(); }, 5000));
    click(toggle);
    ASSERT_TRUE(spinUntil([&] { return !toggle.isChecked(); }, 5000));
}

TEST(KitTest, TheRecordGlowBreathesOnlyWhileOnScreen)
{
    QApplication::setPalette(kitPalette(Appearance::dark));
    pointerAway();
    QWidget window;
    window.resize(200, 200);
    D1RecordButton button(84, &window);
    button.setText(QStringLiteral("Record"));
    button.setGeometry(QRect(QPoint(0, 0), button.sizeHint()));
    showAndWait(window);

    // A point in the glow, just outside the circle: it changes as the glow breathes.
    const QPoint glow = button.geometry().center() + QPoint(0, 84 / 2 + 6);
    const QColor first = onScreen(window).pixelColor(glow);
    EXPECT_TRUE(spinUntil([&] { return !near(onScreen(window).pixelColor(glow), first, 2); }, 3000))
        << "the glow stood still";

    button.hide();
    EXPECT_FALSE(button.isPulsing());
    button.show();
    EXPECT_TRUE(button.isPulsing());
    button.setEnabled(false);
    EXPECT_FALSE(button.isPulsing());
}

namespace {

// Pixels that a viewer tells apart at a glance: the channels together move by more than 90.
int clearlyChanged(const QImage& a, const QImage& b)
{
    if (a.size() != b.size()) return -1;
    int changed = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) {
            const QColor p = a.pixelColor(x, y);
            const QColor q = b.pixelColor(x, y);
            changed
                += std::abs(p.red() - q.red()) + std::abs(p.green() - q.green()) + std::abs(p.blue() - q.blue()) > 90;
        }
    return changed;
}

} // namespace

// Every control of the kit that takes the keyboard's focus shows it: a ring that stands out from
// what the control shows without it, on the dark ground and on the light one. The window's own
// ground is painted under each control, as on a screen of the program.
TEST(KitTest, TheFocusRingShowsOnEveryControlInBothAppearances)
{
    for (const Appearance appearance : { Appearance::dark, Appearance::light }) {
        SCOPED_TRACE(appearance == Appearance::dark ? "dark" : "light");
        QApplication::setPalette(kitPalette(appearance));
        QWidget window;
        window.setAutoFillBackground(true);
        window.resize(420, 300);
        QWidget away(&window);
        away.setFocusPolicy(Qt::StrongFocus);
        away.setGeometry(400, 290, 4, 4);
        V3Button primary(V3Button::Kind::primary, QStringLiteral("Save"), &window);
        V3Button secondary(V3Button::Kind::secondary, QStringLiteral("Re-run"), &window);
        V3Button ghost(V3Button::Kind::ghost, {}, &window);
        ghost.setSymbol(QStringLiteral("folder"));
        V3Toggle off(&window);
        V3Toggle on(&window);
        on.setChecked(true);
        V3Segmented segmented(
            { { QStringLiteral("a"), QStringLiteral("Overview") }, { QStringLiteral("b"), QStringLiteral("Stats") } },
            &window);
        segmented.setSelection(QStringLiteral("a"));
        V3Slider slider(&window);
        D1RecordButton record(64, &window);
        const std::pair<const char*, QWidget*> controls[]
            = { { "primary button", &primary }, { "secondary button", &secondary }, { "ghost button", &ghost },
                  { "switch off", &off }, { "switch on", &on }, { "segmented control", &segmented },
                  { "slider", &slider }, { "record button", &record } };
        int y = 10;
        for (const auto& [name, control] : controls) {
            const QSize size = control->sizeHint().expandedTo(QSize(120, 24));
            control->setGeometry(QRect(QPoint(12, y), size));
            y += size.height() + 4;
            if (y > 250) y = 10;
        }
        // Side by side where the column is full.
        record.move(280, 10);
        slider.move(280, 100);
        segmented.move(200, 200);
        showAndWait(window);
        window.activateWindow();
        ASSERT_TRUE(spinUntil([&] { return window.isActiveWindow(); }, 5000));

        for (const auto& [name, control] : controls) {
            SCOPED_TRACE(name);
            away.setFocus(Qt::TabFocusReason);
            ASSERT_TRUE(spinUntil([&] { return away.hasFocus(); }, 2000));
            spinFor(50);
            const QImage without = window.grab(control->geometry().adjusted(-3, -3, 3, 3)).toImage();
            // Where Tab stops: the control, or the segmented control's selected item.
            QWidget* target = control == &segmented ? segmented.buttonFor(QStringLiteral("a")) : control;
            target->setFocus(Qt::TabFocusReason);
            ASSERT_TRUE(spinUntil([&] { return target->hasFocus(); }, 2000));
            spinFor(50);
            const QImage with = window.grab(control->geometry().adjusted(-3, -3, 3, 3)).toImage();
            // At least a side's length of the control in plainly different pixels.
            const int needed = std::min(control->width(), control->height());
            EXPECT_GE(clearlyChanged(without, with), needed);
        }
    }
}
