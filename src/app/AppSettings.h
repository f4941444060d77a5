#pragma once

#include "app/SettingsReader.h"
#include "core/HotkeyBinding.h"
#include "core/SettingsEnums.h"

#include <QByteArray>
#include <QObject>
#include <QRectF>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

class QSettings;

// Everything the user can change and everything the program remembers between launches, one
// setting key each under "vt2.". Every value is read once, when the object is made; each assignment
// updates the value, notifies, then writes its key at once. A stored value that can't be read falls
// back to its default silently and its key is left alone. A stored number outside its range below
// (a hand-edited file) is held to the range when read, with a line in the log, and its key is left
// alone too; assignments are not checked, the settings screen's controls have these ranges, but for the
// save folder, which must be a full path.
//
// Main thread only. Closures elsewhere (the recorder's camera provider) read fields by plain access.
class AppSettings : public QObject {
    Q_OBJECT

    Q_PROPERTY(double bufferSeconds READ bufferSeconds WRITE setBufferSeconds NOTIFY bufferSecondsChanged)
    Q_PROPERTY(Resolution resolution READ resolution WRITE setResolution NOTIFY resolutionChanged)
    Q_PROPERTY(FrameRate frameRate READ frameRate WRITE setFrameRate NOTIFY frameRateChanged)
    Q_PROPERTY(double bitrateMbps READ bitrateMbps WRITE setBitrateMbps NOTIFY bitrateMbpsChanged)
    Q_PROPERTY(QualityMode qualityMode READ qualityMode WRITE setQualityMode NOTIFY qualityModeChanged)
    Q_PROPERTY(CursorMode cursor READ cursor WRITE setCursor NOTIFY cursorChanged)
    Q_PROPERTY(QString saveFolderPath READ saveFolderPath WRITE setSaveFolderPath NOTIFY saveFolderPathChanged)
    Q_PROPERTY(bool openFinderOnSave READ openFinderOnSave WRITE setOpenFinderOnSave NOTIFY openFinderOnSaveChanged)
    Q_PROPERTY(bool playSoundOnSave READ playSoundOnSave WRITE setPlaySoundOnSave NOTIFY playSoundOnSaveChanged)
    Q_PROPERTY(double autoStopMinutes READ autoStopMinutes WRITE setAutoStopMinutes NOTIFY autoStopMinutesChanged)
    Q_PROPERTY(bool hideAppInCaptures READ hideAppInCaptures WRITE setHideAppInCaptures NOTIFY hideAppInCapturesChanged)
    Q_PROPERTY(HotkeyBinding saveHotkey READ saveHotkey WRITE setSaveHotkey NOTIFY saveHotkeyChanged)
    Q_PROPERTY(HotkeyBinding armHotkey READ armHotkey WRITE setArmHotkey NOTIFY armHotkeyChanged)
    Q_PROPERTY(bool cameraEnabled READ cameraEnabled WRITE setCameraEnabled NOTIFY cameraEnabledChanged)
    Q_PROPERTY(CameraShape cameraShape READ cameraShape WRITE setCameraShape NOTIFY cameraShapeChanged)
    Q_PROPERTY(CameraFrameStyle cameraFrameStyle READ cameraFrameStyle WRITE setCameraFrameStyle NOTIFY
            cameraFrameStyleChanged)
    Q_PROPERTY(
        bool cameraFrameEnabled READ cameraFrameEnabled WRITE setCameraFrameEnabled NOTIFY cameraFrameEnabledChanged)
    Q_PROPERTY(double cameraPositionX READ cameraPositionX WRITE setCameraPositionX NOTIFY cameraPositionXChanged)
    Q_PROPERTY(double cameraPositionY READ cameraPositionY WRITE setCameraPositionY NOTIFY cameraPositionYChanged)
    Q_PROPERTY(double cameraSize READ cameraSize WRITE setCameraSize NOTIFY cameraSizeChanged)
    Q_PROPERTY(
        std::optional<QString> cameraDeviceID READ cameraDeviceID WRITE setCameraDeviceID NOTIFY cameraDeviceIDChanged)
    Q_PROPERTY(bool microphoneEnabled READ microphoneEnabled WRITE setMicrophoneEnabled NOTIFY microphoneEnabledChanged)
    Q_PROPERTY(std::optional<QString> microphoneDeviceID READ microphoneDeviceID WRITE setMicrophoneDeviceID NOTIFY
            microphoneDeviceIDChanged)
    Q_PROPERTY(
        bool systemAudioEnabled READ systemAudioEnabled WRITE setSystemAudioEnabled NOTIFY systemAudioEnabledChanged)
    Q_PROPERTY(std::optional<QRectF> areaMonitorRect READ areaMonitorRect WRITE setAreaMonitorRect NOTIFY
            areaMonitorRectChanged)
    Q_PROPERTY(
        AreaSensitivity areaSensitivity READ areaSensitivity WRITE setAreaSensitivity NOTIFY areaSensitivityChanged)
    Q_PROPERTY(AreaOverlayStyle areaOverlayStyle READ areaOverlayStyle WRITE setAreaOverlayStyle NOTIFY
            areaOverlayStyleChanged)
    Q_PROPERTY(
        bool areaOverlayEnabled READ areaOverlayEnabled WRITE setAreaOverlayEnabled NOTIFY areaOverlayEnabledChanged)
    Q_PROPERTY(std::optional<QByteArray> areaReferenceSignature READ areaReferenceSignature WRITE
            setAreaReferenceSignature NOTIFY areaReferenceSignatureChanged)
    Q_PROPERTY(std::optional<QString> savedSourceDescriptor READ savedSourceDescriptor WRITE setSavedSourceDescriptor
            NOTIFY savedSourceDescriptorChanged)
    Q_PROPERTY(QString savedCaptureMode READ savedCaptureMode WRITE setSavedCaptureMode NOTIFY savedCaptureModeChanged)
    Q_PROPERTY(bool sidebarCollapsed READ sidebarCollapsed CONSTANT)
    Q_PROPERTY(bool keepRunningInTray READ keepRunningInTray WRITE setKeepRunningInTray NOTIFY keepRunningInTrayChanged)

public:
    // The default store: QSettings of organisation "Velotape", application "Velotape".
    explicit AppSettings(QObject* parent = nullptr);
    // A given store (tests use a private file). Takes ownership.
    explicit AppSettings(std::unique_ptr<QSettings> store, QObject* parent = nullptr);
    ~AppSettings() override;

