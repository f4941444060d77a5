#include "ui/recorder/BigRecordCTA.h"

#include "app/session/RecorderViewModel.h"
#include "capture/CaptureEngine.h"
#include "recorder/SegmentedRecorder.h"
#include "ui/kit/D1RecordButton.h"
#include "ui/recorder/FormatElapsed.h"
#include "ui/recorder/OnChange.h"

#include <QHBoxLayout>

BigRecordCTA::BigRecordCTA(RecorderViewModel* model, QWidget* parent)
    : QWidget(parent)
    , vm(model)
{
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    record = new D1RecordButton(diameter, this);
    row->addWidget(record, 0, Qt::AlignCenter);
    connect(record, &QAbstractButton::clicked, vm, &RecorderViewModel::toggleRecording);

    SegmentedRecorder* recorder = vm->recorder();
    auto redraw = [this] { refresh(); };
    onChange(this, recorder, &SegmentedRecorder::isRecording, &SegmentedRecorder::isRecordingChanged, redraw);
    onChange(this, recorder, &SegmentedRecorder::currentDuration, &SegmentedRecorder::currentDurationChanged, redraw);
    onChange(this, vm->engine(), &CaptureEngine::isStreaming, &CaptureEngine::isStreamingChanged, redraw);
    refresh();
}

void BigRecordCTA::refresh()
{
    const SegmentedRecorder* recorder = vm->recorder();
    const bool recording = recorder->isRecording();
    record->setLive(recording);
    record->setText(recording ? formatElapsed(recorder->currentDuration()) : QStringLiteral("Record"));
    record->setEnabled(recording || vm->engine()->isStreaming());
}
