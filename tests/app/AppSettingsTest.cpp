#include "app/AppSettings.h"

#include "core/Publisher.h"

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

namespace {

// Each test gets its own settings file, so nothing touches the user's real settings.
class AppSettingsTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path() const { return dir.filePath(QStringLiteral("Velotape.conf")); }

    std::unique_ptr<QSettings> store() const { return std::make_unique<QSettings>(path(), QSettings::IniFormat); }
    std::unique_ptr<AppSettings> make() const { return std::make_unique<AppSettings>(store()); }

    // A hand-edited file, as a user would leave it.
    void writeFile(const QByteArray& text) const
    {
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("[General]\n" + text);
    }
    QVariant stored(const char* key) const { return QSettings(path(), QSettings::IniFormat).value(QLatin1String(key)); }
};

} // namespace

TEST_F(AppSettingsTest, FreshStoreWritesNothingUntilAssigned)
{
    auto settings = make();
    // Reading every default must not create the file: a user's first launch leaves no trace.
    EXPECT_EQ(settings->saveHotkey(), HotkeyBinding::defaultSave());
    EXPECT_EQ(settings->saveFolderPath(), QDir::homePath() + QStringLiteral("/Desktop"));
    settings.reset();
    EXPECT_FALSE(QFile::exists(path()));
}

TEST_F(AppSettingsTest, BadStoredValuesFallBackAndKeepTheirKeys)
{
    writeFile("vt2.frameRate=45\n"
              "vt2.resolution=8K\n"
              "vt2.cursor=hide\n"
              "vt2.areaMonitorRect=1, 2, 3\n"
              "vt2.bufferSeconds=lots\n"
              "vt2.playSound=maybe\n"
              "vt2.camera.shape=Circle\n"
              "vt2.saveHotkeyBinding=\"{\\\"enabled\\\":true,\\\"keyCode\\\":5}\"\n");
    auto settings = make();
    EXPECT_EQ(settings->frameRate(), FrameRate::fps60);
    EXPECT_EQ(settings->resolution(), Resolution::res1080);
    EXPECT_EQ(settings->cursor(), CursorMode::show);
    EXPECT_FALSE(settings->areaMonitorRect());
    EXPECT_EQ(settings->bufferSeconds(), 10.0);
    EXPECT_TRUE(settings->playSoundOnSave());
    EXPECT_EQ(settings->cameraShape(), CameraShape::roundedRect); // raw values are exact, case included
    EXPECT_EQ(settings->saveHotkey(), HotkeyBinding::defaultSave());

    // The stored values stay until the next assignment of that field.
    EXPECT_EQ(stored("vt2.frameRate").toString(), QStringLiteral("45"));
    EXPECT_EQ(stored("vt2.saveHotkeyBinding").toString(), QStringLiteral("{\"enabled\":true,\"keyCode\":5}"));
    settings->setBufferSeconds(12);
    EXPECT_EQ(stored("vt2.frameRate").toString(), QStringLiteral("45"));
    settings->setFrameRate(FrameRate::fps30);
    EXPECT_EQ(stored("vt2.frameRate").toInt(), 30);
}

TEST_F(AppSettingsTest, NonFiniteStoredNumbersFallBack)
{
    // Binary doubles, as a hand edit can leave them: NaN twice, then +infinity.
    writeFile("vt2.bufferSeconds=@Variant(\\0\\0\\0\\x6\\x7f\\xf8\\0\\0\\0\\0\\0\\0)\n"
              "vt2.frameRate=@Variant(\\0\\0\\0\\x6\\x7f\\xf8\\0\\0\\0\\0\\0\\0)\n"
              "vt2.camera.posX=@Variant(\\0\\0\\0\\x6\\x7f\\xf0\\0\\0\\0\\0\\0\\0)\n");
    ASSERT_TRUE(std::isnan(stored("vt2.bufferSeconds").toDouble()));
    auto settings = make();
    EXPECT_EQ(settings->bufferSeconds(), 10.0);
    EXPECT_EQ(settings->frameRate(), FrameRate::fps60);
    EXPECT_EQ(settings->cameraPositionX(), 0.84);
}

