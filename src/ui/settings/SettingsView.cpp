#include "ui/settings/SettingsView.h"

#include "app/AppIdentity.h"
#include "app/AppSettings.h"
#include "app/hotkeys/HotkeyRecorder.h"
#include "app/session/SaveFolder.h"
#include "core/Publisher.h"
#include "devices/CameraCapture.h"
#include "devices/CameraFrameChrome.h"
#include "devices/MicCapture.h"
#include "ui/ArmedStylePreview.h"
#include "ui/CameraFramePreview.h"
#include "ui/HeroCard.h"
#include "ui/kit/D1.h"
#include "ui/kit/Symbols.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Segmented.h"
#include "ui/kit/V3Text.h"
#include "ui/kit/V3Toggle.h"
#include "ui/settings/PremiumSettingsNavRow.h"
#include "ui/settings/SetRow.h"
#include "ui/settings/SetRowDevicePicker.h"
#include "ui/settings/SetRowFolder.h"
#include "ui/settings/SetRowHotkey.h"
#include "ui/settings/SetRowMenu.h"
#include "ui/settings/SetRowSlider.h"
#include "ui/settings/SetRowStartAtLogin.h"

#include <QCoreApplication>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QPainter>
#include <QResizeEvent>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <cmath>

namespace {

struct GroupContent {
    const char* raw;
    const char* title;
    const char* symbol;
    const TileColors* tile;
    const char* subtitle;
};

GroupContent content(SettingsView::SettingsGroup group)
{
    using G = SettingsView::SettingsGroup;
    switch (group) {
    case G::recording:
        return { "recording", "Recording", "record.circle", &D1::tileRec,
            "What Velotape captures and how it encodes." };
    case G::camera:
        return { "camera", "Camera & Mic", "web.camera", &D1::tilePink,
            "Picture-in-picture camera + optional mic audio." };
    case G::output:
        return { "output", "Output", "square.and.arrow.down", &D1::tileGreen,
            "Where finished clips go and what happens afterwards." };
    case G::privacy:
        return { "privacy", "Privacy & capture", "lock.shield", &D1::tileGold,
            "How Velotape presents itself to other apps." };
    case G::monitor:
        return { "monitor", "Area monitor", "rectangle.dashed", &D1::tileBlue,
            "Defaults for the watch-a-region auto-recorder." };
    case G::about:
        return { "about", "About", "info.circle", &D1::tileTeal, "Velotape — rolling buffer screen recorder." };
    }
    return content(G::recording);
}

// A symbol drawn in the muted colour, for the cards' headings.
class _SymbolGlyph : public QWidget {
public:
    _SymbolGlyph(const QString& symbol, QWidget* parent)
        : QWidget(parent)
        , symbol(symbol)
    {
        setFixedSize(18, 18);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        Symbols::paint(p, QRectF(rect()), symbol, V3::fgMute.resolve(this));
    }

private:
    QString symbol;
};

// A card of plain text under a small heading: the notes and the words about permissions.
HeroCard* noteCard(QWidget* page, const QString& symbol, const QString& heading, const QString& text)
{
    auto* card = new HeroCard(page);
    auto* head = new QHBoxLayout;
    head->setSpacing(8);
    if (!symbol.isEmpty()) head->addWidget(new _SymbolGlyph(symbol, card));
    auto* title = new V3Text(
        heading, symbol.isEmpty() ? 10 : 13, QFont::DemiBold, symbol.isEmpty() ? V3::fgFaint : V3::fg, card);
    // A heading stays on one line.
    title->setWordWrap(false);
    head->addWidget(title, 1);
    card->column()->addLayout(head);
    auto* body = new V3Text(text, 12, QFont::Normal, V3::fgMute, card);
    body->setWordWrap(true);
    card->column()->addWidget(body);
    return card;
}

template <typename Getter, typename Signal, typename Setter>
SetRow* toggleRow(
    AppSettings* settings, const QString& label, const QString& help, Getter get, Signal changed, Setter set)
{
    auto* row = new SetRow(label, help);
    auto* toggle = new V3Toggle;
    toggle->setText(label);
    row->addControl(toggle);
    // The switch's state is the setting, however it changed: a click, Space, or a screen reader's
    // toggle (which emits no click). A change from elsewhere comes back equal and writes nothing.
    observe(settings, get, changed).sink(toggle, [toggle](bool on) { toggle->setChecked(on); });
    QObject::connect(toggle, &QAbstractButton::toggled, settings, [settings, set](bool on) { (settings->*set)(on); });
    return row;
}

template <typename E, typename Getter, typename Signal, typename Setter>
SetRow* segmentedRow(AppSettings* settings, const QString& label, const QString& help, Getter get, Signal changed,
    Setter set, QString (*title)(E) = &::label<E>)
{
    std::vector<V3Segmented::Item> items;
    for (const E value : allCases<E>())
        items.push_back({ ::rawValue(value), title(value) });
    auto* row = new SetRow(label, help);
    auto* control = new V3Segmented(std::move(items));
    row->addControl(control);
    observe(settings, get, changed).sink(control, [control](const E& value) {
        const QSignalBlocker quiet(control);
        control->setSelection(::rawValue(value));
    });
    QObject::connect(control, &V3Segmented::selectionChanged, settings, [settings, set](const QString& raw) {
        if (const auto value = fromRawValue<E>(raw)) (settings->*set)(*value);
    });
    return row;
}

template <typename Getter, typename Signal, typename Setter>
SetRowSlider* sliderRow(AppSettings* settings, const QString& label, const QString& help, SettingsReader::Range range,
    double step, SetRowSlider::Format format, Getter get, Signal changed, Setter set)
{
    auto* row = new SetRowSlider(label, help, range.min, range.max, step, std::move(format));
    observe(settings, get, changed).sink(row, [row](double value) { row->setValue(value); });
    QObject::connect(
        row, &SetRowSlider::valueEdited, settings, [settings, set](double value) { (settings->*set)(value); });
    return row;
}

QString wholeNumber(double value)
{
    return QString::number(value, 'f', 0);
}

// Rows are made before their card: shown without a parent, a row would open as a window of its
// own. Hidden, it stays hidden when the card takes it; otherwise it appears with the card.
void showRow(SetRow* row, bool on)
{
    if (on && !row->parentWidget()) return;
    row->setVisible(on);
}

// A row that counts only while the setting of the row above is on.
template <typename Getter, typename Signal>
void shownWhile(SetRow* row, AppSettings* settings, Getter governing, Signal changed)
{
    row->setIndented(true);
    observe(settings, governing, changed).sink(row, [row](bool on) { showRow(row, on); });
}

template <typename E> std::vector<SetRowMenu::Item> menuItems()
{
    std::vector<SetRowMenu::Item> items;
    for (const E value : allCases<E>())
        items.push_back({ ::rawValue(value), ::label(value), explainer(value) });
    return items;
}

} // namespace

