#include "ui/SourcePickerRow.h"

#include "ui/kit/D1.h"
#include "ui/kit/D1NavTile.h"
#include "ui/kit/EnterPresses.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/Srgb.h"
#include "ui/kit/Symbols.h"
#include "ui/kit/V3.h"

#include <QEvent>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

namespace {

constexpr qreal inset = 10;
constexpr qreal actionTile = 36;
constexpr QColor placeholderFrom = Srgb::color(0.16, 0.22, 0.4);
constexpr QColor placeholderTo = Srgb::color(0.08, 0.12, 0.24);

} // namespace

SourcePickerRow::SourcePickerRow(Content c, QWidget* parent)
    : QAbstractButton(parent)
    , content(std::move(c))
{
    setText(content.title);
    setAccessibleName(content.title);
    setAccessibleDescription(content.detail);
    setAttribute(Qt::WA_Hover);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::TabFocus);
    new EnterPresses(this);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void SourcePickerRow::setSelected(bool value)
{
    if (selected == value) return;
    selected = value;
    update();
}

void SourcePickerRow::setThumbnail(const QImage& image)
{
    thumbnail = image;
    scaledThumbnail = {};
    update();
}

QRectF SourcePickerRow::thumbRect() const
{
    if (content.isAction) return { inset, (height() - actionTile) / 2.0, actionTile, actionTile };
    const qreal h = thumbWidth / thumbAspect;
    return { inset, (height() - h) / 2.0, qreal(thumbWidth), h };
}

QSize SourcePickerRow::sizeHint() const
{
    return { 360, content.isAction ? 60 : rowHeight };
}

bool SourcePickerRow::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QAbstractButton::event(event);
}

void SourcePickerRow::paintEvent(QPaintEvent*)
{
    // Drawn means in view: the thumbnail is asked for now, and on every later draw until it came.
    if (!content.isAction && thumbnail.isNull() && requestThumbnail) requestThumbnail();

    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF plate = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    if (selected || underMouse() || isDown()) {
        QColor fill = selected ? V3::accentSoft : V3::bgElev.resolve(this);
        if (!selected && !isDown()) fill.setAlphaF(0.6);
        p.setPen(selected ? QPen(V3::accent.resolve(this), 1) : Qt::NoPen);
        p.setBrush(fill);
        p.drawRoundedRect(plate, 10, 10);
    }
    if (hasFocus()) KitPaint::focusRing(p, plate, 10, V3::accent.resolve(this));

    const QRectF picture = thumbRect();
    if (content.isAction)
        D1NavTile::paint(p, picture, content.symbol, D1::tileBlue, 0.5);
    else
        paintThumbnail(p, picture);

    // The right edge: the badge of the selected source, or the action's symbol.
    qreal right = width() - inset;
    if (selected && !content.isAction) {
        const QRectF badge(right - badgeSize, (height() - badgeSize) / 2.0, badgeSize, badgeSize);
        p.setPen(Qt::NoPen);
        p.setBrush(V3::accent.resolve(this));
        p.drawEllipse(badge);
        Symbols::paint(p, badge.adjusted(5, 5, -5, -5), QStringLiteral("checkmark"), Qt::white);
        right = badge.left() - 8;
    } else if (!content.trailingSymbol.isEmpty()) {
        const QRectF mark(right - 14, (height() - 14) / 2.0, 14, 14);
        Symbols::paint(p, mark, content.trailingSymbol, V3::fgMute.resolve(this));
        right = mark.left() - 8;
    }

    const qreal left = picture.right() + 12;
    const qreal textWidth = std::max(0.0, right - left);
    const QFont titleFont = KitPaint::font(13, QFont::DemiBold);
    const QFont detailFont = KitPaint::font(11, QFont::Normal);
    const qreal titleHeight = QFontMetricsF(titleFont).height();
    const qreal detailHeight = QFontMetricsF(detailFont).height();
    const qreal top = (height() - titleHeight - 3 - detailHeight) / 2.0;

    p.setFont(titleFont);
    p.setPen(V3::fg.resolve(this));
    p.drawText(QRectF(left, top, textWidth, titleHeight), Qt::AlignLeft | Qt::AlignVCenter,
        QFontMetrics(titleFont).elidedText(content.title, Qt::ElideRight, int(textWidth)));

    qreal detailLeft = left;
    const QColor detailColour = content.isAction ? V3::fgMute.resolve(this) : V3::fgFaint.resolve(this);
    const qreal detailTop = top + titleHeight + 3;
    if (!content.detailSymbol.isEmpty()) {
        Symbols::paint(
            p, QRectF(left, detailTop + (detailHeight - 11) / 2.0, 11, 11), content.detailSymbol, detailColour);
        detailLeft += 16;
    }
    p.setFont(detailFont);
    p.setPen(detailColour);
    const qreal detailWidth = std::max(0.0, right - detailLeft);
    p.drawText(QRectF(detailLeft, detailTop, detailWidth, detailHeight), Qt::AlignLeft | Qt::AlignVCenter,
        QFontMetrics(detailFont)
            .elidedText(
                content.detail, content.elideDetailInMiddle ? Qt::ElideMiddle : Qt::ElideRight, int(detailWidth)));
}

void SourcePickerRow::paintThumbnail(QPainter& p, const QRectF& r)
{
    QPainterPath shape;
    shape.addRoundedRect(r, thumbRadius, thumbRadius);
    p.save();
    p.setClipPath(shape);
    if (!thumbnail.isNull()) {
        // Filled and centred: the picture is cropped to the thumbnail's shape, not letterboxed.
        const qreal ratio = devicePixelRatioF();
        const QSize pixels = (r.size() * ratio).toSize();
        if (scaledThumbnail.size() != pixels) {
            const QImage filled = thumbnail.scaled(pixels, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
            const QRect crop((filled.width() - pixels.width()) / 2, (filled.height() - pixels.height()) / 2,
                pixels.width(), pixels.height());
            scaledThumbnail = QPixmap::fromImage(filled.copy(crop));
            scaledThumbnail.setDevicePixelRatio(ratio);
        }
        p.drawPixmap(r.topLeft(), scaledThumbnail);
    } else {
        QLinearGradient diagonal(r.topLeft(), r.bottomRight());
        diagonal.setColorAt(0, placeholderFrom);
        diagonal.setColorAt(1, placeholderTo);
        p.fillRect(r, diagonal);
        p.setOpacity(0.35);
        const QRectF icon(r.center().x() - 9, r.center().y() - 9, 18, 18);
        Symbols::paint(p, icon, content.symbol, Qt::white);
    }
    p.restore();
    p.setPen(QPen(V3::lineSoft.resolve(this), 0.5));
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(r, thumbRadius, thumbRadius);
}
