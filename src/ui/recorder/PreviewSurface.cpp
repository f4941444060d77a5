#include "ui/recorder/PreviewSurface.h"

#include "app/session/SourceMemory.h"
#include "monitor/AreaMonitor.h"
#include "ui/kit/V3.h"
#include "ui/recorder/OnChange.h"
#include "ui/recorder/PreviewMappedBox.h"

#include <QPainter>
#include <QPainterPath>

PreviewSurface::PreviewSurface(AreaMonitor* watched, const SourceMemory* source, QWidget* parent)
    : QWidget(parent)
    , monitor(watched)
    , sources(source)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    auto redraw = [this] { update(); };
    onChange(this, monitor, &AreaMonitor::rect, &AreaMonitor::rectChanged, redraw);
    onChange(this, monitor, &AreaMonitor::isArmed, &AreaMonitor::isArmedChanged, redraw);
    onChange(this, monitor, &AreaMonitor::phase, &AreaMonitor::phaseChanged, redraw);
}

void PreviewSurface::setImage(const QImage& image)
{
    picture = image;
    update();
}

std::optional<QRectF> PreviewSurface::watchedBox() const
{
    const std::optional<QRectF> area = monitor->rect();
    if (!area) return std::nullopt;
    const SourceMemory* source = sources;
    return previewMappedBox(*area, source->sourcePointSize(), source->sourcePointOrigin(), QSizeF(size()));
}

void PreviewSurface::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    // At the size it was made for this is a copy; a picture of another size (the window was just
    // resized) is stretched until the next one comes. On a scaled screen the picture's pixels are
    // the device's.
    if (picture.size() == size() && devicePixelRatioF() == 1.0)
        p.drawImage(QPoint(0, 0), picture);
    else
        p.drawImage(QRectF(rect()), picture);

    const std::optional<QRectF> box = watchedBox();
    if (!box) return;
    const DynamicColor& stroke = !monitor->isArmed()               ? V3::accent
        : monitor->phase() == AreaMonitor::MonitorPhase::divergent ? V3::alert
                                                                   : V3::match;
    const QColor colour = stroke.resolve(this);
    QColor fill = colour;
    fill.setAlphaF(0.1f);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(colour, 2));
    p.setBrush(fill);
    p.drawRoundedRect(box->adjusted(1, 1, -1, -1), 4, 4);
}