    static QString defaultSaveFolderPath();
    // Why `path` cannot be the save folder (empty, or relative, which would land clips wherever the
    // program happened to be started), as a message for the user; none when it can.
    static std::optional<QString> saveFolderProblem(const QString& path);

    // What a stored number may be. The first four are the ranges of the settings screen's sliders.
    static constexpr SettingsReader::Range bufferSecondsRange { 3, 120 };
    static constexpr SettingsReader::Range bitrateMbpsRange { 2, 100 };
    static constexpr SettingsReader::Range autoStopMinutesRange { 0, 180 }; // 0: never
    // A shorter auto-stop than this would end every recording as it begins (and its toast would
    // say "after 0 min"): a stored value below it but above 0 counts as a bad value.
    static constexpr double shortestAutoStopMinutes = 1.0;
    static constexpr SettingsReader::Range cameraSizeRange { 0.04, 0.4 };
    // The bubble's centre as a fraction of the source's width and height.
    static constexpr SettingsReader::Range cameraPositionRange { 0, 1 };
    // The watched area: a corner and a size that an X screen (16-bit coordinates) can hold.
    static constexpr SettingsReader::Range areaCornerRange { -32768, 32767 };
    static constexpr SettingsReader::Range areaLengthRange { 1, 65535 };

    double bufferSeconds() const { return bufferSecondsValue; }
    Resolution resolution() const { return resolutionValue; }
    FrameRate frameRate() const { return frameRateValue; }
    double bitrateMbps() const { return bitrateMbpsValue; }
    QualityMode qualityMode() const { return qualityModeValue; }
    CursorMode cursor() const { return cursorValue; }
    QString saveFolderPath() const { return saveFolderPathValue; }
    // Why the stored save folder was refused at start (the default is used instead); none when it
    // was taken. Cleared by the next assignment that is taken.
    std::optional<QString> refusedSaveFolder() const { return refusedSaveFolderValue; }
    bool openFinderOnSave() const { return openFinderOnSaveValue; }
    bool playSoundOnSave() const { return playSoundOnSaveValue; }
    double autoStopMinutes() const { return autoStopMinutesValue; }
    bool hideAppInCaptures() const { return hideAppInCapturesValue; }
    HotkeyBinding saveHotkey() const { return saveHotkeyValue; }
    HotkeyBinding armHotkey() const { return armHotkeyValue; }
    bool cameraEnabled() const { return cameraEnabledValue; }
    CameraShape cameraShape() const { return cameraShapeValue; }
    CameraFrameStyle cameraFrameStyle() const { return cameraFrameStyleValue; }
    bool cameraFrameEnabled() const { return cameraFrameEnabledValue; }
    double cameraPositionX() const { return cameraPositionXValue; }
    double cameraPositionY() const { return cameraPositionYValue; }
    double cameraSize() const { return cameraSizeValue; }
    std::optional<QString> cameraDeviceID() const { return cameraDeviceIDValue; }
    bool microphoneEnabled() const { return microphoneEnabledValue; }
    std::optional<QString> microphoneDeviceID() const { return microphoneDeviceIDValue; }
    bool systemAudioEnabled() const { return systemAudioEnabledValue; }
    std::optional<QRectF> areaMonitorRect() const { return areaMonitorRectValue; }
    AreaSensitivity areaSensitivity() const { return areaSensitivityValue; }
    AreaOverlayStyle areaOverlayStyle() const { return areaOverlayStyleValue; }
    bool areaOverlayEnabled() const { return areaOverlayEnabledValue; }
    std::optional<QByteArray> areaReferenceSignature() const { return areaReferenceSignatureValue; }
    std::optional<QString> savedSourceDescriptor() const { return savedSourceDescriptorValue; }
    QString savedCaptureMode() const { return savedCaptureModeValue; }
    bool sidebarCollapsed() const { return sidebarCollapsedValue; }
    // Closing the window leaves the recorder running in the tray, where the desktop has one.
    bool keepRunningInTray() const { return keepRunningInTrayValue; }

