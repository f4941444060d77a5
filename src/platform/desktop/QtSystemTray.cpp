#include "platform/desktop/QtSystemTray.h"

#include <QPainter>
#include <QPainterPath>
#include <QSystemTrayIcon>

namespace {

// The mark of the application icon reduced to one colour, as tray icons are: the rewind ring with
// its head at the top, and the hub that says what the recorder does. Red while recording and cyan
// while armed read at a glance on light and dark panels alike; idle is the plain mark faded.
QPixmap drawMark(SystemTray::State state, int size)
{
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    const qreal s = size;
    const QPointF c(s / 2, s / 2);
    const QColor mark = state == SystemTray::State::armed ? QColor(50, 210, 255) : QColor(230, 230, 230);
    p.setOpacity(state == SystemTray::State::idle ? 0.55 : 1.0);

    const qreal ring = 0.34 * s;
    const qreal stroke = std::max(1.2, 0.1 * s);
    p.setPen(QPen(mark, stroke, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    p.drawArc(QRectF(c.x() - ring, c.y() - ring, 2 * ring, 2 * ring), 90 * 16, -300 * 16);
    const QPointF tip(c.x(), c.y() - ring);
    const qreal head = 0.12 * s;
    QPainterPath arrow;
    arrow.moveTo(tip + QPointF(head, -head));
    arrow.lineTo(tip);
    arrow.lineTo(tip + QPointF(head, head));
    p.drawPath(arrow);

    p.setPen(Qt::NoPen);
    switch (state) {
    case SystemTray::State::recording:
        p.setBrush(QColor(255, 59, 48));
        p.drawEllipse(c, 0.2 * s, 0.2 * s);
        break;
    case SystemTray::State::idle:
        p.setPen(QPen(mark, stroke * 0.8));
        p.drawEllipse(c, 0.11 * s, 0.11 * s);
        break;
    case SystemTray::State::buffering:
    case SystemTray::State::armed:
        p.setBrush(mark);
        p.drawEllipse(c, 0.13 * s, 0.13 * s);
        break;
    }
    return pixmap;
}

} // namespace

QtSystemTray::QtSystemTray() = default;

QtSystemTray::~QtSystemTray() = default;

bool QtSystemTray::isAvailable() const
{
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void QtSystemTray::show(QMenu* menu)
{
    if (!tray) {
        tray = std::make_unique<QSystemTrayIcon>(iconFor(current));
        QObject::connect(tray.get(), &QSystemTrayIcon::activated, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger && onActivated) onActivated();
        });
    }
    tray->setContextMenu(menu);
    tray->show();
}

bool QtSystemTray::isShown() const
{
    return tray && tray->isVisible();
}

void QtSystemTray::setState(State state, const QString& toolTip)
{
    const bool changed = state != current;
    current = state;
    if (!tray) return;
    if (changed) tray->setIcon(iconFor(state));
    tray->setToolTip(toolTip);
}

QIcon QtSystemTray::iconFor(State state)
{
    QIcon icon;
    for (const int size : { 16, 22, 24, 32, 48, 64 })
        icon.addPixmap(drawMark(state, size));
    return icon;
}
