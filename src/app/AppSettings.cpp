#include "app/AppSettings.h"

#include "core/Log.h"

#include <QDir>
#include <QSettings>

AppSettings::AppSettings(QObject* parent)
    : AppSettings(std::make_unique<QSettings>(QStringLiteral("Velotape"), QStringLiteral("Velotape")), parent)
{
}

AppSettings::AppSettings(std::unique_ptr<QSettings> settingsStore, QObject* parent)
    : QObject(parent)
    , store(std::move(settingsStore))
{
    load();
}

AppSettings::~AppSettings() = default;

QString AppSettings::defaultSaveFolderPath()
{
    return QDir::homePath() + QStringLiteral("/Desktop");
}

std::optional<QString> AppSettings::saveFolderProblem(const QString& path)
{
    if (path.trimmed().isEmpty())
        return QStringLiteral("No save folder is set; clips go to %1.").arg(defaultSaveFolderPath());
    if (QDir::isRelativePath(path))
        return QStringLiteral("The save folder \"%1\" is not a full path; clips go to %2.")
            .arg(path, defaultSaveFolderPath());
    return std::nullopt;
}

// Reads every key once, in the order of the fields; a value that can't be read keeps the default,
// and a number out of its range is held to it (one log line each).
void AppSettings::load()
{
    const SettingsReader read(*store);
    bufferSecondsValue = read.readDouble("vt2.bufferSeconds", bufferSecondsRange).value_or(bufferSecondsValue);
    resolutionValue = fromRawValue<Resolution>(read.rawString("vt2.resolution")).value_or(resolutionValue);
    frameRateValue = frameRateFromStoredInteger(read.integer("vt2.frameRate"));
    bitrateMbpsValue = read.readDouble("vt2.bitrateMbps", bitrateMbpsRange).value_or(bitrateMbpsValue);
    qualityModeValue = fromRawValue<QualityMode>(read.rawString("vt2.qualityMode")).value_or(qualityModeValue);
    cursorValue = read.rawString("vt2.cursor") == QStringLiteral("Hide") ? CursorMode::hide : CursorMode::show;
    if (const std::optional<QString> stored = read.readString("vt2.savePath")) {
        refusedSaveFolderValue = saveFolderProblem(*stored);
        if (refusedSaveFolderValue)
            logLine(
                QStringLiteral("Settings: vt2.savePath = \"%1\" refused: %2").arg(*stored, *refusedSaveFolderValue));
        else
            saveFolderPathValue = *stored;
    }
    openFinderOnSaveValue = read.readBool("vt2.openFinder").value_or(openFinderOnSaveValue);
    playSoundOnSaveValue = read.readBool("vt2.playSound").value_or(playSoundOnSaveValue);
    if (const std::optional<double> minutes = read.readDouble("vt2.autoStopMinutes", autoStopMinutesRange)) {
        if (*minutes > 0 && *minutes < shortestAutoStopMinutes)
            logLine(QStringLiteral("Settings: vt2.autoStopMinutes = %1 is shorter than %2 min; using never")
                        .arg(*minutes)
                        .arg(shortestAutoStopMinutes));
        else
            autoStopMinutesValue = *minutes;
    }
    hideAppInCapturesValue = read.readBool("vt2.hideApp").value_or(hideAppInCapturesValue);
    saveHotkeyValue = read.hotkey("vt2.saveHotkeyBinding").value_or(saveHotkeyValue);
    armHotkeyValue = read.hotkey("vt2.armHotkeyBinding").value_or(armHotkeyValue);
    cameraEnabledValue = read.readBool("vt2.camera.enabled").value_or(cameraEnabledValue);
    cameraShapeValue = fromRawValue<CameraShape>(read.rawString("vt2.camera.shape")).value_or(cameraShapeValue);
    cameraFrameStyleValue
        = fromRawValue<CameraFrameStyle>(read.rawString("vt2.camera.frameStyle")).value_or(cameraFrameStyleValue);
    cameraFrameEnabledValue = read.readBool("vt2.camera.frameEnabled").value_or(cameraFrameEnabledValue);
    cameraPositionXValue = read.readDouble("vt2.camera.posX", cameraPositionRange).value_or(cameraPositionXValue);
    cameraPositionYValue = read.readDouble("vt2.camera.posY", cameraPositionRange).value_or(cameraPositionYValue);
    cameraSizeValue = read.readDouble("vt2.camera.size", cameraSizeRange).value_or(cameraSizeValue);
    cameraDeviceIDValue = read.readString("vt2.camera.deviceID");
    microphoneEnabledValue = read.readBool("vt2.mic.enabled").value_or(microphoneEnabledValue);
    microphoneDeviceIDValue = read.readString("vt2.mic.deviceID");
    systemAudioEnabledValue = read.readBool("vt2.systemAudio.enabled").value_or(systemAudioEnabledValue);
    areaMonitorRectValue = read.rect("vt2.areaMonitorRect", areaCornerRange, areaLengthRange);
    areaSensitivityValue
        = fromRawValue<AreaSensitivity>(read.rawString("vt2.areaSensitivity")).value_or(areaSensitivityValue);
    areaOverlayStyleValue
        = fromRawValue<AreaOverlayStyle>(read.rawString("vt2.areaOverlayStyle")).value_or(areaOverlayStyleValue);
    areaOverlayEnabledValue = read.readBool("vt2.areaOverlayEnabled").value_or(areaOverlayEnabledValue);
    areaReferenceSignatureValue = read.data("vt2.areaReferenceSignature");
    savedSourceDescriptorValue = read.readString("vt2.savedSourceDescriptor");
    savedCaptureModeValue = read.readString("vt2.savedCaptureMode").value_or(savedCaptureModeValue);
    sidebarCollapsedValue = read.readBool("vt2.sidebarCollapsed").value_or(sidebarCollapsedValue);
    keepRunningInTrayValue = read.readBool("vt2.keepRunningInTray").value_or(keepRunningInTrayValue);
}

