#pragma once

#include <QWidget>

class D1RecordButton;

class CaptureEngine;
class SegmentedRecorder;
class SessionActions;

// The big round record button under the preview: "Record" while the ring only buffers, the
// running time of the recording while one runs; a press starts or stops it. To assistive
// technology it is "Record" or "Stop recording", with the running time as its description. Nothing to record
// while no stream runs, so then it can only stop a recording.
class BigRecordCTA : public QWidget {
    Q_OBJECT
public:
    static constexpr int diameter = 84;

    explicit BigRecordCTA(
        SegmentedRecorder* recorder, const CaptureEngine* engine, SessionActions* actions, QWidget* parent = nullptr);

    D1RecordButton* button() const { return record; }

private:
    void refresh();

    SegmentedRecorder* recorder;
    const CaptureEngine* engine;
    SessionActions* actions;
    D1RecordButton* record;
};
