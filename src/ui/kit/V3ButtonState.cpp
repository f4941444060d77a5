#include "ui/kit/V3ButtonState.h"

#include "ui/kit/Symbols.h"

#include <QFontMetricsF>
#include <QPainter>

namespace V3ButtonContent {

QSizeF size(const V3ButtonState& state, const QFont& font, qreal symbolSize)
{
    const QFontMetricsF metrics(font);
    qreal width = state.text.isEmpty() ? 0.0 : metrics.horizontalAdvance(state.text);
    if (!state.symbol.isEmpty()) width += symbolSize + (state.text.isEmpty() ? 0.0 : symbolGap);
    return { width, std::max(metrics.height(), state.symbol.isEmpty() ? 0.0 : symbolSize) };
}

void paint(
    QPainter& p, const QRectF& r, const V3ButtonState& state, const QFont& font, qreal symbolSize, const QColor& color)
{
    const QSizeF content = size(state, font, symbolSize);
    qreal x = r.center().x() - content.width() / 2;
    if (!state.symbol.isEmpty()) {
        Symbols::paint(p, QRectF(x, r.center().y() - symbolSize / 2, symbolSize, symbolSize), state.symbol, color);
        x += symbolSize + symbolGap;
    }
    if (state.text.isEmpty()) return;
    p.save();
    p.setFont(font);
    p.setPen(color);
    p.drawText(QRectF(x, r.top(), r.right() - x, r.height()), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
        state.text);
    p.restore();
}

} // namespace V3ButtonContent
