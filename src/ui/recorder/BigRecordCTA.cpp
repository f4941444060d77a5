#include "ui/recorder/BigRecordCTA.h"

#include "app/session/SessionActions.h"
#include "capture/CaptureEngine.h"
#include "recorder/SegmentedRecorder.h"
#include "ui/kit/D1RecordButton.h"
#include "ui/recorder/FormatElapsed.h"
#include "ui/recorder/OnChange.h"

#include <QHBoxLayout>

BigRecordCTA::BigRecordCTA(
    SegmentedRecorder* ring, const CaptureEngine* stream, SessionActions* session, QWidget* parent)
    : QWidget(parent)
    , recorder(ring)
    , engine(stream)
    , actions(session)
{
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    record = new D1RecordButton(diameter, this);
    row->addWidget(record, 0, Qt::AlignCenter);
    connect(record, &QAbstractButton::clicked, this, [this] { actions->toggleRecording(); });

    auto redraw = [this] { refresh(); };
    onChange(this, recorder, &SegmentedRecorder::isRecording, &SegmentedRecorder::isRecordingChanged, redraw);
    onChange(this, recorder, &SegmentedRecorder::currentDuration, &SegmentedRecorder::currentDurationChanged, redraw);
    onChange(this, engine, &CaptureEngine::isStreaming, &CaptureEngine::isStreamingChanged, redraw);
    refresh();
}

void BigRecordCTA::refresh()
{
    const bool recording = recorder->isRecording();
    const QString elapsed = recording ? formatElapsed(recorder->currentDuration()) : QString();
    record->setLive(recording);
    record->setText(recording ? elapsed : QStringLiteral("Record"));
    // Named by what a press does, not by the running time shown in the circle: a screen reader
    // announces the name, and a number that changes a hundred times a second says nothing.
    // The same button throughout, so the reader's focus stays on it.
    const QString name = recording ? QStringLiteral("Stop recording") : QStringLiteral("Record");
    if (record->accessibleName() != name) record->setAccessibleName(name);
    if (record->accessibleDescription() != elapsed) record->setAccessibleDescription(elapsed);
    record->setEnabled(recording || engine->isStreaming());
}
