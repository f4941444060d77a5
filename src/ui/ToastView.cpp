#include "ui/ToastView.h"

#include <QPainter>
#include <QTextLayout>
#include <QVariantAnimation>

namespace {
constexpr double horizontalPadding = 14;
constexpr double verticalPadding = 9;
constexpr double cardOpacity = 0.78;
constexpr double radius = 10;

QFont toastFont(QFont base)
{
    base.setPixelSize(12);
    base.setWeight(QFont::Medium);
    return base;
}

// A long text wraps inside the one card rather than running off the window.
constexpr int textFlags = Qt::AlignCenter | Qt::TextWordWrap;
} // namespace

ToastView::ToastView(QWidget* parent)
    : QWidget(parent)
    , animation(new QVariantAnimation(this))
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFocusPolicy(Qt::NoFocus);
    setFont(toastFont(font()));
    animation->setDuration(animationMilliseconds);
    animation->setEasingCurve(QEasingCurve::InOutQuad);
    connect(animation, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        progress = value.toDouble();
        update();
    });
    connect(animation, &QVariantAnimation::finished, this, [this] {
        if (target == 0) {
            shown.clear();
            setAccessibleName({});
        }
    });
}

void ToastView::setText(const std::optional<QString>& text)
{
    const double wanted = text ? 1.0 : 0.0;
    if (text) {
        shown = *text;
        setAccessibleName(*text);
    }
    update();
    if (wanted == target) return;
    target = wanted;
    animation->stop();
    animation->setStartValue(progress);
    animation->setEndValue(target);
    animation->start();
}

QRectF ToastView::restingCardRect() const
{
    if (shown.isEmpty()) return {};
    const QFontMetricsF metrics(font());
    const double maxText = std::max(40.0, width() - 2 * (horizontalPadding + bottomMargin));
    const QRectF textBox = metrics.boundingRect(QRectF(0, 0, maxText, 10000), textFlags, shown);
    const QSizeF card(
        std::ceil(textBox.width()) + 2 * horizontalPadding, std::ceil(textBox.height()) + 2 * verticalPadding);
    return QRectF(QPointF((width() - card.width()) / 2, height() - bottomMargin - card.height()), card);
}

QRectF ToastView::cardRect() const
{
    if (progress <= 0) return {};
    const QRectF resting = restingCardRect();
    // From below the bottom edge to its place.
    const double travel = bottomMargin + resting.height();
    return resting.translated(0, (1 - progress) * travel);
}

void ToastView::paintEvent(QPaintEvent*)
{
    const QRectF card = cardRect();
    if (card.isEmpty()) return;
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setOpacity(progress);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor::fromRgbF(0, 0, 0, cardOpacity));
    p.drawRoundedRect(card, radius, radius);
    p.setPen(Qt::white);
    p.drawText(
        card.adjusted(horizontalPadding, verticalPadding, -horizontalPadding, -verticalPadding), textFlags, shown);
}
