#include "ui/ScreenPlaceholder.h"

#include "ui/kit/Symbols.h"
#include "ui/kit/V3.h"

#include <QPainter>

ScreenPlaceholder::ScreenPlaceholder(const QString& t, const QString& s, const QString& p, QWidget* parent)
    : QWidget(parent)
    , title(t)
    , symbol(s)
    , promise(p)
{
    setAccessibleName(title);
    setAccessibleDescription(promise);
}

QFont ScreenPlaceholder::bodyFont() const
{
    QFont body = font();
    body.setPixelSize(13);
    return body;
}

QRectF ScreenPlaceholder::cardRect() const
{
    // As wide as reads well, as tall as its text needs.
    const QRectF area = QRectF(rect()).adjusted(28, 70, -28, -28);
    const double cardWidth = std::min(area.width(), 460.0);
    const QRectF text = QFontMetricsF(bodyFont())
                            .boundingRect(QRectF(0, 0, cardWidth - 2 * textInset, 10000),
                                Qt::AlignHCenter | Qt::TextWordWrap, promise);
    const double cardHeight = 28 + tileSize + 16 + text.height() + 28;
    return QRectF(area.center().x() - cardWidth / 2, area.top() + std::max(0.0, (area.height() - cardHeight) / 3),
        cardWidth, cardHeight);
}

QSize ScreenPlaceholder::minimumSizeHint() const
{
    return { 200, 70 + int(cardRect().height()) + 28 };
}

void ScreenPlaceholder::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);

    QFont heading = font();
    heading.setPixelSize(22);
    heading.setWeight(QFont::DemiBold);
    p.setFont(heading);
    p.setPen(V3::fg.resolve(this));
    const QRectF header(28, 22, width() - 56, 30);
    p.drawText(header, Qt::AlignLeft | Qt::AlignVCenter, title);

    const QRectF card = cardRect();
    p.setPen(QPen(V3::lineSoft.resolve(this), 0.5));
    p.setBrush(V3::bgCard.resolve(this));
    p.drawRoundedRect(card, 14, 14);

    const double tile = tileSize;
    const QRectF tileRect(card.center().x() - tile / 2, card.top() + 28, tile, tile);
    p.setPen(Qt::NoPen);
    p.setBrush(V3::bgInset.resolve(this));
    p.drawRoundedRect(tileRect, tile * 0.28, tile * 0.28);
    Symbols::paint(
        p, tileRect.adjusted(tile * 0.22, tile * 0.22, -tile * 0.22, -tile * 0.22), symbol, V3::fgMute.resolve(this));

    p.setFont(bodyFont());
    p.setPen(V3::fgMute.resolve(this));
    p.drawText(QRectF(card.left() + textInset, tileRect.bottom() + 16, card.width() - 2 * textInset,
                   card.bottom() - tileRect.bottom() - 16),
        Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, promise);
}
