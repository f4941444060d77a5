#include "ui/clips/ClipTagBar.h"

#include "ui/clips/ClipEdits.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Field.h"

#include <QAbstractButton>
#include <QEvent>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPainter>

namespace {

// A small rounded button of text: a plate of the kit while off, the given colour while on.
class _TagPill : public QAbstractButton {
public:
    _TagPill(const QString& text, const DynamicColor& onColour, QSize size, qreal fontSize, QWidget* parent)
        : QAbstractButton(parent)
        , onColour(onColour)
        , fontSize(fontSize)
    {
        setText(text);
        setAccessibleName(text);
        setFixedSize(size);
        setFocusPolicy(Qt::TabFocus);
        setAttribute(Qt::WA_Hover);
        setCursor(Qt::PointingHandCursor);
    }

    bool on = false;

protected:
    void paintEvent(QPaintEvent*) override
    {
        const Appearance a = appearanceOf(this);
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        QColor fill = on ? onColour.resolve(a) : V3::bgInset.resolve(a);
        if (!on && underMouse()) fill = KitPaint::mix(fill, V3::line.resolve(a), 0.5);
        p.setPen(on ? Qt::NoPen : QPen(V3::lineSoft.resolve(a), 1));
        p.setBrush(fill);
        p.drawRoundedRect(r, 6, 6);
        if (hasFocus()) KitPaint::focusRing(p, r, 6, V3::accent.resolve(a));
        p.setFont(KitPaint::font(fontSize, QFont::DemiBold));
        p.setPen(on ? (a == Appearance::dark ? V3::bg.resolve(a) : QColor(Qt::white)) : V3::fgMute.resolve(a));
        p.drawText(r, Qt::AlignCenter, text());
    }

    bool event(QEvent* event) override
    {
        if (KitPaint::isAppearanceChange(event)) update();
        return QAbstractButton::event(event);
    }

private:
    DynamicColor onColour;
    qreal fontSize;
};

} // namespace

ClipTagBar::ClipTagBar(std::function<void(const ClipMeta&)> applyRecord, QWidget* parent)
    : QWidget(parent)
    , apply(std::move(applyRecord))
{
    setFixedHeight(height);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(4);
    const struct {
        TradeOutcome outcome;
        const char* text;
        const DynamicColor* colour;
    } kinds[] = { { TradeOutcome::win, "W", &V3::match }, { TradeOutcome::loss, "L", &V3::alert },
        { TradeOutcome::breakeven, "BE", &V3::fgMute } };
    for (int i = 0; i < 3; ++i) {
        const TradeOutcome outcome = kinds[i].outcome;
        auto* pill = new _TagPill(QLatin1String(kinds[i].text), *kinds[i].colour,
            QSize(outcome == TradeOutcome::breakeven ? 32 : 26, 22), 11, this);
        pills[i] = pill;
        row->addWidget(pill);
        connect(pill, &QAbstractButton::clicked, this, [this, outcome] {
            ClipMeta next = record;
            next.outcome = ClipEdits::toggledOutcome(record.outcome, outcome);
            apply(ClipEdits::madeByUser(record, next));
        });
    }
    row->addSpacing(4);
    amount = new QLineEdit(this);
    amount->setAccessibleName(QStringLiteral("P&L"));
    amount->setFixedSize(amountWidth, 22);
    amount->setFont(KitPaint::font(11));
    V3Field::install(amount);
    row->addWidget(amount);
    connect(amount, &QLineEdit::returnPressed, this, &ClipTagBar::commitPnL);

    auto* unitPill = new _TagPill({}, V3::accent, QSize(26, 18), 9, this);
    unit = unitPill;
    unitPill->setToolTip(QStringLiteral("Cycle dollars / R / points"));
    row->addWidget(unitPill);
    row->addStretch();
    connect(unitPill, &QAbstractButton::clicked, this, [this] {
        ClipMeta next = record;
        next.unit = ClipEdits::nextUnit(record.unit);
        apply(ClipEdits::madeByUser(record, next));
    });
    showMeta();
}

QAbstractButton* ClipTagBar::pill(TradeOutcome outcome) const
{
    switch (outcome) {
    case TradeOutcome::win:
        return pills[0];
    case TradeOutcome::loss:
        return pills[1];
    case TradeOutcome::breakeven:
        return pills[2];
    case TradeOutcome::unset:
        break;
    }
    return nullptr;
}

void ClipTagBar::setMeta(const ClipMeta& meta, bool anotherClip)
{
    if (hasRecord && meta == record && !anotherClip) return;
    record = meta;
    hasRecord = true;
    syncTextFromMeta();
    showMeta();
}

void ClipTagBar::commitPnL()
{
    apply(ClipEdits::madeByUser(record, ClipEdits::committedPnL(record, amount->text())));
    // A record that came back unchanged (the same amount typed again, or text that clears an amount
    // that was never there) still shows in its own form.
    syncTextFromMeta();
}

void ClipTagBar::syncTextFromMeta()
{
    amount->setText(ClipEdits::pnlText(record));
}

void ClipTagBar::showMeta()
{
    for (TradeOutcome outcome : { TradeOutcome::win, TradeOutcome::loss, TradeOutcome::breakeven }) {
        auto* pillButton = static_cast<_TagPill*>(pill(outcome));
        pillButton->on = record.outcome == outcome;
        pillButton->update();
    }
    unit->setText(shortLabel(record.unit));
    unit->setAccessibleName(QStringLiteral("Unit: ") + shortLabel(record.unit));
    unit->update();
    amount->setPlaceholderText(ClipEdits::pnlPlaceholder(record.unit));
}
