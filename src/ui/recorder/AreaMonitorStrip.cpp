#include "ui/recorder/AreaMonitorStrip.h"

#include "app/session/AreaCommands.h"
#include "app/session/SessionActions.h"
#include "monitor/AreaMonitorActions.h"
#include "ui/kit/D1NavTile.h"
#include "ui/kit/EnterPresses.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Chip.h"
#include "ui/kit/V3Text.h"
#include "ui/recorder/OnChange.h"

#include <QAbstractButton>
#include <QHBoxLayout>
#include <QPainter>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int tileSize = 32;
constexpr int inset = 12;

// One of the three sensitivities: filled with the accent while chosen, faint on the inset plate
// otherwise.
class SensitivityButton : public QAbstractButton {
public:
    SensitivityButton(const QString& label, QWidget* parent)
        : QAbstractButton(parent)
    {
        setText(label);
        setAccessibleName(label);
        setCheckable(true);
        setAutoExclusive(true);
        setFocusPolicy(Qt::TabFocus);
        new EnterPresses(this);
        setFixedSize(52, 22);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(isChecked() ? V3::accent.resolve(this) : V3::bgInset.resolve(this));
        p.drawRoundedRect(QRectF(rect()), 5, 5);
        p.setFont(KitPaint::font(11, QFont::Medium));
        p.setPen(isChecked() ? QColor(Qt::white) : V3::fgFaint.resolve(this));
        p.drawText(rect(), Qt::AlignCenter, text());
        if (hasFocus()) KitPaint::focusRing(p, QRectF(rect()), 5, V3::accent.resolve(this));
    }
    bool event(QEvent* event) override
    {
        if (KitPaint::isAppearanceChange(event)) update();
        return QAbstractButton::event(event);
    }
};

} // namespace

AreaMonitorStrip::AreaMonitorStrip(
    AreaMonitor* watched, AreaCommands* commands, SessionActions* actionsOfSession, QWidget* parent)
    : QWidget(parent)
    , monitor(watched)
    , areas(commands)
    , session(actionsOfSession)
{
    setFixedHeight(stripHeight);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(inset + tileSize + 10, 0, inset, 0);
    row->setSpacing(10);

    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    auto* titleRow = new QHBoxLayout;
    titleRow->setSpacing(8);
    titleRow->addWidget(new V3Text(QStringLiteral("Area monitor"), 12, QFont::DemiBold, V3::fg, this));
    chip = new V3Chip(QStringLiteral("OFF"), V3::fgMute, V3::bgInset, false, this);
    titleRow->addWidget(chip);
    titleRow->addStretch();
    texts->addStretch();
    texts->addLayout(titleRow);
    detail = new V3Text({}, 10, QFont::Normal, V3::fgMute, this);
    detail->setWordWrap(false);
    texts->addWidget(detail);
    texts->addStretch();
    row->addLayout(texts, 1);

    sensitivities = new QWidget(this);
    auto* choices = new QHBoxLayout(sensitivities);
    choices->setContentsMargins(0, 0, 0, 0);
    choices->setSpacing(4);
    for (const auto& c : EnumTable<AreaSensitivity>::cases) {
        auto* b = new SensitivityButton(QString::fromUtf8(c.label), sensitivities);
        const AreaSensitivity value = c.value;
        // Chosen by a click, by Space or by assistive technology's toggle alike.
        connect(b, &QAbstractButton::toggled, this, [this, value](bool on) {
            if (on) monitor->setSensitivity(value);
        });
        choices->addWidget(b);
        sensitivityButtons.emplace_back(value, b);
    }
    row->addWidget(sensitivities);

    actions = new QHBoxLayout;
    actions->setSpacing(6);
    row->addLayout(actions);
    select = addAction(QStringLiteral("plus"), QStringLiteral("Select watch area"), {});
    connect(select, &QAbstractButton::clicked, areas, &AreaCommands::pickWatchArea);
    repick = addAction(QStringLiteral("rectangle.dashed"), {}, QStringLiteral("Re-pick"));
    connect(repick, &QAbstractButton::clicked, areas, &AreaCommands::pickWatchArea);
    recapture = addAction(QStringLiteral("arrow.clockwise"), {}, QStringLiteral("Recapture reference"));
    connect(recapture, &QAbstractButton::clicked, monitor, [watched = monitor] { watched->captureReference(); });
    armButton = addAction(QStringLiteral("record.circle"), QStringLiteral("Arm"), {});
    connect(armButton, &QAbstractButton::clicked, this, &AreaMonitorStrip::arm);
    disarm = addAction({}, QStringLiteral("Disarm"), {});
    connect(disarm, &QAbstractButton::clicked, monitor, &AreaMonitor::disarm);
    stopAndDisarm = addAction({}, QStringLiteral("Stop & disarm"), {});
    connect(stopAndDisarm, &QAbstractButton::clicked, monitor, &AreaMonitor::disarm);

    auto redraw = [this] { refresh(); };
    onChange(this, monitor, &AreaMonitor::rect, &AreaMonitor::rectChanged, redraw);
    onChange(this, monitor, &AreaMonitor::isArmed, &AreaMonitor::isArmedChanged, redraw);
    onChange(this, monitor, &AreaMonitor::phase, &AreaMonitor::phaseChanged, redraw);
    onChange(this, monitor, &AreaMonitor::currentDiff, &AreaMonitor::currentDiffChanged, redraw);
    onChange(this, monitor, &AreaMonitor::sensitivity, &AreaMonitor::sensitivityChanged, redraw);
    refresh();
}