TEST_F(AppSettingsTest, ReadableStoredValues)
{
    writeFile("vt2.frameRate=24\n"
              "vt2.cursor=Hide\n"
              "vt2.areaMonitorRect=10.5, 20, 300, 200\n"
              "vt2.openFinder=true\n"
              "vt2.hideApp=0\n"
              "vt2.resolution=4K\n"
              "vt2.sidebarCollapsed=true\n");
    auto settings = make();
    EXPECT_EQ(settings->frameRate(), FrameRate::fps24);
    EXPECT_EQ(settings->cursor(), CursorMode::hide);
    EXPECT_EQ(settings->areaMonitorRect(), QRectF(10.5, 20, 300, 200));
    EXPECT_TRUE(settings->openFinderOnSave());
    EXPECT_FALSE(settings->hideAppInCaptures());
    EXPECT_EQ(settings->resolution(), Resolution::res2160);
    EXPECT_TRUE(settings->sidebarCollapsed());
}

TEST_F(AppSettingsTest, StoredNumbersOutOfRangeAreHeldToItWithALogLineAndStayStored)
{
    writeFile("vt2.bufferSeconds=1e308\n"
              "vt2.bitrateMbps=-4\n"
              "vt2.autoStopMinutes=1e308\n"
              "vt2.camera.posX=7\n"
              "vt2.camera.posY=0.5\n"
              "vt2.camera.size=0.0001\n"
              "vt2.areaMonitorRect=1e308, -1e308, 1e308, 0\n");
    testing::internal::CaptureStderr();
    auto settings = make();
    const QStringList log
        = QString::fromStdString(testing::internal::GetCapturedStderr()).split(u'\n', Qt::SkipEmptyParts);
    EXPECT_EQ(settings->bufferSeconds(), 120.0);
    EXPECT_EQ(settings->bitrateMbps(), 2.0);
    EXPECT_EQ(settings->autoStopMinutes(), 180.0); // the longest auto-stop, not "never"
    EXPECT_EQ(settings->cameraPositionX(), 1.0);
    EXPECT_EQ(settings->cameraPositionY(), 0.5);
    EXPECT_EQ(settings->cameraSize(), 0.04);
    EXPECT_EQ(settings->areaMonitorRect(), QRectF(32767, -32768, 65535, 1));
    // One line for each value held, naming its key; none for the value in range.
    ASSERT_EQ(log.size(), 6) << log.join(u'\n').toStdString();
    for (const char* key : { "vt2.bufferSeconds = 1e+308", "vt2.bitrateMbps = -4", "vt2.autoStopMinutes = 1e+308",
             "vt2.camera.posX = 7", "vt2.camera.size = 0.0001", "vt2.areaMonitorRect = 1e+308, -1e+308, 1e+308, 0" })
        EXPECT_EQ(log.filter(QLatin1String(key)).size(), 1) << key;
    // Reading rewrites nothing.
    settings.reset();
    EXPECT_EQ(stored("vt2.bufferSeconds").toString(), QStringLiteral("1e308"));
    EXPECT_EQ(stored("vt2.autoStopMinutes").toString(), QStringLiteral("1e308"));
    EXPECT_EQ(stored("vt2.camera.size").toString(), QStringLiteral("0.0001"));
}

