#include "app/session/SourceMemory.h"

#include "ScriptedScreen.h"
#include "app/AppSettings.h"
#include "capture/CaptureEngine.h"
#include "support/EventLoop.h"

#include <QLocale>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// The source memory over the scripted screen's listed displays and windows.
class SourceMemoryTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    std::shared_ptr<ScriptedScreen> screen = std::make_shared<ScriptedScreen>();
    AppSettings settings { std::make_unique<QSettings>(
        dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat) };
    CaptureEngine engine { screen };
    SourceMemory sources { settings, engine };

    void SetUp() override
    {
        engine.refreshAvailableContent();
        ASSERT_TRUE(spinUntil([&] { return !engine.availableDisplays().empty(); }));
    }
};

} // namespace

TEST_F(SourceMemoryTest, UnmatchedDescriptorsRestoreNothingAndStayStored)
{
    for (const QString& saved :
        { QStringLiteral("display:"), QStringLiteral("display:9"), QStringLiteral("window:unknown@@Orders"),
            QStringLiteral("window:firefox@@orders"), QStringLiteral("screen:1") }) {
        settings.setSavedSourceDescriptor(saved);
        engine.setSelectedSource(std::nullopt);
        sources.restoreSelectedSourceIfPossible();
        EXPECT_FALSE(engine.selectedSource()) << saved.toStdString();
        EXPECT_EQ(settings.savedSourceDescriptor(), saved);
    }
}

TEST_F(SourceMemoryTest, OutputSizeOfDisplaysWindowsAndRegions)
{
    const auto& displays = screen->content.displays;
    EXPECT_EQ(sources.outputSize(CaptureSource::display(displays[0])), QSize(1920, 1080));
    // 1280x1024 under 1080p is unchanged; under 720p the height sets the scale: 900x720.
    EXPECT_EQ(sources.outputSize(CaptureSource::display(displays[1])), QSize(1280, 1024));
    settings.setResolution(Resolution::res720);
    EXPECT_EQ(sources.outputSize(CaptureSource::display(displays[1])), QSize(900, 720));
    EXPECT_EQ(sources.outputSize(CaptureSource::window(screen->content.windows[0])), QSize(800, 600));
    EXPECT_EQ(sources.outputSize(CaptureSource::region(displays[0], QRectF(0, 0, 51, 33), 51, 33)), QSize(50, 32));

    engine.setSelectedSource(CaptureSource::region(displays[1], QRectF(10, 20, 300, 200), 300, 200));
    EXPECT_EQ(sources.sourcePointOrigin(), QPointF(1930, 20));
    EXPECT_EQ(sources.sourcePointSize(), QSizeF(300, 200));
    EXPECT_EQ(sources.sourceLabelForFilename(), QStringLiteral("Region"));
    engine.setSelectedSource(CaptureSource::display(displays[1]));
    EXPECT_EQ(sources.sourceLabelForFilename(), QStringLiteral("HDMI-1"));
}

TEST(SourceMemoryNames, ClipFileNameInTheUsersLocale)
{
    const QLocale before;
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    const QDateTime when(QDate(2026, 3, 5), QTime(14, 7, 33));
    EXPECT_EQ(SourceMemory::filename(QStringLiteral("Safari"), when), QStringLiteral("Safari, Mar 5, 14-07-33.mp4"));
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(SourceMemory::filename(QStringLiteral("Clip"), when), QStringLiteral("Clip, März 5, 14-07-33.mp4"));
    QLocale::setDefault(before);
}
