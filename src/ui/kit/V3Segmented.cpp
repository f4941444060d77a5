#include "ui/kit/V3Segmented.h"

#include "ui/kit/KitAccessibility.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"

#include <QAbstractButton>
#include <QEvent>
#include <QFontMetricsF>
#include <QHBoxLayout>
#include <QPainter>

#include <cmath>

namespace {

constexpr qreal segmentInset = 12;
constexpr qreal minimumSegmentWidth = 44;

// The raised segment: lighter than the plate in both appearances.
const DynamicColor raised { V3::bgElev.dark, V3::bgCard.light };

QFont segmentFont(bool selected)
{
    return KitPaint::font(V3Segmented::fontSize, selected ? QFont::DemiBold : QFont::Medium);
}

class SegmentButton : public QAbstractButton {
public:
    SegmentButton(const QString& label, QWidget* parent)
        : QAbstractButton(parent)
    {
        setText(label);
        setCheckable(true);
        setAutoExclusive(true);
        setAttribute(Qt::WA_Hover);
        setFocusPolicy(Qt::TabFocus);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    }

    QSize sizeHint() const override
    {
        const qreal width = QFontMetricsF(segmentFont(true)).horizontalAdvance(text()) + 2 * segmentInset;
        return { int(std::ceil(std::max(width, minimumSegmentWidth))), V3Segmented::segmentHeight };
    }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent*) override
    {
        const Appearance a = appearanceOf(this);
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF r = rect();
        const qreal radius = V3Segmented::segmentRadius;
        if (isChecked()) {
            KitPaint::softShadow(p, r.adjusted(1, 1, -1, -1), radius, QColor(0, 0, 0, 70), 2, 1);
            p.setPen(QPen(V3::lineSoft.resolve(a), 0.5));
            p.setBrush(raised.resolve(a));
            p.drawRoundedRect(r.adjusted(0.25, 0.25, -0.25, -0.25), radius, radius);
        }
        const bool lit = isChecked() || underMouse() || isDown();
        p.setFont(segmentFont(isChecked()));
        p.setPen(lit ? V3::fg.resolve(a) : V3::fgMute.resolve(a));
        p.drawText(r, Qt::AlignCenter | Qt::TextSingleLine, text());
        if (hasFocus()) KitPaint::focusRing(p, r, radius, V3::accent.resolve(a));
    }

    bool event(QEvent* event) override
    {
        if (KitPaint::isAppearanceChange(event)) update();
        return QAbstractButton::event(event);
    }
};

} // namespace

V3Segmented::V3Segmented(std::vector<Item> list, QWidget* parent)
    : QWidget(parent)
    , items(std::move(list))
{
    KitAccessibility::install();
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(platePadding, platePadding, platePadding, platePadding);
    row->setSpacing(platePadding);
    for (const Item& item : items) {
        auto* button = new SegmentButton(item.label, this);
        buttons.push_back(button);
        row->addWidget(button, 1);
        connect(button, &QAbstractButton::clicked, this, [this, value = item.value] { setSelection(value); });
    }
}

QAbstractButton* V3Segmented::buttonFor(const QString& value) const
{
    for (size_t i = 0; i < items.size(); ++i)
        if (items[i].value == value) return buttons[i];
    return nullptr;
}

void V3Segmented::setSelection(const QString& value)
{
    // An exclusive button cannot be unchecked directly; lift the exclusivity while the row is set.
    for (size_t i = 0; i < items.size(); ++i) {
        QAbstractButton* button = buttons[i];
        button->setAutoExclusive(false);
        button->setChecked(items[i].value == value);
        button->setAutoExclusive(true);
    }
    if (value == selected) return;
    selected = value;
    emit selectionChanged(value);
}

void V3Segmented::paintEvent(QPaintEvent*)
{
    const Appearance a = appearanceOf(this);
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(V3::lineSoft.resolve(a), 0.5));
    p.setBrush(V3::bgInset.resolve(a));
    p.drawRoundedRect(QRectF(rect()).adjusted(0.25, 0.25, -0.25, -0.25), plateRadius, plateRadius);
}

bool V3Segmented::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QWidget::event(event);
}