    void setBufferSeconds(double value);
    void setResolution(Resolution value);
    void setFrameRate(FrameRate value);
    void setBitrateMbps(double value);
    void setQualityMode(QualityMode value);
    void setCursor(CursorMode value);
    void setSaveFolderPath(const QString& value);
    void setOpenFinderOnSave(bool value);
    void setPlaySoundOnSave(bool value);
    void setAutoStopMinutes(double value);
    void setHideAppInCaptures(bool value);
    void setKeepRunningInTray(bool value);
    void setSaveHotkey(const HotkeyBinding& value);
    void setArmHotkey(const HotkeyBinding& value);
    void setCameraEnabled(bool value);
    void setCameraShape(CameraShape value);
    void setCameraFrameStyle(CameraFrameStyle value);
    void setCameraFrameEnabled(bool value);
    void setCameraPositionX(double value);
    void setCameraPositionY(double value);
    void setCameraSize(double value);
    void setCameraDeviceID(const std::optional<QString>& value);
    void setMicrophoneEnabled(bool value);
    void setMicrophoneDeviceID(const std::optional<QString>& value);
    void setSystemAudioEnabled(bool value);
    void setAreaMonitorRect(const std::optional<QRectF>& value);
    void setAreaSensitivity(AreaSensitivity value);
    void setAreaOverlayStyle(AreaOverlayStyle value);
    void setAreaOverlayEnabled(bool value);
    void setAreaReferenceSignature(const std::optional<QByteArray>& value);
    void setSavedSourceDescriptor(const std::optional<QString>& value);
    void setSavedCaptureMode(const QString& value);