TEST_F(AppSettingsTest, StudioOverNativeSixtyAssignsOnlyTheBitrate)
{
    auto settings = make();
    settings->setResolution(Resolution::native);
    settings->setFrameRate(FrameRate::fps60);
    int resolutionChanges = 0, frameRateChanges = 0, bitrateChanges = 0;
    QObject::connect(settings.get(), &AppSettings::resolutionChanged, [&] { ++resolutionChanges; });
    QObject::connect(settings.get(), &AppSettings::frameRateChanged, [&] { ++frameRateChanges; });
    QObject::connect(settings.get(), &AppSettings::bitrateMbpsChanged, [&] { ++bitrateChanges; });

    settings->setQualityMode(QualityMode::studio);
    EXPECT_EQ(resolutionChanges, 0);
    EXPECT_EQ(frameRateChanges, 0);
    EXPECT_EQ(bitrateChanges, 1);
    EXPECT_EQ(settings->bitrateMbps(), 60.0);

    // A preset from manual 1080p/60 changes all three; back to manual leaves them.
    settings->setQualityMode(QualityMode::manual);
    settings->setResolution(Resolution::res1080);
    settings->setQualityMode(QualityMode::discord);
    EXPECT_EQ(settings->resolution(), Resolution::native);
    EXPECT_EQ(settings->frameRate(), FrameRate::fps30);
    EXPECT_EQ(settings->bitrateMbps(), 3.0);
    settings->setQualityMode(QualityMode::manual);
    EXPECT_EQ(settings->resolution(), Resolution::native);
    EXPECT_EQ(settings->frameRate(), FrameRate::fps30);
    EXPECT_EQ(settings->bitrateMbps(), 3.0);
}

TEST_F(AppSettingsTest, PresetIsNotAppliedAtCreation)
{
    writeFile("vt2.qualityMode=social\nvt2.resolution=720p\n");
    auto settings = make();
    EXPECT_EQ(settings->qualityMode(), QualityMode::social);
    EXPECT_EQ(settings->resolution(), Resolution::res720);
}

TEST_F(AppSettingsTest, EveryFieldSurvivesARoundTrip)
{
    const HotkeyBinding arm { true, 38, QStringLiteral("a"), HotkeyBinding::optionBit | HotkeyBinding::shiftBit };
    QByteArray signature(256, '\0');
    for (int i = 0; i < 256; ++i)
        signature[i] = char(i);
    {
        auto s = make();
        s->setBufferSeconds(25.5);
        s->setResolution(Resolution::res1440);
        s->setFrameRate(FrameRate::fps120);
        s->setBitrateMbps(7.25);
        s->setCursor(CursorMode::hide);
        s->setSaveFolderPath(QStringLiteral("/tmp/clips, with comma"));
        s->setOpenFinderOnSave(true);
        s->setPlaySoundOnSave(false);
        s->setAutoStopMinutes(1.5);
        s->setHideAppInCaptures(false);
        s->setArmHotkey(arm);
        s->setCameraEnabled(true);
        s->setCameraShape(CameraShape::rect);
        s->setCameraFrameStyle(CameraFrameStyle::tactical);
        s->setCameraFrameEnabled(true);
        s->setCameraPositionX(0.1);
        s->setCameraPositionY(0.2);
        s->setCameraSize(0.3);
        s->setCameraDeviceID(QStringLiteral("/dev/video0"));
        s->setMicrophoneEnabled(true);
        s->setMicrophoneDeviceID(QStringLiteral("alsa_input.usb"));
        s->setSystemAudioEnabled(true);
        s->setAreaMonitorRect(QRectF(-100.25, 50, 640, 480));
        s->setAreaSensitivity(AreaSensitivity::high);
        s->setAreaOverlayStyle(AreaOverlayStyle::tactical);
        s->setAreaOverlayEnabled(false);
        s->setAreaReferenceSignature(signature);
        s->setSavedSourceDescriptor(QStringLiteral("window:org.app@@Chart: BTC@@1m"));
        s->setSavedCaptureMode(QStringLiteral("areaMonitor"));
        s->setQualityMode(QualityMode::manual);
    }
    auto s = make();
    EXPECT_EQ(s->bufferSeconds(), 25.5);
    EXPECT_EQ(s->resolution(), Resolution::res1440);
    EXPECT_EQ(s->frameRate(), FrameRate::fps120);
    EXPECT_EQ(s->bitrateMbps(), 7.25);
    EXPECT_EQ(s->cursor(), CursorMode::hide);
    EXPECT_EQ(s->saveFolderPath(), QStringLiteral("/tmp/clips, with comma"));
    EXPECT_TRUE(s->openFinderOnSave());
    EXPECT_FALSE(s->playSoundOnSave());
    EXPECT_EQ(s->autoStopMinutes(), 1.5);
    EXPECT_FALSE(s->hideAppInCaptures());
    EXPECT_EQ(s->saveHotkey(), HotkeyBinding::defaultSave());
    EXPECT_EQ(s->armHotkey(), arm);
    EXPECT_TRUE(s->cameraEnabled());
    EXPECT_EQ(s->cameraShape(), CameraShape::rect);
    EXPECT_EQ(s->cameraFrameStyle(), CameraFrameStyle::tactical);
    EXPECT_TRUE(s->cameraFrameEnabled());
    EXPECT_EQ(s->cameraPositionX(), 0.1);
    EXPECT_EQ(s->cameraPositionY(), 0.2);
    EXPECT_EQ(s->cameraSize(), 0.3);
    EXPECT_EQ(s->cameraDeviceID(), QStringLiteral("/dev/video0"));
    EXPECT_TRUE(s->microphoneEnabled());
    EXPECT_EQ(s->microphoneDeviceID(), QStringLiteral("alsa_input.usb"));
    EXPECT_TRUE(s->systemAudioEnabled());
    EXPECT_EQ(s->areaMonitorRect(), QRectF(-100.25, 50, 640, 480));
    EXPECT_EQ(s->areaSensitivity(), AreaSensitivity::high);
    EXPECT_EQ(s->areaOverlayStyle(), AreaOverlayStyle::tactical);
    EXPECT_FALSE(s->areaOverlayEnabled());
    EXPECT_EQ(s->areaReferenceSignature(), signature);
    EXPECT_EQ(s->savedSourceDescriptor(), QStringLiteral("window:org.app@@Chart: BTC@@1m"));
    EXPECT_EQ(s->savedCaptureMode(), QStringLiteral("areaMonitor"));
    EXPECT_EQ(s->effectiveCameraFrameStyle(), CameraFrameStyle::tactical);
    EXPECT_DOUBLE_EQ(s->cameraAspect(), 16.0 / 9.0);

    // Clearing an optional removes its key.
    s->setAreaMonitorRect(std::nullopt);
    s->setCameraDeviceID(std::nullopt);
    EXPECT_FALSE(QSettings(path(), QSettings::IniFormat).contains(QStringLiteral("vt2.areaMonitorRect")));
    EXPECT_FALSE(QSettings(path(), QSettings::IniFormat).contains(QStringLiteral("vt2.camera.deviceID")));
    EXPECT_FALSE(make()->areaMonitorRect());
}

