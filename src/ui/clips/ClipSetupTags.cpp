#include "ui/clips/ClipSetupTags.h"

#include "ui/clips/ClipEdits.h"
#include "ui/kit/EnterPresses.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Field.h"

#include <QAbstractButton>
#include <QCompleter>
#include <QEvent>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPainter>
#include <QStringListModel>

namespace {

// One tag as a soft pill with a cross; pressing it takes the tag off.
class _TagChip : public QAbstractButton {
public:
    _TagChip(const QString& tag, QWidget* parent)
        : QAbstractButton(parent)
    {
        setText(tag);
        setAccessibleName(QStringLiteral("Remove tag ") + tag);
        setToolTip(QStringLiteral("Remove ") + tag);
        setFocusPolicy(Qt::TabFocus);
        // Return and Enter remove it too, as they press every other button of the kit.
        new EnterPresses(this);
        setCursor(Qt::PointingHandCursor);
        setAttribute(Qt::WA_Hover);
        const QFontMetrics metrics(KitPaint::font(10, QFont::Medium));
        setFixedSize(metrics.horizontalAdvance(tag) + 24, ClipSetupTags::height - 2);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        const Appearance a = appearanceOf(this);
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        QColor fill = V3::accent.resolve(a);
        fill.setAlphaF(underMouse() ? 0.24 : 0.14);
        p.setPen(Qt::NoPen);
        p.setBrush(fill);
        p.drawRoundedRect(r, r.height() / 2, r.height() / 2);
        if (hasFocus()) KitPaint::focusRing(p, r, r.height() / 2, V3::accent.resolve(a));
        p.setFont(KitPaint::font(10, QFont::Medium));
        p.setPen(V3::accent.resolve(a));
        p.drawText(r.adjusted(8, 0, -14, 0), Qt::AlignVCenter | Qt::AlignLeft, text());
        p.setPen(QPen(V3::fgMute.resolve(a), 1.2));
        const QPointF c(r.right() - 9, r.center().y());
        p.drawLine(c + QPointF(-2.5, -2.5), c + QPointF(2.5, 2.5));
        p.drawLine(c + QPointF(-2.5, 2.5), c + QPointF(2.5, -2.5));
    }

    bool event(QEvent* event) override
    {
        if (KitPaint::isAppearanceChange(event)) update();
        return QAbstractButton::event(event);
    }
};

} // namespace

ClipSetupTags::ClipSetupTags(std::function<void(const QStringList&)> applyTags, QWidget* parent)
    : QWidget(parent)
    , apply(std::move(applyTags))
{
    setFixedHeight(height);
    row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(4);
    input = new QLineEdit(this);
    input->setPlaceholderText(QStringLiteral("Add tag"));
    input->setAccessibleName(QStringLiteral("Add tag"));
    input->setFixedHeight(height);
    input->setMinimumWidth(64);
    input->setFont(KitPaint::font(11));
    V3Field::install(input);
    completer = new QCompleter(new QStringListModel(this), this);
    completer->setCaseSensitivity(Qt::CaseInsensitive);
    completer->setFilterMode(Qt::MatchContains);
    input->setCompleter(completer);
    row->addWidget(input, 1);
    connect(input, &QLineEdit::returnPressed, this, &ClipSetupTags::add);
}

void ClipSetupTags::setTags(const QStringList& tags)
{
    if (tags == shown && chipButtons.size() == tags.size()) return;
    shown = tags;
    qDeleteAll(chipButtons);
    chipButtons.clear();
    for (qsizetype i = 0; i < tags.size(); ++i) {
        auto* chip = new _TagChip(tags[i], this);
        row->insertWidget(int(i), chip);
        chipButtons << chip;
        const QString tag = tags[i];
        connect(chip, &QAbstractButton::clicked, this, [this, tag] { apply(ClipEdits::withoutTag(shown, tag)); });
    }
}

void ClipSetupTags::setCompletions(const QStringList& tags)
{
    static_cast<QStringListModel*>(completer->model())->setStringList(tags);
}

void ClipSetupTags::add()
{
    const QStringList next = ClipEdits::withTag(shown, input->text());
    input->clear();
    if (next != shown) apply(next);
}