SettingsView::SettingsView(AppSettings* appSettings, MicCapture* microphone, CameraCapture* cameras,
    std::shared_ptr<KeyGrabCheck> grabs, DesktopWords desktopWords, QWidget* parent)
    : QWidget(parent)
    , settings(appSettings)
    , mic(microphone)
    , cameraCapture(cameras)
    , keyGrabCheck(std::move(grabs))
    , words(std::move(desktopWords))
{
    setAccessibleName(QStringLiteral("Settings"));
    chooseFolder = [](QWidget* parentWidget, const QString& start) -> std::optional<QString> {
        const QString chosen = QFileDialog::getExistingDirectory(
            parentWidget, QStringLiteral("Save recordings to…"), start, QFileDialog::ShowDirsOnly);
        if (chosen.isEmpty()) return std::nullopt;
        return chosen;
    };

    frame = new QBoxLayout(QBoxLayout::LeftToRight, this);
    frame->setContentsMargins(20, 22, 28, 28);
    frame->setSpacing(20);
    groupHolder = new QWidget(this);
    groupList = new QBoxLayout(QBoxLayout::TopToBottom, groupHolder);
    groupList->setContentsMargins(0, 0, 0, 0);
    groupList->setSpacing(4);
    for (const SettingsGroup group : allGroups) {
        const GroupContent c = content(group);
        auto* button
            = new PremiumSettingsNavRow(QString::fromUtf8(c.title), QString::fromUtf8(c.symbol), *c.tile, groupHolder);
        groupButtons.push_back(button);
        groupList->addWidget(button);
        connect(button, &QAbstractButton::clicked, this, [this, group] { setGroup(group); });
    }
    groupList->addStretch();
    groupHolder->setFixedWidth(groupColumnWidth);
    frame->addWidget(groupHolder);
    // The screen decides by its own width how it lays out, so it asks for little room itself.
    setMinimumWidth(200);

    pageColumn = new QVBoxLayout;
    pageColumn->setContentsMargins(0, 0, 0, 0);
    frame->addLayout(pageColumn, 1);
    page = makePage(current);
    pageColumn->addWidget(page);
    groupButtons.front()->setCurrent(true);
}

