#include "ui/settings/PremiumSettingsNavRow.h"

#include "ui/kit/D1NavTile.h"
#include "ui/kit/EnterPresses.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/Symbols.h"
#include "ui/kit/V3.h"

#include <QPainter>

namespace {
constexpr int rowHeight = 38;
constexpr int tileSize = 24;
} // namespace

PremiumSettingsNavRow::PremiumSettingsNavRow(
    const QString& title, const QString& symbolName, const TileColors& colors, QWidget* parent)
    : QAbstractButton(parent)
    , symbol(symbolName)
    , tile(colors)
{
    setText(title);
    setAccessibleName(title);
    setToolTip(title);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::TabFocus);
    new EnterPresses(this);
    setAttribute(Qt::WA_Hover);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void PremiumSettingsNavRow::setCurrent(bool value)
{
    current = value;
    update();
}

void PremiumSettingsNavRow::setCompact(bool value)
{
    compact = value;
    updateGeometry();
    update();
}

QSize PremiumSettingsNavRow::sizeHint() const
{
    return { compact ? tileSize + 16 : 200, rowHeight };
}

void PremiumSettingsNavRow::paintEvent(QPaintEvent*)
{
    const Appearance a = appearanceOf(this);
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF plate = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    if (current || underMouse() || isDown()) {
        QColor fill = V3::bgElev.resolve(a);
        if (!current) fill.setAlphaF(0.55);
        p.setPen(current ? QPen(V3::lineSoft.resolve(a), 0.5) : Qt::NoPen);
        p.setBrush(fill);
        p.drawRoundedRect(plate, 8, 8);
    }
    if (hasFocus()) KitPaint::focusRing(p, plate, 8, V3::accent.resolve(a));
    const QRectF tileRect(8, (height() - tileSize) / 2.0, tileSize, tileSize);
    D1NavTile::paint(p, tileRect, symbol, tile, 0.55, current);
    if (compact) return;

    QFont font = KitPaint::font(13, current ? QFont::DemiBold : QFont::Medium);
    p.setFont(font);
    p.setPen(current ? V3::fg.resolve(a) : V3::fgMute.resolve(a));
    const QRectF label(tileRect.right() + 10, 0, width() - tileRect.right() - 34, height());
    p.drawText(label, Qt::AlignVCenter | Qt::AlignLeft,
        p.fontMetrics().elidedText(text(), Qt::ElideRight, int(label.width())));
    if (!current) {
        const QRectF chevron(width() - 20, (height() - 10) / 2.0, 10, 10);
        Symbols::paint(p, chevron, QStringLiteral("chevron.right"), V3::fgFaint.resolve(a));
    }
}
