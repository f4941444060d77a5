#include "app/session/AreaMonitorSync.h"

#include "app/AppSettings.h"
#include "core/Publisher.h"
#include "monitor/AreaMonitor.h"
#include "platform/ArmedFrame.h"

#include <QPointer>

AreaMonitorSync::AreaMonitorSync(AppSettings& s, AreaMonitor& m, std::unique_ptr<ArmedFrame> frame, QObject* parent)
    : QObject(parent)
    , settings(s)
    , monitor(m)
    , armedFrame(std::move(frame))
{
    // The monitor's sensitivity comes from the settings; so do its area and reference, without
    // side effects.
    monitor.setSensitivity(settings.areaSensitivity());
    monitor.hydrate(settings.areaMonitorRect(), settings.areaReferenceSignature());

    // Every new or dropped reference is stored, for as long as the settings are there.
    QPointer<AppSettings> stored(&settings);
    monitor.onReferenceChanged = [stored](const std::optional<QByteArray>& bytes) {
        if (stored) stored->setAreaReferenceSignature(bytes);
    };

    // The monitor's sensitivity and area are remembered.
    observe(&monitor, &AreaMonitor::sensitivity, &AreaMonitor::sensitivityChanged)
        .dropFirst()
        .sink(this, [this](AreaSensitivity value) { settings.setAreaSensitivity(value); });
    observe(&monitor, &AreaMonitor::rect, &AreaMonitor::rectChanged)
        .dropFirst()
        .sink(this, [this](const std::optional<QRectF>& value) { settings.setAreaMonitorRect(value); });

    followArming();
}

AreaMonitorSync::~AreaMonitorSync() = default;

void AreaMonitorSync::followArming()
{
    if (!armedFrame) return;
    // Any change rebuilds the frame, its animation starting again. A sliver gets no frame.
    combineLatest(observe(&monitor, &AreaMonitor::isArmed, &AreaMonitor::isArmedChanged),
        observe(&monitor, &AreaMonitor::rect, &AreaMonitor::rectChanged),
        observe(&settings, &AppSettings::areaOverlayStyle, &AppSettings::areaOverlayStyleChanged),
        observe(&settings, &AppSettings::areaOverlayEnabled, &AppSettings::areaOverlayEnabledChanged))
        .sink(this, [frame = armedFrame.get()](const auto& values) {
            const auto& [armed, rect, style, enabled] = values;
            if (armed && enabled && rect && rect->width() > 4 && rect->height() > 4)
                frame->show(*rect, style);
            else
                frame->dismiss();
        });
}