TEST_F(AppSettingsTest, AssignmentNotifiesBeforeItWrites)
{
    auto settings = make();
    QVariant storedWhenNotified = QStringLiteral("unset");
    QObject::connect(
        settings.get(), &AppSettings::bufferSecondsChanged, [&] { storedWhenNotified = stored("vt2.bufferSeconds"); });
    settings->setBufferSeconds(30);
    EXPECT_FALSE(storedWhenNotified.isValid()) << "the key was written before observers heard of the change";
    EXPECT_EQ(stored("vt2.bufferSeconds").toDouble(), 30.0);
}

TEST(HotkeyBinding, JsonFormAndItsFailures)
{
    const HotkeyBinding binding = HotkeyBinding::defaultSave();
    EXPECT_EQ(HotkeyBinding::fromJson(binding.toJson()), binding);
    EXPECT_EQ(binding.toJson(), QByteArray(R"({"enabled":true,"keyChar":"r","keyCode":27,"modifierRaw":1179648})"));
    // Unknown keys are ignored.
    EXPECT_TRUE(HotkeyBinding::fromJson(R"({"enabled":false,"keyCode":1,"keyChar":"x","modifierRaw":0,"extra":[1]})"));
    // Each of the four keys is required, with its type; key codes are 16-bit.
    EXPECT_FALSE(HotkeyBinding::fromJson(R"({"enabled":true,"keyCode":1,"keyChar":"x"})"));
    EXPECT_FALSE(HotkeyBinding::fromJson(R"({"enabled":"yes","keyCode":1,"keyChar":"x","modifierRaw":0})"));
    EXPECT_FALSE(HotkeyBinding::fromJson(R"({"enabled":true,"keyCode":65536,"keyChar":"x","modifierRaw":0})"));
    EXPECT_FALSE(HotkeyBinding::fromJson(R"({"enabled":true,"keyCode":1.5,"keyChar":"x","modifierRaw":0})"));
    EXPECT_FALSE(HotkeyBinding::fromJson(R"({"enabled":true,"keyCode":1,"keyChar":"x","modifierRaw":-1})"));
    EXPECT_FALSE(HotkeyBinding::fromJson("not json"));
    EXPECT_FALSE(HotkeyBinding::fromJson("[1,2]"));
}

