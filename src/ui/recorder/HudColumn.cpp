#include "ui/recorder/HudColumn.h"

#include "app/AppSettings.h"
#include "capture/CaptureEngine.h"
#include "monitor/AreaMonitor.h"
#include "monitor/AreaSignature.h"
#include "recorder/SegmentedRecorder.h"
#include "ui/kit/V3.h"
#include "ui/recorder/FormatElapsed.h"
#include "ui/recorder/HudCard.h"
#include "ui/recorder/OnChange.h"

#include <QVBoxLayout>

#include <cmath>

HudColumn::HudColumn(
    SegmentedRecorder* segments, CaptureEngine* stream, AppSettings* appSettings, AreaMonitor* watched, QWidget* parent)
    : QWidget(parent)
    , recorder(segments)
    , engine(stream)
    , settings(appSettings)
    , area(watched)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(8);
    column->setSizeConstraint(QLayout::SetFixedSize);
    ring = new HudCard(this);
    monitor = new HudCard(this);
    column->addWidget(ring, 0, Qt::AlignLeft);
    column->addWidget(monitor, 0, Qt::AlignLeft);

    auto ringChanged = [this] { refreshRing(); };
    onChange(this, recorder, &SegmentedRecorder::isBuffering, &SegmentedRecorder::isBufferingChanged, ringChanged);
    onChange(this, recorder, &SegmentedRecorder::isRecording, &SegmentedRecorder::isRecordingChanged, ringChanged);
    onChange(this, recorder, &SegmentedRecorder::isExporting, &SegmentedRecorder::isExportingChanged, ringChanged);
    onChange(
        this, recorder, &SegmentedRecorder::currentDuration, &SegmentedRecorder::currentDurationChanged, ringChanged);
    onChange(
        this, recorder, &SegmentedRecorder::bufferedSeconds, &SegmentedRecorder::bufferedSecondsChanged, ringChanged);
    onChange(this, engine, &CaptureEngine::outputWidth, &CaptureEngine::outputWidthChanged, ringChanged);
    onChange(this, engine, &CaptureEngine::outputHeight, &CaptureEngine::outputHeightChanged, ringChanged);
    onChange(this, settings, &AppSettings::bufferSeconds, &AppSettings::bufferSecondsChanged, ringChanged);

    auto monitorChanged = [this] { refreshMonitor(); };
    onChange(this, area, &AreaMonitor::isArmed, &AreaMonitor::isArmedChanged, monitorChanged);
    onChange(this, area, &AreaMonitor::phase, &AreaMonitor::phaseChanged, monitorChanged);
    onChange(this, area, &AreaMonitor::currentDiff, &AreaMonitor::currentDiffChanged, monitorChanged);
    onChange(this, area, &AreaMonitor::sensitivity, &AreaMonitor::sensitivityChanged, monitorChanged);
    refreshRing();
    refreshMonitor();
}

QList<HudCard*> HudColumn::shownCards() const
{
    QList<HudCard*> shown;
    for (HudCard* card : { ring, monitor })
        if (!card->isHidden()) shown << card;
    return shown;
}

void HudColumn::refreshRing()
{
    if (recorder->isRecording()) {
        ring->setContent(V3::rec, QStringLiteral("Recording"),
            formatElapsed(recorder->currentDuration())
                + QStringLiteral(" · %1×%2").arg(engine->outputWidth()).arg(engine->outputHeight()));
    } else if (recorder->isExporting()) {
        ring->setContent(V3::accent, QStringLiteral("Saving"), QStringLiteral("writing the clip…"));
    } else if (recorder->isBuffering()) {
        ring->setContent(V3::match, QStringLiteral("Buffering"),
            QStringLiteral("%1 s of %2 s")
                .arg(std::floor(recorder->bufferedSeconds()), 0, 'f', 0)
                .arg(std::floor(settings->bufferSeconds()), 0, 'f', 0));
    }
    ring->setHidden(!recorder->isRecording() && !recorder->isExporting() && !recorder->isBuffering());
}

void HudColumn::refreshMonitor()
{
    monitor->setHidden(!area->isArmed());
    if (!area->isArmed()) return;
    const QString diff = QString::number(area->currentDiff(), 'f', 0);
    if (area->phase() == AreaMonitor::MonitorPhase::divergent)
        monitor->setContent(V3::alert, QStringLiteral("Triggered"), QStringLiteral("Δ %1 — auto-recording").arg(diff));
    else
        monitor->setContent(V3::match, QStringLiteral("Armed"),
            QStringLiteral("Δ %1 / %2")
                .arg(diff, QString::number(AreaSignature::threshold(area->sensitivity()), 'f', 0)));
}