void AppSettings::setBufferSeconds(double value)
{
    bufferSecondsValue = value;
    emit bufferSecondsChanged();
    write("vt2.bufferSeconds", value);
}

void AppSettings::setResolution(Resolution value)
{
    resolutionValue = value;
    emit resolutionChanged();
    write("vt2.resolution", rawValue(value));
}

void AppSettings::setFrameRate(FrameRate value)
{
    frameRateValue = value;
    emit frameRateChanged();
    write("vt2.frameRate", framesPerSecond(value));
}

void AppSettings::setBitrateMbps(double value)
{
    bitrateMbpsValue = value;
    emit bitrateMbpsChanged();
    write("vt2.bitrateMbps", value);
}

void AppSettings::setQualityMode(QualityMode value)
{
    qualityModeValue = value;
    emit qualityModeChanged();
    write("vt2.qualityMode", rawValue(value));
    applyQualityPreset();
}

void AppSettings::setCursor(CursorMode value)
{
    cursorValue = value;
    emit cursorChanged();
    write("vt2.cursor", rawValue(value));
}

void AppSettings::setSaveFolderPath(const QString& value)
{
    if (const std::optional<QString> problem = saveFolderProblem(value)) {
        logLine(QStringLiteral("Settings: save folder \"%1\" refused: %2").arg(value, *problem));
        return;
    }
    refusedSaveFolderValue.reset();
    saveFolderPathValue = value;
    emit saveFolderPathChanged();
    write("vt2.savePath", value);
}

void AppSettings::setOpenFinderOnSave(bool value)
{
    openFinderOnSaveValue = value;
    emit openFinderOnSaveChanged();
    write("vt2.openFinder", value);
}

void AppSettings::setPlaySoundOnSave(bool value)
{
    playSoundOnSaveValue = value;
    emit playSoundOnSaveChanged();
    write("vt2.playSound", value);
}

void AppSettings::setAutoStopMinutes(double value)
{
    autoStopMinutesValue = value;
    emit autoStopMinutesChanged();
    write("vt2.autoStopMinutes", value);
}

void AppSettings::setHideAppInCaptures(bool value)
{
    hideAppInCapturesValue = value;
    emit hideAppInCapturesChanged();
    write("vt2.hideApp", value);
}

void AppSettings::setKeepRunningInTray(bool value)
{
    keepRunningInTrayValue = value;
    emit keepRunningInTrayChanged();
    write("vt2.keepRunningInTray", value);
}

void AppSettings::setSaveHotkey(const HotkeyBinding& value)
{
    saveHotkeyValue = value;
    emit saveHotkeyChanged();
    write("vt2.saveHotkeyBinding", value.toJson());
}

void AppSettings::setArmHotkey(const HotkeyBinding& value)
{
    armHotkeyValue = value;
    emit armHotkeyChanged();
    write("vt2.armHotkeyBinding", value.toJson());
}

void AppSettings::setCameraEnabled(bool value)
{
    cameraEnabledValue = value;
    emit cameraEnabledChanged();
    write("vt2.camera.enabled", value);
}

void AppSettings::setCameraShape(CameraShape value)
{
    cameraShapeValue = value;
    emit cameraShapeChanged();
    write("vt2.camera.shape", rawValue(value));
}

void AppSettings::setCameraFrameStyle(CameraFrameStyle value)
{
    cameraFrameStyleValue = value;
    emit cameraFrameStyleChanged();
    write("vt2.camera.frameStyle", rawValue(value));
}

