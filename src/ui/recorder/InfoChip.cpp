#include "ui/recorder/InfoChip.h"

#include "ui/kit/KitPaint.h"
#include "ui/kit/Symbols.h"
#include "ui/kit/V3.h"

#include <QFontDatabase>
#include <QPainter>

namespace {
constexpr qreal inset = 9;
constexpr qreal iconSize = 10;
constexpr qreal gap = 5;
constexpr int plateHeight = 24;
} // namespace

InfoChip::InfoChip(const QString& i, const QString& text, QWidget* parent)
    : QWidget(parent)
    , icon(i)
    , label(text)
{
    setAccessibleName(text);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void InfoChip::setText(const QString& text)
{
    if (text == label) return;
    label = text;
    setAccessibleName(text);
    updateGeometry();
    update();
}

QFont InfoChip::textFont() const
{
    QFont f = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    f.setPixelSize(11);
    f.setWeight(QFont::Medium);
    return f;
}

QSize InfoChip::sizeHint() const
{
    const qreal text = QFontMetricsF(textFont()).horizontalAdvance(label);
    return { int(std::ceil(2 * inset + iconSize + gap + text)), plateHeight };
}

void InfoChip::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF plate = QRectF(rect()).adjusted(0.25, 0.25, -0.25, -0.25);
    p.setPen(QPen(V3::lineSoft.resolve(this), 0.5));
    p.setBrush(V3::bgInset.resolve(this));
    p.drawRoundedRect(plate, plate.height() / 2, plate.height() / 2);
    const QColor mute = V3::fgMute.resolve(this);
    Symbols::paint(p, QRectF(inset, (plateHeight - iconSize) / 2.0, iconSize, iconSize), icon, mute);
    p.setFont(textFont());
    p.setPen(V3::fg.resolve(this));
    p.drawText(QRectF(inset + iconSize + gap, 0, width() - inset - iconSize - gap, plateHeight),
        Qt::AlignLeft | Qt::AlignVCenter, label);
}

bool InfoChip::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QWidget::event(event);
}
