#include "monitor/AreaPickerGeometry.h"

#include <QFont>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace AreaPickerGeometry {

QRectF selection(QPointF anchor, QPointF current)
{
    return QRectF(std::min(anchor.x(), current.x()), std::min(anchor.y(), current.y()),
        std::abs(anchor.x() - current.x()), std::abs(anchor.y() - current.y()));
}

QRectF integral(const QRectF& rect)
{
    const double left = std::floor(rect.left());
    const double top = std::floor(rect.top());
    return QRectF(left, top, std::ceil(rect.right()) - left, std::ceil(rect.bottom()) - top);
}

std::optional<QRectF> pickedRect(QPointF anchor, QPointF current, QPointF displayOrigin)
{
    const QRectF rect = integral(selection(anchor, current));
    if (rect.width() < minimumSide || rect.height() < minimumSide) return std::nullopt;
    return rect.translated(displayOrigin);
}

std::vector<QRect> pickerDisplays(const std::vector<QRect>& displays)
{
    std::vector<QRect> out;
    for (size_t i = 0; i < displays.size(); ++i) {
        bool keep = true;
        for (size_t j = 0; j < displays.size() && keep; ++j) {
            if (i == j) continue;
            if (displays[i] == displays[j])
                keep = j > i;
            else if (displays[i].contains(displays[j]))
                keep = false;
        }
        if (keep) out.push_back(displays[i]);
    }
    return out;
}

namespace {

// A dark plate behind white text, readable over any picture.
void plate(QPainter& painter, const QRectF& rect, double radius)
{
    QPainterPath path;
    path.addRoundedRect(rect, radius, radius);
    painter.fillPath(path, QColor::fromRgbF(0.1f, 0.1f, 0.1f, 0.85f));
}

// The selection's size in the display's pixels, on its plate above the selection.
struct SizeLabel {
    QFont font;
    QString text;
    QRectF plate;
};

SizeLabel sizeLabel(const QRectF& sel, double pixelRatio)
{
    SizeLabel label;
    label.font.setPixelSize(12);
    label.font.setWeight(QFont::DemiBold);
    label.font.setStyleHint(QFont::Monospace);
    const QSizeF pixels = integral(QRectF(sel.topLeft() * pixelRatio, sel.size() * pixelRatio)).size();
    label.text = QStringLiteral("%1 × %2").arg(int(pixels.width())).arg(int(pixels.height()));
    const QFontMetricsF metrics(label.font);
    const QSizeF text(metrics.horizontalAdvance(label.text), metrics.height());
    // Above the selection, its left edge on the selection's.
    label.plate = QRectF(sel.left(), sel.top() - 6 - (text.height() + 6), text.width() + 12, text.height() + 6);
    return label;
}

} // namespace

QRectF dragReach(QPointF anchor, QPointF current, double pixelRatio)
{
    const QRectF sel = selection(anchor, current);
    // The outline's half width and its antialiasing stand outside the selection.
    return integral(sel.adjusted(-2, -2, 2, 2).united(sizeLabel(sel, pixelRatio).plate.adjusted(-1, -1, 1, 1)));
}

void draw(QPainter& painter, const QRect& bounds, const QImage& frozen, std::optional<QPointF> anchor,
    std::optional<QPointF> current, double pixelRatio)
{
    painter.save();
    const QColor dim = QColor::fromRgbF(0, 0, 0, 0.35f);
    if (!frozen.isNull()) painter.drawImage(bounds.topLeft(), frozen);
    if (!anchor || !current) {
        painter.fillRect(bounds, dim);
        QFont font;
        font.setPixelSize(13);
        font.setWeight(QFont::Medium);
        painter.setFont(font);
        const QString hint = QStringLiteral("Drag to select monitor area   ·   Esc to cancel");
        const QFontMetricsF metrics(font);
        const QSizeF text(metrics.horizontalAdvance(hint), metrics.height());
        const double x = bounds.left() + (bounds.width() - text.width()) * 0.5;
        const double y = bounds.top() + 40;
        plate(painter, QRectF(x - 10, y - 5, text.width() + 20, text.height() + 10), 8);
        painter.setPen(Qt::white);
        painter.drawText(QRectF(QPointF(x, y), text), Qt::AlignLeft | Qt::AlignTop, hint);
        painter.restore();
        return;
    }

    // The dim everywhere but the selection, which shows the display as it is.
    const QRectF sel = selection(*anchor, *current);
    QPainterPath outside;
    outside.addRect(bounds);
    outside.addRect(sel);
    outside.setFillRule(Qt::OddEvenFill);
    painter.fillPath(outside, dim);

    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setPen(QPen(QColor::fromRgbF(0.85f, 0.46f, 0.34f, 1.0f), 2));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(sel);

    const SizeLabel label = sizeLabel(sel, pixelRatio);
    painter.setFont(label.font);
    plate(painter, label.plate, 4);
    painter.setPen(Qt::white);
    painter.drawText(label.plate.adjusted(6, 3, -6, -3), Qt::AlignLeft | Qt::AlignTop, label.text);
    painter.restore();
}

} // namespace AreaPickerGeometry