QAbstractButton* AreaMonitorStrip::addAction(const QString& symbol, const QString& text, const QString& tip)
{
    const bool iconOnly = text.isEmpty();
    auto* b = new V3Button(iconOnly ? V3Button::Kind::ghost : V3Button::Kind::secondary, text, this);
    if (!symbol.isEmpty()) b->setSymbol(symbol);
    if (iconOnly) {
        b->setFixedSize(26, 26);
        b->setToolTip(tip);
        b->setAccessibleName(tip);
    }
    actions->addWidget(b);
    return b;
}

AreaMonitorStrip::Variant AreaMonitorStrip::variantOf(bool hasRect, bool isArmed, AreaMonitor::MonitorPhase phase)
{
    if (!hasRect) return Variant::off;
    if (!isArmed) return Variant::idle;
    return phase == AreaMonitor::MonitorPhase::divergent ? Variant::triggered : Variant::armed;
}

QString AreaMonitorStrip::chipText() const
{
    return chip->text();
}

QString AreaMonitorStrip::detailText() const
{
    return detail->text();
}

QAbstractButton* AreaMonitorStrip::button(const QString& name) const
{
    for (QAbstractButton* b : findChildren<QAbstractButton*>())
        if (b->isVisibleTo(this) && (b->accessibleName().isEmpty() ? b->text() : b->accessibleName()) == name) return b;
    return nullptr;
}

void AreaMonitorStrip::arm()
{
    // The strip says only why arming failed; armed is what the chip shows.
    if (const auto failure = monitor->arm()) session->showToast(AreaMonitorActions::armFailureMessage(*failure));
}

void AreaMonitorStrip::refresh()
{
    shown = variantOf(monitor->rect().has_value(), monitor->isArmed(), monitor->phase());
    const QString diff = QString::number(monitor->currentDiff(), 'f', 0);
    switch (shown) {
    case Variant::off:
        chip->setText(QStringLiteral("OFF"));
        chip->setColors(V3::fgMute, V3::bgInset);
        detail->setText(QStringLiteral("Pick a region to watch"));
        break;
    case Variant::idle:
        chip->setText(QStringLiteral("IDLE"));
        chip->setColors(V3::fgMute, V3::bgInset);
        detail->setText(QStringLiteral("Ready"));
        break;
    case Variant::armed:
        chip->setText(QStringLiteral("ARMED"));
        chip->setColors(V3::match, V3::matchSoft);
        detail->setText(QStringLiteral("Δ %1 · quiet").arg(diff));
        break;
    case Variant::triggered:
        chip->setText(QStringLiteral("TRIGGERED"));
        chip->setColors(V3::alert, V3::alertSoft);
        detail->setText(QStringLiteral("Δ %1 · recording").arg(diff));
        break;
    }
    sensitivities->setVisible(shown != Variant::off && width() >= sensitivitiesWidth);
    for (const auto& [value, b] : sensitivityButtons)
        b->setChecked(value == monitor->sensitivity());
    const std::initializer_list<QAbstractButton*> all { select, repick, recapture, armButton, disarm, stopAndDisarm };
    const bool actionFocused = std::any_of(all.begin(), all.end(), [](QAbstractButton* b) { return b->hasFocus(); });
    select->setVisible(shown == Variant::off);
    repick->setVisible(shown == Variant::idle || shown == Variant::armed);
    recapture->setVisible(shown == Variant::idle);
    armButton->setVisible(shown == Variant::idle);
    disarm->setVisible(shown == Variant::armed);
    stopAndDisarm->setVisible(shown == Variant::triggered);
    // "Arm" pressed from the keyboard goes away with its variant: the focus moves to what stands
    // in its place ("Disarm", "Stop & disarm", "Arm" again) rather than wandering off the strip.
    if (actionFocused && !std::any_of(all.begin(), all.end(), [](QAbstractButton* b) { return b->hasFocus(); })) {
        for (QAbstractButton* b : { armButton, disarm, stopAndDisarm, select })
            if (b->isVisibleTo(this)) b->setFocus(Qt::TabFocusReason);
    }
}

void AreaMonitorStrip::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF plate = QRectF(rect()).adjusted(0.25, 0.25, -0.25, -0.25);
    p.setPen(QPen(V3::lineSoft.resolve(this), 0.5));
    p.setBrush(V3::bgCard.resolve(this));
    p.drawRoundedRect(plate, 14, 14);
    D1NavTile::paint(p, QRectF(inset, (stripHeight - tileSize) / 2.0, tileSize, tileSize),
        QStringLiteral("rectangle.dashed"), D1::tileBlue);
}

void AreaMonitorStrip::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    sensitivities->setVisible(shown != Variant::off && width() >= sensitivitiesWidth);
}

bool AreaMonitorStrip::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QWidget::event(event);
}