TEST(SettingsEnums, StoredValuesAreReadStrictly)
{
    EXPECT_EQ(fromRawValue<QualityMode>(QStringLiteral("Studio")), std::nullopt);
    EXPECT_EQ(fromRawValue<QualityMode>(QStringLiteral("studio")), QualityMode::studio);
    for (long long stored : { 0LL, 45LL, 60LL, -24LL, 1000LL })
        EXPECT_EQ(frameRateFromStoredInteger(stored), FrameRate::fps60) << stored;
    EXPECT_EQ(frameRateFromStoredInteger(120), FrameRate::fps120);
}

TEST_F(AppSettingsTest, PublisherOfAPropertyFollowsIt)
{
    auto settings = make();
    QObject context;
    std::vector<double> seen;
    observe(settings.get(), &AppSettings::bufferSeconds, &AppSettings::bufferSecondsChanged)
        .sink(&context, [&](double v) { seen.push_back(v); });
    settings->setBufferSeconds(15);
    EXPECT_EQ(seen, (std::vector<double> { 10.0, 15.0 }));
}

TEST_F(AppSettingsTest, AnEmptyOrRelativeSaveFolderIsRefusedWithAMessageAndTheDefaultIsUsed)
{
    const QString fallback = AppSettings::defaultSaveFolderPath();
    for (const auto& [stored, message] :
        { std::pair { QByteArray("vt2.savePath=\n"), QStringLiteral("No save folder is set; clips go to %1.") },
            std::pair { QByteArray("vt2.savePath=clips/today\n"),
                QStringLiteral("The save folder \"clips/today\" is not a full path; clips go to %1.") } }) {
        SCOPED_TRACE(stored.toStdString());
        writeFile(stored);
        testing::internal::CaptureStderr();
        auto settings = make();
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_EQ(settings->saveFolderPath(), fallback);
        EXPECT_EQ(settings->refusedSaveFolder(), message.arg(fallback));
        EXPECT_NE(log.find("vt2.savePath"), std::string::npos) << log;
        // The setter refuses the same, and a full path assigned later is taken and ends the refusal.
        settings->setSaveFolderPath(QStringLiteral("elsewhere"));
        EXPECT_EQ(settings->saveFolderPath(), fallback);
        settings->setSaveFolderPath(dir.filePath(QStringLiteral("clips")));
        EXPECT_EQ(settings->saveFolderPath(), dir.filePath(QStringLiteral("clips")));
        EXPECT_EQ(settings->refusedSaveFolder(), std::nullopt);
    }
}

TEST_F(AppSettingsTest, AnAutoStopTooShortNegativeOrNotANumberMeansNever)
{
    // A file each: the settings store caches files it has read by their path and time.
    const auto read = [&](const char* stored) {
        const QString file = dir.filePath(QStringLiteral("autostop-%1.conf").arg(QLatin1String(stored)));
        QSettings(file, QSettings::IniFormat).setValue("vt2.autoStopMinutes", QLatin1String(stored));
        return AppSettings(std::make_unique<QSettings>(file, QSettings::IniFormat)).autoStopMinutes();
    };
    for (const char* stored : { "1e-300", "0.5", "-3", "nan", "inf" }) {
        SCOPED_TRACE(stored);
        EXPECT_EQ(read(stored), 0.0);
    }
    EXPECT_EQ(read("1.5"), 1.5);
}
