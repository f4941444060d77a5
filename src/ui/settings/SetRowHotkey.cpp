#include "ui/settings/SetRowHotkey.h"

#include "app/hotkeys/HotkeyRecorder.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/Symbols.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"

#include <QFontDatabase>
#include <QPainter>

namespace {

QFont pillFont()
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(12);
    font.setWeight(QFont::Medium);
    return font;
}

constexpr int symbolSize = 11;
constexpr int inset = 12;

} // namespace

HotkeyPill::HotkeyPill(HotkeyRecorder* model, QWidget* parent)
    : QAbstractButton(parent)
    , recorder(model)
{
    setFocusPolicy(Qt::TabFocus);
    setAttribute(Qt::WA_Hover);
    setFont(pillFont());
    connect(this, &QAbstractButton::clicked, recorder, &HotkeyRecorder::press);
    connect(recorder, &HotkeyRecorder::changed, this, [this] {
        setText(recorder->label());
        updateGeometry();
        update();
    });
    setText(recorder->label());
}

QSize HotkeyPill::sizeHint() const
{
    const QFontMetrics metrics(font());
    // As wide as the longest text it shows, so that the row doesn't jump while recording.
    const int widest
        = std::max(metrics.horizontalAdvance(text()), metrics.horizontalAdvance(QStringLiteral("Press any key…")));
    return { widest + 2 * inset + symbolSize + 6, 28 };
}

void HotkeyPill::paintEvent(QPaintEvent*)
{
    const Appearance a = appearanceOf(this);
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF plate = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    const bool listening = recorder->listening();
    p.setPen(QPen(listening ? V3::accent.resolve(a) : V3::line.resolve(a), listening ? 1.2 : 0.5));
    p.setBrush(underMouse() ? V3::bgElev.resolve(a) : V3::bgInset.resolve(a));
    p.drawRoundedRect(plate, plate.height() / 2, plate.height() / 2);
    if (hasFocus()) KitPaint::focusRing(p, plate, plate.height() / 2, V3::accent.resolve(a));

    QColor tone;
    switch (recorder->labelTone()) {
    case HotkeyRecorder::LabelTone::accent:
        tone = V3::accent.resolve(a);
        break;
    case HotkeyRecorder::LabelTone::primary:
        tone = V3::fg.resolve(a);
        break;
    case HotkeyRecorder::LabelTone::faint:
        tone = V3::fgFaint.resolve(a);
        break;
    }
    const QFontMetrics metrics(font());
    const int textWidth = metrics.horizontalAdvance(text());
    const int symbol = listening ? symbolSize + 6 : 0;
    qreal x = (width() - textWidth - symbol) / 2.0;
    if (listening) {
        Symbols::paint(
            p, QRectF(x, (height() - symbolSize) / 2.0, symbolSize, symbolSize), QStringLiteral("keyboard"), tone);
        x += symbol;
    }
    p.setPen(tone);
    p.drawText(QRectF(x, 0, textWidth + 1, height()), Qt::AlignVCenter | Qt::AlignLeft, text());
}

SetRowHotkey::SetRowHotkey(const QString& label, const QString& help, HotkeyRecorder* model, QWidget* parent)
    : SetRow(label, help, parent)
    , hotkey(model)
{
    button = new HotkeyPill(hotkey);
    clear = new V3Button(V3Button::Kind::ghost, {});
    clear->setSymbol(QStringLiteral("xmark"));
    clear->setFixedSize(22, 22);
    clear->setToolTip(QStringLiteral("Clear hotkey"));
    addControl(button);
    addControl(clear);
    clear->setAccessibleName(QStringLiteral("Clear hotkey"));
    connect(clear, &QAbstractButton::clicked, hotkey, &HotkeyRecorder::clear);
    connect(hotkey, &HotkeyRecorder::changed, this, &SetRowHotkey::follow);
    follow();
}

void SetRowHotkey::follow()
{
    // Kept in the layout while hidden, so that the pill doesn't move when it comes and goes.
    QSizePolicy keep = clear->sizePolicy();
    keep.setRetainSizeWhenHidden(true);
    clear->setSizePolicy(keep);
    clear->setVisible(hotkey->showsClearButton());
    setWarning(hotkey->conflict());
}
