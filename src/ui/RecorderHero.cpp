#include "ui/RecorderHero.h"

#include "app/AppSettings.h"
#include "app/RecorderViewModel.h"
#include "app/SourceMemory.h"
#include "capture/CaptureEngine.h"
#include "core/Publisher.h"
#include "recorder/SegmentedRecorder.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Text.h"

#include <QVBoxLayout>

namespace {

// mm:ss.hh under an hour, h:mm:ss beyond.
QString elapsedText(double seconds)
{
    const auto whole = int64_t(std::floor(std::max(0.0, seconds)));
    if (whole >= 3600)
        return QStringLiteral("%1:%2:%3")
            .arg(whole / 3600)
            .arg(whole / 60 % 60, 2, 10, QLatin1Char('0'))
            .arg(whole % 60, 2, 10, QLatin1Char('0'));
    const int hundredths = std::clamp(int((seconds - double(whole)) * 100), 0, 99);
    return QStringLiteral("%1:%2.%3")
        .arg(whole / 60, 2, 10, QLatin1Char('0'))
        .arg(whole % 60, 2, 10, QLatin1Char('0'))
        .arg(hundredths, 2, 10, QLatin1Char('0'));
}

} // namespace

RecorderHero::RecorderHero(RecorderViewModel* model, QWidget* parent)
    : QWidget(parent)
    , vm(model)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(28, 22, 28, 28);
    column->setSpacing(6);
    title = new V3Text(QStringLiteral("Recorder"), 22, QFont::DemiBold, V3::fg, this);
    subtitle = new V3Text({}, 13, QFont::Normal, V3::fgMute, this);
    column->addWidget(title);
    column->addWidget(subtitle);
    column->addSpacing(18);

    emptyState = new QWidget(this);
    auto* empty = new QVBoxLayout(emptyState);
    empty->setContentsMargins(0, 0, 0, 0);
    auto* emptyTitle = new V3Text(QStringLiteral("Nothing is being captured"), 18, QFont::DemiBold, V3::fg, emptyState);
    auto* emptyText
        = new V3Text(QStringLiteral("Start capturing the screen and Velotape keeps its last seconds, ready to save "
                                    "with the hotkey. The source picker comes to this screen soon."),
            13, QFont::Normal, V3::fgMute, emptyState);
    startButton = new V3Button(V3Button::Kind::primary, QStringLiteral("Capture the screen"), emptyState);
    connect(startButton, &QAbstractButton::clicked, vm, &RecorderViewModel::startPreview);
    empty->addWidget(emptyTitle);
    empty->addWidget(emptyText);
    empty->addSpacing(10);
    empty->addWidget(startButton, 0, Qt::AlignLeft);
    column->addWidget(emptyState);

    live = new QWidget(this);
    auto* liveColumn = new QVBoxLayout(live);
    liveColumn->setContentsMargins(0, 0, 0, 0);
    status = new V3Text({}, 15, QFont::Medium, V3::fg, live);
    auto* later
        = new V3Text(QStringLiteral("The live preview, the camera bubble and the area monitor strip come here."), 12,
            QFont::Normal, V3::fgMute, live);
    recordButton = new V3Button(V3Button::Kind::record, QStringLiteral("Record"), live);
    recordButton->setSymbol(QStringLiteral("record.circle"));
    connect(recordButton, &QAbstractButton::clicked, vm, &RecorderViewModel::toggleRecording);
    liveColumn->addWidget(status);
    liveColumn->addWidget(later);
    liveColumn->addSpacing(10);
    liveColumn->addWidget(recordButton, 0, Qt::AlignLeft);
    column->addWidget(live);
    column->addStretch();

    // Every property the screen shows, each change redrawn from the models.
    auto redraw = [this](const auto&) { refresh(); };
    observe(vm->engine(), &CaptureEngine::isStreaming, &CaptureEngine::isStreamingChanged)
        .dropFirst()
        .sink(this, redraw);
    observe(vm->engine(), &CaptureEngine::selectedSource, &CaptureEngine::selectedSourceChanged)
        .dropFirst()
        .sink(this, redraw);
    observe(vm->recorder(), &SegmentedRecorder::isRecording, &SegmentedRecorder::isRecordingChanged)
        .dropFirst()
        .sink(this, redraw);
    observe(vm->recorder(), &SegmentedRecorder::currentDuration, &SegmentedRecorder::currentDurationChanged)
        .dropFirst()
        .sink(this, redraw);
    refresh();
}

bool RecorderHero::showsEmptyState() const
{
    return !emptyState->isHidden();
}

void RecorderHero::refresh()
{
    const bool streaming = vm->engine()->isStreaming();
    emptyState->setVisible(!streaming);
    live->setVisible(streaming);
    subtitle->setText(streaming ? vm->sourceMemory()->sourceLabelForFilename().value_or(QString()) : QStringLiteral("Not capturing"));
    const SegmentedRecorder* recorder = vm->recorder();
    const bool recording = recorder->isRecording();
    status->setText(recording ? QStringLiteral("Recording  %1").arg(elapsedText(recorder->currentDuration()))
                              : QStringLiteral("Keeping the last %1 s").arg(vm->settings()->bufferSeconds()));
    recordButton->setText(recording ? QStringLiteral("Stop") : QStringLiteral("Record"));
    recordButton->setAccessibleName(recordButton->text());
    recordButton->setLive(recording);
}
