#pragma once

#include <QWidget>

class D1RecordButton;
class RecorderViewModel;

// The big round record button under the preview: "Record" while the ring only buffers, the
// running time of the recording while one runs; a press starts or stops it. To assistive
// technology it is "Record" or "Stop recording", with the running time as its description. Nothing to record
// while no stream runs, so then it can only stop a recording.
class BigRecordCTA : public QWidget {
    Q_OBJECT
public:
    static constexpr int diameter = 84;

    explicit BigRecordCTA(RecorderViewModel* vm, QWidget* parent = nullptr);

    D1RecordButton* button() const { return record; }

private:
    void refresh();

    RecorderViewModel* vm;
    D1RecordButton* record;
};