void AppSettings::setCameraFrameEnabled(bool value)
{
    cameraFrameEnabledValue = value;
    emit cameraFrameEnabledChanged();
    write("vt2.camera.frameEnabled", value);
}

void AppSettings::setCameraPositionX(double value)
{
    cameraPositionXValue = value;
    emit cameraPositionXChanged();
    write("vt2.camera.posX", value);
}

void AppSettings::setCameraPositionY(double value)
{
    cameraPositionYValue = value;
    emit cameraPositionYChanged();
    write("vt2.camera.posY", value);
}

void AppSettings::setCameraSize(double value)
{
    cameraSizeValue = value;
    emit cameraSizeChanged();
    write("vt2.camera.size", value);
}

void AppSettings::setCameraDeviceID(const std::optional<QString>& value)
{
    cameraDeviceIDValue = value;
    emit cameraDeviceIDChanged();
    writeOrRemove("vt2.camera.deviceID", value);
}

void AppSettings::setMicrophoneEnabled(bool value)
{
    microphoneEnabledValue = value;
    emit microphoneEnabledChanged();
    write("vt2.mic.enabled", value);
}

void AppSettings::setMicrophoneDeviceID(const std::optional<QString>& value)
{
    microphoneDeviceIDValue = value;
    emit microphoneDeviceIDChanged();
    writeOrRemove("vt2.mic.deviceID", value);
}

void AppSettings::setSystemAudioEnabled(bool value)
{
    systemAudioEnabledValue = value;
    emit systemAudioEnabledChanged();
    write("vt2.systemAudio.enabled", value);
}

void AppSettings::setAreaMonitorRect(const std::optional<QRectF>& value)
{
    areaMonitorRectValue = value;
    emit areaMonitorRectChanged();
    writeOrRemove("vt2.areaMonitorRect",
        value ? std::optional(QVariantList { value->x(), value->y(), value->width(), value->height() }) : std::nullopt);
}

void AppSettings::setAreaSensitivity(AreaSensitivity value)
{
    areaSensitivityValue = value;
    emit areaSensitivityChanged();
    write("vt2.areaSensitivity", rawValue(value));
}

void AppSettings::setAreaOverlayStyle(AreaOverlayStyle value)
{
    areaOverlayStyleValue = value;
    emit areaOverlayStyleChanged();
    write("vt2.areaOverlayStyle", rawValue(value));
}

void AppSettings::setAreaOverlayEnabled(bool value)
{
    areaOverlayEnabledValue = value;
    emit areaOverlayEnabledChanged();
    write("vt2.areaOverlayEnabled", value);
}

void AppSettings::setAreaReferenceSignature(const std::optional<QByteArray>& value)
{
    areaReferenceSignatureValue = value;
    emit areaReferenceSignatureChanged();
    writeOrRemove("vt2.areaReferenceSignature", value);
}

void AppSettings::setSavedSourceDescriptor(const std::optional<QString>& value)
{
    savedSourceDescriptorValue = value;
    emit savedSourceDescriptorChanged();
    writeOrRemove("vt2.savedSourceDescriptor", value);
}

void AppSettings::setSavedCaptureMode(const QString& value)
{
    savedCaptureModeValue = value;
    emit savedCaptureModeChanged();
    write("vt2.savedCaptureMode", value);
}

// Runs after the mode itself was written. Each forced value goes through its own setter, so a
// preset can give up to three changes in a row; the controller's debounce folds them into one restart.
void AppSettings::applyQualityPreset()
{
    const std::optional<QualityPreset> preset = qualityPreset(qualityModeValue);
    if (!preset) return; // manual: whatever the last preset left stays
    if (resolutionValue != preset->resolution) setResolution(preset->resolution);
    if (frameRateValue != preset->frameRate) setFrameRate(preset->frameRate);
    if (bitrateMbpsValue != preset->bitrateMbps) setBitrateMbps(preset->bitrateMbps);
}

double AppSettings::cameraAspect() const
{
    return ::cameraAspect(cameraShapeValue);
}

double AppSettings::cameraCornerFraction() const
{
    return ::cameraCornerFraction(cameraShapeValue);
}

std::optional<CameraFrameStyle> AppSettings::effectiveCameraFrameStyle() const
{
    if (!cameraFrameEnabledValue) return std::nullopt;
    return cameraFrameStyleValue;
}

void AppSettings::write(const char* key, const QVariant& value)
{
    store->setValue(QLatin1String(key), value);
    store->sync(); // written at once: a crash never loses an assignment
}

void AppSettings::writeOrRemove(const char* key, const std::optional<QVariant>& value)
{
    if (value) {
        write(key, *value);
        return;
    }
    store->remove(QLatin1String(key));
    store->sync();
}
