#include "ui/recorder/HudCard.h"

#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"

#include <QFontDatabase>
#include <QPainter>

#include <cmath>

namespace {
constexpr qreal inset = 10;
constexpr qreal dotSize = 8;
constexpr qreal dotGap = 7;
constexpr qreal textGap = 8;
constexpr int plateHeight = 28;
} // namespace

HudCard::HudCard(QWidget* parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void HudCard::setContent(const DynamicColor& dotColor, const QString& label, const QString& detail)
{
    dot = dotColor;
    if (label == labelText && detail == detailText) {
        update();
        return;
    }
    const bool wider = label != labelText || detail.size() != detailText.size();
    labelText = label;
    detailText = detail;
    setAccessibleName(label + QLatin1Char(' ') + detail);
    if (wider) {
        resize(sizeHint());
        updateGeometry();
    }
    update();
}

QFont HudCard::labelFont() const
{
    return KitPaint::font(12, QFont::DemiBold);
}

QFont HudCard::detailFont() const
{
    QFont f = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    f.setPixelSize(11);
    return f;
}

QSize HudCard::sizeHint() const
{
    const qreal label = QFontMetricsF(labelFont()).horizontalAdvance(labelText);
    const qreal detail = QFontMetricsF(detailFont()).horizontalAdvance(detailText);
    return { int(std::ceil(2 * inset + dotSize + dotGap + label + textGap + detail)), plateHeight };
}

void HudCard::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0, 0, 0, 150));
    p.drawRoundedRect(QRectF(rect()), 8, 8);
    // The plate is dark in both appearances, so its colours are the dark ones.
    p.setBrush(dot.resolve(Appearance::dark));
    p.drawEllipse(QRectF(inset, (plateHeight - dotSize) / 2.0, dotSize, dotSize));
    qreal x = inset + dotSize + dotGap;
    p.setFont(labelFont());
    p.setPen(V3::fg.resolve(Appearance::dark));
    const qreal labelWidth = QFontMetricsF(labelFont()).horizontalAdvance(labelText);
    p.drawText(QRectF(x, 0, labelWidth + 1, plateHeight), Qt::AlignLeft | Qt::AlignVCenter, labelText);
    x += labelWidth + textGap;
    p.setFont(detailFont());
    p.setPen(V3::fgMute.resolve(Appearance::dark));
    p.drawText(QRectF(x, 0, width() - x, plateHeight), Qt::AlignLeft | Qt::AlignVCenter, detailText);
}
