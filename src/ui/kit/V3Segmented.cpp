#include "ui/kit/V3Segmented.h"

#include "ui/kit/EnterPresses.h"
#include "ui/kit/KitAccessibility.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/Symbols.h"
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
constexpr qreal symbolSize = 13;
constexpr qreal symbolGap = 5;
// A segment showing its symbol alone.
constexpr qreal compactSegmentWidth = 36;

// The raised segment: lighter than the plate in both appearances.
const DynamicColor raised { V3::bgElev.dark, V3::bgCard.light };

QFont segmentFont(bool selected)
{
    return KitPaint::font(V3Segmented::fontSize, selected ? QFont::DemiBold : QFont::Medium);
}

class SegmentButton : public QAbstractButton {
public:
    SegmentButton(const QString& label, QString symbolName, QWidget* parent)
        : QAbstractButton(parent)
        , symbol(std::move(symbolName))
    {
        setText(label);
        setCheckable(true);
        setAutoExclusive(true);
        setAttribute(Qt::WA_Hover);
        setFocusPolicy(Qt::TabFocus);
        new EnterPresses(this);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    }

    QSize sizeHint() const override
    {
        qreal width = QFontMetricsF(segmentFont(true)).horizontalAdvance(text()) + 2 * segmentInset;
        if (!symbol.isEmpty()) width += symbolSize + symbolGap;
        return { int(std::ceil(std::max(width, minimumSegmentWidth))), V3Segmented::segmentHeight };
    }
    QSize minimumSizeHint() const override
    {
        if (symbol.isEmpty()) return sizeHint();
        return { int(compactSegmentWidth), V3Segmented::segmentHeight };
    }

    // All items of a row go to their symbols at once, as soon as the row is narrower than it would
    // like: a row of half words and half symbols reads worse than either.
    bool compact() const
    {
        const QWidget* row = parentWidget();
        return !symbol.isEmpty() && row && row->width() < row->sizeHint().width();
    }

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
        const QColor ink = lit ? V3::fg.resolve(a) : V3::fgMute.resolve(a);
        if (symbol.isEmpty()) {
            p.setFont(segmentFont(isChecked()));
            p.setPen(ink);
            p.drawText(r, Qt::AlignCenter | Qt::TextSingleLine, text());
        } else if (compact()) {
            Symbols::paint(p,
                QRectF(r.center().x() - symbolSize / 2, r.center().y() - symbolSize / 2, symbolSize, symbolSize),
                symbol, ink);
        } else {
            // Symbol and label centred together, as one line.
            const QFont font = segmentFont(isChecked());
            const qreal textWidth = QFontMetricsF(font).horizontalAdvance(text());
            const qreal left = r.center().x() - (symbolSize + symbolGap + textWidth) / 2;
            Symbols::paint(p, QRectF(left, r.center().y() - symbolSize / 2, symbolSize, symbolSize), symbol, ink);
            p.setFont(font);
            p.setPen(ink);
            p.drawText(QRectF(left + symbolSize + symbolGap, r.top(), textWidth + 1, r.height()),
                Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, text());
        }
        if (hasFocus()) KitPaint::focusRing(p, r, radius, V3::accent.resolve(a));
    }

    bool event(QEvent* event) override
    {
        if (KitPaint::isAppearanceChange(event)) update();
        return QAbstractButton::event(event);
    }

private:
    QString symbol;
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
        auto* button = new SegmentButton(item.label, item.symbol, this);
        buttons.push_back(button);
        row->addWidget(button, 1);
        // Checked by a click, by Space or by assistive technology's toggle: all the same choice.
        connect(button, &QAbstractButton::toggled, this, [this, value = item.value](bool on) {
            if (on && !settingRow) setSelection(value);
        });
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
    settingRow = true;
    for (size_t i = 0; i < items.size(); ++i) {
        QAbstractButton* button = buttons[i];
        button->setAutoExclusive(false);
        button->setChecked(items[i].value == value);
        button->setAutoExclusive(true);
    }
    settingRow = false;
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
    if (event->type() == QEvent::Resize) {
        // A symbol shown alone names itself on hover.
        for (size_t i = 0; i < items.size(); ++i)
            buttons[i]->setToolTip(
                width() < sizeHint().width() && !items[i].symbol.isEmpty() ? items[i].label : QString());
    }
    return QWidget::event(event);
}