QString SettingsView::title(SettingsGroup group)
{
    return QString::fromUtf8(content(group).title);
}

QString SettingsView::rawValue(SettingsGroup group)
{
    return QString::fromUtf8(content(group).raw);
}

PremiumSettingsNavRow* SettingsView::groupButton(SettingsGroup group) const
{
    return groupButtons[size_t(group)];
}

void SettingsView::setGroup(SettingsGroup group)
{
    if (group == current) return;
    current = group;
    for (const SettingsGroup g : allGroups)
        groupButton(g)->setCurrent(g == group);
    QWidget* next = makePage(group);
    pageColumn->replaceWidget(page, next);
    delete page;
    page = next;
    for (SetRow* r : rows())
        r->setStacked(compact);
    // Made after the screen came up, the page shows only when told to.
    page->show();
}

QList<SetRow*> SettingsView::rows() const
{
    return page->findChildren<SetRow*>();
}

SetRow* SettingsView::row(const QString& label) const
{
    for (SetRow* r : rows())
        if (r->label() == label) return r;
    return nullptr;
}

QSize SettingsView::sizeHint() const
{
    return { minimumWidth(), QWidget::sizeHint().height() };
}

QSize SettingsView::minimumSizeHint() const
{
    return { minimumWidth(), QWidget::minimumSizeHint().height() };
}

void SettingsView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    const bool narrow = event->size().width() < compactBelow;
    if (narrow == compact) return;
    compact = narrow;
    applyCompact();
}

