#include "ui/NavRow.h"

#include "ui/kit/Appearance.h"
#include "ui/kit/D1NavTile.h"
#include "ui/kit/EnterPresses.h"
#include "ui/kit/V3.h"

#include <QPainter>
#include <QPainterPath>

namespace {
constexpr int rowHeight = 36;
constexpr int tileSize = 24;
} // namespace

NavRow::NavRow(D1Screen screen, QWidget* parent)
    : QAbstractButton(parent)
    , destination(screen)
    , content(navRowContent(screen))
{
    setText(content.label);
    setAccessibleName(content.label);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::TabFocus);
    new EnterPresses(this);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void NavRow::setSelected(bool value)
{
    if (selected == value) return;
    selected = value;
    update();
}

QSize NavRow::sizeHint() const
{
    return { 200, rowHeight };
}

void NavRow::enterEvent(QEnterEvent* event)
{
    hovered = true;
    update();
    QAbstractButton::enterEvent(event);
}

void NavRow::leaveEvent(QEvent* event)
{
    hovered = false;
    update();
    QAbstractButton::leaveEvent(event);
}

void NavRow::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF plate = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    if (selected || hovered || isDown()) {
        QColor fill = V3::bgElev.resolve(this);
        if (!selected) fill.setAlphaF(0.55);
        p.setPen(selected ? QPen(V3::lineSoft.resolve(this), 0.5) : Qt::NoPen);
        p.setBrush(fill);
        p.drawRoundedRect(plate, 8, 8);
    }
    if (hasFocus()) {
        p.setPen(QPen(V3::accent.resolve(this), 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(plate.adjusted(1, 1, -1, -1), 7, 7);
    }
    const QRectF tile(8, (height() - tileSize) / 2.0, tileSize, tileSize);
    D1NavTile::paint(p, tile, content.symbol, content.tile, 0.55, selected);

    QFont font = this->font();
    font.setPixelSize(13);
    font.setWeight(selected ? QFont::DemiBold : QFont::Medium);
    p.setFont(font);
    p.setPen(selected ? V3::fg.resolve(this) : V3::fgMute.resolve(this));
    const QRectF label(tile.right() + 10, 0, width() - tile.right() - 18, height());
    p.drawText(label, Qt::AlignVCenter | Qt::AlignLeft,
        p.fontMetrics().elidedText(content.label, Qt::ElideRight, int(label.width())));
}
