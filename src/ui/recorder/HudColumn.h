#pragma once

#include <QWidget>

class HudCard;

class AppSettings;
class AreaMonitor;
class CaptureEngine;
class SegmentedRecorder;

// The badges over the live preview, top left: what the ring is doing (buffering, recording with
// its time, saving) and, while the area monitor is armed, what it sees.
class HudColumn : public QWidget {
    Q_OBJECT
public:
    explicit HudColumn(SegmentedRecorder* recorder, CaptureEngine* engine, AppSettings* settings, AreaMonitor* area,
        QWidget* parent = nullptr);

    // The badges on show, top first.
    QList<HudCard*> shownCards() const;

private:
    void refreshRing();
    void refreshMonitor();

    SegmentedRecorder* recorder;
    CaptureEngine* engine;
    AppSettings* settings;
    AreaMonitor* area;
    HudCard* ring;
    HudCard* monitor;
};
