#include "capture/WindowListFilter.h"

#include <gtest/gtest.h>

namespace {

CaptureWindow window(uint32_t id, const QString& bundle, const QString& appName, QRectF frame,
    std::optional<QString> title = QStringLiteral("Document"))
{
    CaptureWindow w;
    w.windowID = id;
    w.windowLayer = 0;
    w.isOnScreen = true;
    w.frame = frame;
    w.title = std::move(title);
    w.owningApplication = CaptureApplication { bundle, appName, 0 };
    return w;
}

std::vector<uint32_t> ids(const std::vector<CaptureWindow>& windows)
{
    std::vector<uint32_t> result;
    for (const CaptureWindow& w : windows)
        result.push_back(w.windowID);
    return result;
}

const WindowListFilter::SystemRules noRules;

} // namespace

TEST(WindowListFilter, SizeTitleOwnerLayerAndScreenRules)
{
    std::vector<CaptureWindow> windows {
        window(1, QStringLiteral("a"), QStringLiteral("A"), QRectF(0, 0, 150, 80)), // exactly the minimum
        window(2, QStringLiteral("b"), QStringLiteral("B"), QRectF(0, 0, 149, 800)),
        window(3, QStringLiteral("c"), QStringLiteral("C"), QRectF(0, 0, 1500, 79.5)),
        window(4, QStringLiteral("d"), QStringLiteral("D"), QRectF(0, 0, 2000, 2000), std::nullopt),
        window(5, QStringLiteral("e"), QStringLiteral("E"), QRectF(0, 0, 2000, 2000), QString()),
    };
    CaptureWindow ownerless = window(6, QString(), QString(), QRectF(0, 0, 500, 500));
    ownerless.owningApplication.reset();
    CaptureWindow panel = window(7, QStringLiteral("g"), QStringLiteral("G"), QRectF(0, 0, 500, 500));
    panel.windowLayer = 1;
    CaptureWindow minimised = window(8, QStringLiteral("h"), QStringLiteral("H"), QRectF(0, 0, 500, 500));
    minimised.isOnScreen = false;
    windows.insert(windows.end(), { ownerless, panel, minimised });
    windows.push_back(window(9, QStringLiteral("Velotape"), QStringLiteral("Velotape"), QRectF(0, 0, 900, 900)));

    EXPECT_EQ(
        ids(WindowListFilter::pickable(windows, QStringLiteral("Velotape"), noRules)), std::vector<uint32_t> { 1 });
    // With no own identifier nothing is taken for ours.
    EXPECT_EQ(ids(WindowListFilter::pickable(windows, QString(), noRules)), (std::vector<uint32_t> { 1, 9 }));
}

TEST(WindowListFilter, SystemBundlesAndTitlePrefixes)
{
    const WindowListFilter::SystemRules rules { { QStringLiteral("Xfce4-panel") },
        { QStringLiteral("Display "), QStringLiteral("Backstop"), QStringLiteral("Item-0") } };
    const QRectF big(0, 0, 800, 600);
    const std::vector<CaptureWindow> windows {
        window(1, QStringLiteral("Xfce4-panel"), QStringLiteral("Panel"), big),
        window(2, QStringLiteral("xfce4-panel"), QStringLiteral("Panel, other case"), big), // exact equality only
        window(3, QStringLiteral("p1"), QStringLiteral("P1"), big, QStringLiteral("Display 1")),
        window(4, QStringLiteral("p2"), QStringLiteral("P2"), big, QStringLiteral("Display")),
        window(5, QStringLiteral("p3"), QStringLiteral("P3"), big, QStringLiteral("Displays")),
        window(6, QStringLiteral("p4"), QStringLiteral("P4"), big, QStringLiteral("Backstop Menubar")),
        window(7, QStringLiteral("p5"), QStringLiteral("P5"), big, QStringLiteral("Item-0")),
        window(8, QStringLiteral("p6"), QStringLiteral("P6"), big, QStringLiteral("backstop")), // case matters
    };
    EXPECT_EQ(ids(WindowListFilter::pickable(windows, QString(), rules)), (std::vector<uint32_t> { 4, 5, 8, 2 }));
}

TEST(WindowListFilter, OneWindowPerApplicationTheLargestThenSortedByNameIgnoringCase)
{
    const std::vector<CaptureWindow> windows {
        window(1, QStringLiteral("org.browser"), QStringLiteral("browser"), QRectF(0, 0, 400, 300)),
        window(2, QStringLiteral("org.editor"), QStringLiteral("Editor"), QRectF(0, 0, 100, 100)), // palette: too small
        window(3, QStringLiteral("org.browser"), QStringLiteral("browser"), QRectF(0, 0, 1200, 800)),
        window(4, QStringLiteral("org.editor"), QStringLiteral("Editor"), QRectF(0, 0, 1200, 800)),
        window(5, QStringLiteral("org.browser"), QStringLiteral("browser"), QRectF(0, 0, 800, 1200)), // equal area
        window(6, QStringLiteral("org.archive"), QStringLiteral("Archive"), QRectF(0, 0, 300, 200)),
        window(7, QStringLiteral("org.zebra"), QStringLiteral("zebra"), QRectF(0, 0, 300, 200)),
        window(8, QStringLiteral("org.cal"), QStringLiteral("Calendar"), QRectF(0, 0, 300, 200)),
    };
    // Largest per application, the first of equals; names compared without regard to case.
    EXPECT_EQ(ids(WindowListFilter::pickable(windows, QString(), noRules)), (std::vector<uint32_t> { 6, 3, 8, 4, 7 }));
}