void SettingsView::applyCompact()
{
    frame->setDirection(compact ? QBoxLayout::TopToBottom : QBoxLayout::LeftToRight);
    frame->setContentsMargins(compact ? 12 : 20, compact ? 12 : 22, compact ? 12 : 28, 28);
    frame->setSpacing(compact ? 12 : 20);
    groupList->setDirection(compact ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
    if (compact) {
        groupHolder->setMinimumWidth(0);
        groupHolder->setMaximumWidth(QWIDGETSIZE_MAX);
    } else {
        groupHolder->setFixedWidth(groupColumnWidth);
    }
    for (PremiumSettingsNavRow* button : groupButtons)
        button->setCompact(compact);
    for (SetRow* r : rows())
        r->setStacked(compact);
}

QWidget* SettingsView::makePage(SettingsGroup group)
{
    auto* holder = new QWidget(this);
    auto* column = new QVBoxLayout(holder);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(12);
    const GroupContent c = content(group);
    column->addWidget(new V3Text(QString::fromUtf8(c.title), 22, QFont::DemiBold, V3::fg, holder));
    auto* subtitle = new V3Text(QString::fromUtf8(c.subtitle), 13, QFont::Normal, V3::fgMute, holder);
    subtitle->setWordWrap(true);
    column->addWidget(subtitle);
    column->addSpacing(4);
    switch (group) {
    case SettingsGroup::recording:
        buildRecording(column);
        break;
    case SettingsGroup::camera:
        buildCameraAndMic(column);
        break;
    case SettingsGroup::output:
        buildOutput(column);
        break;
    case SettingsGroup::privacy:
        buildPrivacy(column);
        break;
    case SettingsGroup::monitor:
        buildMonitor(column);
        break;
    case SettingsGroup::about:
        buildAbout(column);
        break;
    }
    column->addStretch();
    return holder;
}

HeroCard* SettingsView::rowCard(QWidget* pageWidget, const std::vector<SetRow*>& rowList)
{
    auto* card = new HeroCard(pageWidget);
    card->column()->setSpacing(0);
    card->column()->setContentsMargins(HeroCard::padding, 4, HeroCard::padding, 4);
    bool first = true;
    for (SetRow* r : rowList) {
        r->setParent(card);
        r->setDividerAbove(!first);
        first = false;
        card->column()->addWidget(r);
    }
    return card;
}

void SettingsView::buildRecording(QVBoxLayout* column)
{
    QWidget* holder = column->parentWidget();
    auto* buffer = sliderRow(
        settings, QStringLiteral("Pre-record buffer"),
        QStringLiteral("How many seconds before you hit Record are kept."), AppSettings::bufferSecondsRange, 1,
        [](double v) { return wholeNumber(v) + QStringLiteral("s"); }, &AppSettings::bufferSeconds,
        &AppSettings::bufferSecondsChanged, &AppSettings::setBufferSeconds);

    auto* quality = segmentedRow<QualityMode>(settings, QStringLiteral("Quality"), {}, &AppSettings::qualityMode,
        &AppSettings::qualityModeChanged, &AppSettings::setQualityMode);
    auto* resolution = segmentedRow<Resolution>(settings, QStringLiteral("Resolution"), {}, &AppSettings::resolution,
        &AppSettings::resolutionChanged, &AppSettings::setResolution, &::rawValue<Resolution>);
    auto* frameRate = segmentedRow<FrameRate>(settings, QStringLiteral("Frame rate"), {}, &AppSettings::frameRate,
        &AppSettings::frameRateChanged, &AppSettings::setFrameRate);
    auto* bitrate = sliderRow(
        settings, QStringLiteral("Bitrate"), {}, AppSettings::bitrateMbpsRange, 1,
        [](double v) { return wholeNumber(v) + QStringLiteral(" Mbps"); }, &AppSettings::bitrateMbps,
        &AppSettings::bitrateMbpsChanged, &AppSettings::setBitrateMbps);
    // A preset decides size, rate and bit rate: those rows fade and say so, and still show what the
    // preset chose.
    observe(settings, &AppSettings::qualityMode, &AppSettings::qualityModeChanged)
        .sink(quality, [quality, resolution, frameRate, bitrate](QualityMode mode) {
            const bool preset = mode != QualityMode::manual;
            quality->setHelp(explainer(mode));
            resolution->setDimmed(preset);
            frameRate->setDimmed(preset);
            bitrate->setDimmed(preset);
            resolution->setHelp(preset ? QStringLiteral("Presets always capture at Native — only the bitrate changes.")
                                       : QStringLiteral("Output height. Native = the source's own size."));
            frameRate->setHelp(preset ? QStringLiteral("Preset-controlled. Switch to Manual to change.")
                                      : QStringLiteral("Higher = smoother, bigger file."));
            bitrate->setHelp(preset ? QStringLiteral("Preset-controlled. Switch to Manual to change.")
                                    : QStringLiteral("Higher = crisper, bigger file. 20 Mbps is a good default."));
        });

    auto* cursor = segmentedRow<CursorMode>(settings, QStringLiteral("Cursor"),
        QStringLiteral("Whether the mouse cursor is included in recordings."), &AppSettings::cursor,
        &AppSettings::cursorChanged, &AppSettings::setCursor);

    std::vector<SetRow*> rows { buffer, quality, resolution, frameRate, bitrate, cursor };
    // Where no program can take global keys, the note on binding the commands stands in their place.
    if (!words.hotkeyBindingNote.isEmpty()) {
        rows.push_back(new SetRow(QStringLiteral("Hotkeys"), words.hotkeyBindingNote));
    } else {
        HotkeyRecorder* saveRecorder = HotkeyRecorder::forSaveHotkey(settings, holder);
        saveRecorder->setGrabCheck(keyGrabCheck);
        rows.push_back(new SetRowHotkey(QStringLiteral("Save hotkey"), words.saveHotkeyHelp, saveRecorder));
        HotkeyRecorder* armRecorder = HotkeyRecorder::forArmHotkey(settings, holder);
        armRecorder->setGrabCheck(keyGrabCheck);
        rows.push_back(new SetRowHotkey(QStringLiteral("Arm monitor hotkey"), words.armHotkeyHelp, armRecorder));
    }
    column->addWidget(rowCard(holder, rows));
}

void SettingsView::buildCameraAndMic(QVBoxLayout* column)
{
    QWidget* holder = column->parentWidget();
    auto* camera = toggleRow(settings, QStringLiteral("Show camera overlay"),
        QStringLiteral("Adds a draggable camera widget over the preview stage."), &AppSettings::cameraEnabled,
        &AppSettings::cameraEnabledChanged, &AppSettings::setCameraEnabled);
    auto* cameraPicker = new SetRowDevicePicker(QStringLiteral("Camera"), QStringLiteral("No cameras found"));
    shownWhile(cameraPicker, settings, &AppSettings::cameraEnabled, &AppSettings::cameraEnabledChanged);
    connect(cameraPicker, &SetRowDevicePicker::deviceChosen, settings,
        [this](const QString& id) { settings->setCameraDeviceID(id); });
    auto showCameras = [this, cameraPicker] {
        std::vector<SetRowDevicePicker::Device> devices;
        if (cameraCapture)
            for (const CameraDevice& device : cameraCapture->availableDevices())
                devices.push_back({ device.uniqueID, device.name });
        cameraPicker->setDevices(devices, settings->cameraDeviceID());
    };
    if (cameraCapture) connect(cameraCapture, &CameraCapture::availableDevicesChanged, cameraPicker, showCameras);
    connect(settings, &AppSettings::cameraDeviceIDChanged, cameraPicker, showCameras);
    showCameras();
    // A camera plugged in since the last look shows up as the row appears.
    if (cameraCapture) cameraCapture->refreshDevices();
    auto* shape = segmentedRow<CameraShape>(settings, QStringLiteral("Shape"),
        QStringLiteral("Masks the camera into a circle, rounded square, or straight rectangle."),
        &AppSettings::cameraShape, &AppSettings::cameraShapeChanged, &AppSettings::setCameraShape);
    shownWhile(shape, settings, &AppSettings::cameraEnabled, &AppSettings::cameraEnabledChanged);
    auto* size = sliderRow(
        settings, QStringLiteral("Size"), QStringLiteral("Relative to the preview's shorter edge."),
        AppSettings::cameraSizeRange, 0.01,
        [](double v) { return QString::number(std::trunc(v * 100), 'f', 0) + QStringLiteral("%"); },
        &AppSettings::cameraSize, &AppSettings::cameraSizeChanged, &AppSettings::setCameraSize);
    shownWhile(size, settings, &AppSettings::cameraEnabled, &AppSettings::cameraEnabledChanged);
    auto* chrome = toggleRow(settings, QStringLiteral("Frame chrome"),
        QStringLiteral("Wraps the camera bubble with a styled border."), &AppSettings::cameraFrameEnabled,
        &AppSettings::cameraFrameEnabledChanged, &AppSettings::setCameraFrameEnabled);
    shownWhile(chrome, settings, &AppSettings::cameraEnabled, &AppSettings::cameraEnabledChanged);
    // The chosen style on a sample bubble of the chosen shape, animated by the live bubble's drawing.
    auto* frameStyle = new SetRowMenu(QStringLiteral("Frame style"), menuItems<CameraFrameStyle>());
    frameStyle->setObjectName(QStringLiteral("frameStyleRow"));
    auto* stylePreview = new CameraFramePreview(frameStyle->previewSlot());
    frameStyle->previewSlot()->layout()->addWidget(stylePreview);
    observe(settings, &AppSettings::cameraFrameStyle, &AppSettings::cameraFrameStyleChanged)
        .sink(frameStyle, [frameStyle, stylePreview](CameraFrameStyle style) {
            frameStyle->setSelection(::rawValue(style));
            frameStyle->setCaption(QString::fromUtf8(CameraFrameChrome::caption(style)));
            stylePreview->setStyle(style);
        });
    observe(settings, &AppSettings::cameraShape, &AppSettings::cameraShapeChanged)
        .sink(stylePreview, [stylePreview](CameraShape value) { stylePreview->setShape(value); });
    connect(frameStyle, &SetRowMenu::selectionEdited, settings, [this](const QString& raw) {
        if (const auto style = fromRawValue<CameraFrameStyle>(raw)) settings->setCameraFrameStyle(*style);
    });
    frameStyle->setIndented(true);
    auto showFrameStyle
        = [this, frameStyle] { showRow(frameStyle, settings->cameraEnabled() && settings->cameraFrameEnabled()); };
    connect(settings, &AppSettings::cameraEnabledChanged, frameStyle, showFrameStyle);
    connect(settings, &AppSettings::cameraFrameEnabledChanged, frameStyle, showFrameStyle);
    showFrameStyle();

    auto* microphone = toggleRow(settings, QStringLiteral("Record microphone"),
        QStringLiteral("Captures your mic with automatic gain control — quiet speech is boosted, loud peaks are "
                       "limited."),
        &AppSettings::microphoneEnabled, &AppSettings::microphoneEnabledChanged, &AppSettings::setMicrophoneEnabled);
    auto* micPicker = new SetRowDevicePicker(QStringLiteral("Microphone"), QStringLiteral("No microphones found"));
    shownWhile(micPicker, settings, &AppSettings::microphoneEnabled, &AppSettings::microphoneEnabledChanged);
    auto showMicrophones = [this, micPicker] {
        std::vector<SetRowDevicePicker::Device> devices;
        for (const MicrophoneDevice& device : mic->availableDevices())
            devices.push_back({ device.uniqueID, device.name });
        micPicker->setDevices(devices, settings->microphoneDeviceID());
    };
    connect(mic, &MicCapture::availableDevicesChanged, micPicker, showMicrophones);
    connect(settings, &AppSettings::microphoneDeviceIDChanged, micPicker, showMicrophones);
    connect(micPicker, &SetRowDevicePicker::deviceChosen, settings,
        [this](const QString& id) { settings->setMicrophoneDeviceID(id); });
    showMicrophones();
    // The list may be old: ask the sound server again as the row appears.
    mic->refreshDevices();

    auto* systemAudio = toggleRow(settings, QStringLiteral("Record system audio"),
        QStringLiteral("Captures whatever is playing through your speakers — app sound, browser audio, alerts."),
        &AppSettings::systemAudioEnabled, &AppSettings::systemAudioEnabledChanged, &AppSettings::setSystemAudioEnabled);

    column->addWidget(
        rowCard(holder, { camera, cameraPicker, shape, size, chrome, frameStyle, microphone, micPicker, systemAudio }));
    column->addWidget(noteCard(holder, {}, QStringLiteral("NOTES"),
        QStringLiteral("Drag the camera overlay anywhere on the preview to reposition it. The chosen position, shape, "
                       "and size are persisted across launches.")));
    column->addWidget(noteCard(holder, QStringLiteral("lock.shield"), QStringLiteral("No permission needed"),
        QStringLiteral("Linux has no privacy switch for the camera or the microphone: Velotape opens the camera you "
                       "pick here only while \"Show camera overlay\" is on, and the microphone only while \"Record "
                       "microphone\" is on. A camera that won't open is often busy in another program, or needs your "
                       "user in the \"video\" group.")));
}

void SettingsView::buildOutput(QVBoxLayout* column)
{
    QWidget* holder = column->parentWidget();
    auto* folder = new SetRowFolder(QStringLiteral("Save folder"));
    observe(settings, &AppSettings::saveFolderPath, &AppSettings::saveFolderPathChanged)
        .sink(folder, [folder](const QString& path) { folder->setPath(path); });
    connect(folder, &SetRowFolder::chooseRequested, this, &SettingsView::pickFolder);
    auto* reveal = toggleRow(settings, QStringLiteral("Reveal in file manager after save"),
        QStringLiteral("Pop the newly-saved clip open in the file manager."), &AppSettings::openFinderOnSave,
        &AppSettings::openFinderOnSaveChanged, &AppSettings::setOpenFinderOnSave);
    auto* sound = toggleRow(settings, QStringLiteral("Play sound when saved"),
        QStringLiteral("A short chime confirms each save."), &AppSettings::playSoundOnSave,
        &AppSettings::playSoundOnSaveChanged, &AppSettings::setPlaySoundOnSave);
    auto* autoStop = sliderRow(
        settings, QStringLiteral("Auto-stop after"),
        QStringLiteral("Force-stop long recordings automatically. 0 = never."), AppSettings::autoStopMinutesRange, 5,
        [](double v) { return v == 0 ? QStringLiteral("Never") : wholeNumber(v) + QStringLiteral(" min"); },
        &AppSettings::autoStopMinutes, &AppSettings::autoStopMinutesChanged, &AppSettings::setAutoStopMinutes);
    auto* keepInTray = toggleRow(settings, QStringLiteral("Keep running in the tray"),
        QStringLiteral("Closing the window leaves Velotape recording in the tray. Without a tray, closing quits."),
        &AppSettings::keepRunningInTray, &AppSettings::keepRunningInTrayChanged, &AppSettings::setKeepRunningInTray);
    auto* atLogin = new SetRowStartAtLogin(AutostartEntry(AppIdentity::appId(), AppIdentity::launcherPath()));
    column->addWidget(rowCard(holder, { folder, reveal, sound, autoStop, keepInTray, atLogin }));
}

void SettingsView::pickFolder()
{
    if (const std::optional<QString> chosen = chooseFolder(window(), settings->saveFolderPath()))
        useSaveFolder(*chosen);
}

void SettingsView::useSaveFolder(const QString& folder)
{
    auto* folderRow = qobject_cast<SetRowFolder*>(row(QStringLiteral("Save folder")));
    if (const std::optional<QString> problem = SaveFolder::problem(folder)) {
        if (folderRow) folderRow->setWarning(*problem + QStringLiteral(". Clips still go to the folder above."));
        return;
    }
    if (folderRow) folderRow->setWarning({});
    settings->setSaveFolderPath(folder);
}

void SettingsView::buildPrivacy(QVBoxLayout* column)
{
    QWidget* holder = column->parentWidget();
    auto* hide = toggleRow(settings, QStringLiteral("Hide Velotape from captures"), words.hideSelfHelp,
        &AppSettings::hideAppInCaptures, &AppSettings::hideAppInCapturesChanged, &AppSettings::setHideAppInCaptures);
    column->addWidget(rowCard(holder, { hide }));
    column->addWidget(
        noteCard(holder, QStringLiteral("lock.shield"), QStringLiteral("Screen capture"), words.screenCaptureNote));
}

void SettingsView::buildMonitor(QVBoxLayout* column)
{
    QWidget* holder = column->parentWidget();
    auto* sensitivity = segmentedRow<AreaSensitivity>(settings, QStringLiteral("Default sensitivity"),
        QStringLiteral("How much the region must change before recording starts."), &AppSettings::areaSensitivity,
        &AppSettings::areaSensitivityChanged, &AppSettings::setAreaSensitivity);
    auto* overlay = toggleRow(settings, QStringLiteral("Show overlay frame"),
        QStringLiteral("Draw a chrome frame around the monitored area while armed."), &AppSettings::areaOverlayEnabled,
        &AppSettings::areaOverlayEnabledChanged, &AppSettings::setAreaOverlayEnabled);
    // The chosen style, animated by the armed frame's own drawing, under its menu.
    auto* style = new SetRowMenu(QStringLiteral("Overlay style"), menuItems<AreaOverlayStyle>());
    style->setObjectName(QStringLiteral("overlayStyleRow"));
    auto* preview = new ArmedStylePreview(style->previewSlot());
    style->previewSlot()->layout()->addWidget(preview);
    observe(settings, &AppSettings::areaOverlayStyle, &AppSettings::areaOverlayStyleChanged)
        .sink(style, [style, preview](AreaOverlayStyle value) {
            style->setSelection(::rawValue(value));
            preview->setStyle(value);
        });
    connect(style, &SetRowMenu::selectionEdited, settings, [this](const QString& raw) {
        if (const auto value = fromRawValue<AreaOverlayStyle>(raw)) settings->setAreaOverlayStyle(*value);
    });
    shownWhile(style, settings, &AppSettings::areaOverlayEnabled, &AppSettings::areaOverlayEnabledChanged);
    // The setting is kept for a desktop that can draw the frame, but here it would change nothing.
    if (!words.noOverlayFrame.isEmpty()) {
        overlay->setHelp(words.noOverlayFrame);
        overlay->setDimmed(true);
        style->setDimmed(true);
    }
    column->addWidget(rowCard(holder, { sensitivity, overlay, style }));
    column->addWidget(noteCard(holder, {}, QStringLiteral("NOTES"),
        QStringLiteral("Arming works best over a single window with little motion — boss bars, trade windows, build "
                       "logs. The monitor stops recording once the region has matched the reference for ~3 seconds "
                       "continuously.")));
}

void SettingsView::buildAbout(QVBoxLayout* column)
{
    QWidget* holder = column->parentWidget();
    QString version = QCoreApplication::applicationVersion();
    if (version.isEmpty()) version = QStringLiteral("1.0");
    auto* card = new HeroCard(holder);
    card->column()->addWidget(
        new V3Text(QStringLiteral("Velotape · %1").arg(version), 15, QFont::DemiBold, V3::fg, card));
    auto* what = new V3Text(words.builtWith, 13, QFont::Normal, V3::fgMute, card);
    what->setWordWrap(true);
    card->column()->addWidget(what);
    auto* help = new V3Text(words.whenRecordingFails, 12, QFont::Normal, V3::fgMute, card);
    help->setWordWrap(true);
    card->column()->addWidget(help);
    column->addWidget(card);
}