    // Derived camera values: the overlay's aspect and corner fraction for the shape, and the frame
    // style only while the frame is switched on.
    double cameraAspect() const;
    double cameraCornerFraction() const;
    std::optional<CameraFrameStyle> effectiveCameraFrameStyle() const;

signals:
    void bufferSecondsChanged();
    void resolutionChanged();
    void frameRateChanged();
    void bitrateMbpsChanged();
    void qualityModeChanged();
    void cursorChanged();
    void saveFolderPathChanged();
    void openFinderOnSaveChanged();
    void playSoundOnSaveChanged();
    void autoStopMinutesChanged();
    void hideAppInCapturesChanged();
    void keepRunningInTrayChanged();
    void saveHotkeyChanged();
    void armHotkeyChanged();
    void cameraEnabledChanged();
    void cameraShapeChanged();
    void cameraFrameStyleChanged();
    void cameraFrameEnabledChanged();
    void cameraPositionXChanged();
    void cameraPositionYChanged();
    void cameraSizeChanged();
    void cameraDeviceIDChanged();
    void microphoneEnabledChanged();
    void microphoneDeviceIDChanged();
    void systemAudioEnabledChanged();
    void areaMonitorRectChanged();
    void areaSensitivityChanged();
    void areaOverlayStyleChanged();
    void areaOverlayEnabledChanged();
    void areaReferenceSignatureChanged();
    void savedSourceDescriptorChanged();
    void savedCaptureModeChanged();

private:
    void load();
    void applyQualityPreset();
    void write(const char* key, const QVariant& value);
    // An absent value removes the key.
    void writeOrRemove(const char* key, const std::optional<QVariant>& value);
    template <typename T> void writeOrRemove(const char* key, const std::optional<T>& value)
    {
        writeOrRemove(key, value ? std::optional(QVariant::fromValue(*value)) : std::nullopt);
    }

    std::unique_ptr<QSettings> store;

    double bufferSecondsValue = 10.0;
    Resolution resolutionValue = Resolution::res1080;
    FrameRate frameRateValue = FrameRate::fps60;
    double bitrateMbpsValue = 20.0;
    QualityMode qualityModeValue = QualityMode::manual;
    CursorMode cursorValue = CursorMode::show;
    QString saveFolderPathValue = defaultSaveFolderPath();
    std::optional<QString> refusedSaveFolderValue;
    bool openFinderOnSaveValue = false;
    bool playSoundOnSaveValue = true;
    double autoStopMinutesValue = 0.0;
    bool hideAppInCapturesValue = true;
    HotkeyBinding saveHotkeyValue = HotkeyBinding::defaultSave();
    HotkeyBinding armHotkeyValue = HotkeyBinding::defaultArm();
    bool cameraEnabledValue = false;
    CameraShape cameraShapeValue = CameraShape::roundedRect;
    CameraFrameStyle cameraFrameStyleValue = CameraFrameStyle::soft;
    bool cameraFrameEnabledValue = false;
    double cameraPositionXValue = 0.84;
    double cameraPositionYValue = 0.82;
    double cameraSizeValue = 0.12;
    std::optional<QString> cameraDeviceIDValue = std::nullopt;
    bool microphoneEnabledValue = false;
    std::optional<QString> microphoneDeviceIDValue = std::nullopt;
    bool systemAudioEnabledValue = false;
    std::optional<QRectF> areaMonitorRectValue = std::nullopt;
    AreaSensitivity areaSensitivityValue = AreaSensitivity::medium;
    AreaOverlayStyle areaOverlayStyleValue = AreaOverlayStyle::glass;
    bool areaOverlayEnabledValue = true;
    std::optional<QByteArray> areaReferenceSignatureValue = std::nullopt;
    std::optional<QString> savedSourceDescriptorValue = std::nullopt;
    QString savedCaptureModeValue = QStringLiteral("manual");
    bool sidebarCollapsedValue = false;
    bool keepRunningInTrayValue = true;
};
