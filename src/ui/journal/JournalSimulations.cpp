#include "ui/journal/JournalSimulations.h"

#include "journal/ClipJournalStore.h"
#include "journal/FormatPnL.h"
#include "ui/ResponsiveGrid.h"
#include "ui/journal/JournalCharts.h"
#include "ui/journal/JournalMetricCard.h"
#include "ui/journal/JournalSection.h"
#include "ui/journal/SimulationRunner.h"
#include "ui/kit/Symbols.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Slider.h"
#include "ui/kit/V3Text.h"
#include "ui/kit/V3Toggle.h"

#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QPainter>
#include <QSlider>
#include <QVBoxLayout>

namespace {

// The symbol over the empty state's words.
class SymbolTile : public QWidget {
public:
    explicit SymbolTile(QString symbol, QWidget* parent)
        : QWidget(parent)
        , symbol(std::move(symbol))
    {
        setFixedSize(44, 44);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        Symbols::paint(p, QRectF(rect()).adjusted(6, 6, -6, -6), symbol, V3::fgMute.resolve(this));
    }

private:
    QString symbol;
};

// A dot and a word of the fan's legend.
QWidget* legendEntry(const QString& text, double opacity, QWidget* parent)
{
    auto* entry = new QWidget(parent);
    auto* row = new QHBoxLayout(entry);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(4);
    auto* dot = new V3Text(QStringLiteral("●"), 10, QFont::Normal, V3::accent, entry);
    auto* effect = new QGraphicsOpacityEffect(dot);
    effect->setOpacity(opacity);
    dot->setGraphicsEffect(effect);
    row->addWidget(dot);
    row->addWidget(new V3Text(text, 11, QFont::Normal, V3::fgMute, entry));
    return entry;
}

} // namespace

JournalSimulations::JournalSimulations(ClipJournalStore* journal, QWidget* parent)
    : QWidget(parent)
    , store(journal)
    , runner(new SimulationRunner(this))
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(12);

    emptyState = new QWidget(this);
    auto* empty = new QVBoxLayout(emptyState);
    empty->setContentsMargins(0, 40, 0, 0);
    empty->addWidget(new SymbolTile(QStringLiteral("wand.and.stars"), emptyState), 0, Qt::AlignHCenter);
    for (const auto& [text, colour] :
        { std::pair { QStringLiteral("Need at least 5 P&L-tagged trades to run a simulation."), &V3::fg },
            std::pair { QStringLiteral("Tag clips with W/L + P&L, then come back here."), &V3::fgMute } }) {
        auto* line = new V3Text(text, 13, colour == &V3::fg ? QFont::DemiBold : QFont::Normal, *colour, emptyState);
        line->setAlignment(Qt::AlignHCenter);
        empty->addWidget(line);
    }
    column->addWidget(emptyState);

    content = new QWidget(this);
    auto* body = new QVBoxLayout(content);
    body->setContentsMargins(0, 0, 0, 0);
    body->setSpacing(12);

    auto* controls = journalSection(QStringLiteral("Monte Carlo controls"), {}, content);
    auto* bootstrapRow = new QHBoxLayout;
    bootstrapText = new V3Text({}, 12, QFont::Normal, V3::fgMute, controls);
    auto* rerun = new V3Button(V3Button::Kind::secondary, QStringLiteral("Re-run"), controls);
    rerun->setSymbol(QStringLiteral("arrow.clockwise"));
    // The words take the room the button leaves: beside a stretch they would wrap at any width.
    bootstrapRow->addWidget(bootstrapText, 1);
    bootstrapRow->addWidget(rerun);
    controls->column()->addLayout(bootstrapRow);
    sliderValues.resize(4);
    addSlider(
        controls, controls->column(), QStringLiteral("Trades ahead"), { 5, 500, 5 }, current.horizon, &sliderValues[0]);
    addSlider(
        controls, controls->column(), QStringLiteral("Paths"), { 200, 10000, 200 }, current.paths, &sliderValues[1]);
    addSlider(controls, controls->column(), QStringLiteral("Starting equity"), { -5000, 20000, 100 },
        current.startingEquity, &sliderValues[2]);

    auto* ruinHeader = new QHBoxLayout;
    ruinHeader->addWidget(new V3Text(QStringLiteral("Ruin threshold"), 12, QFont::DemiBold, V3::fg, controls));
    ruinHeader->addStretch();
    ruinSwitch = new V3Toggle(controls);
    ruinSwitch->setText(QStringLiteral("Ruin threshold"));
    ruinHeader->addWidget(ruinSwitch);
    controls->column()->addLayout(ruinHeader);
    ruinRow = new QWidget(controls);
    auto* ruinColumn = new QVBoxLayout(ruinRow);
    ruinColumn->setContentsMargins(0, 0, 0, 0);
    addSlider(
        ruinRow, ruinColumn, QStringLiteral("Below start"), { -20000, 0, 100 }, current.ruinOffset, &sliderValues[3]);
    auto* dim = new QGraphicsOpacityEffect(ruinRow);
    dim->setOpacity(0.5);
    ruinRow->setGraphicsEffect(dim);
    controls->column()->addWidget(ruinRow);
    body->addWidget(controls);

    auto* fanCard = journalSection(QStringLiteral("Equity fan"), {}, content);
    fan = new MonteCarloFanChart(fanCard);
    fanCard->column()->addWidget(fan);
    auto* legend = new QHBoxLayout;
    legend->addWidget(legendEntry(QStringLiteral("5–95%"), 0.15 * 2.5, fanCard));
    legend->addWidget(legendEntry(QStringLiteral("25–75%"), 0.32 * 2, fanCard));
    legend->addWidget(legendEntry(QStringLiteral("median"), 1.0, fanCard));
    legend->addStretch();
    fanCard->column()->addLayout(legend);
    body->addWidget(fanCard);

    auto* cardGrid = new ResponsiveGrid(4, 150, content);
    for (int i = 0; i < 4; ++i) {
        cards.push_back(new JournalMetricCard(cardGrid));
        cardGrid->addItem(cards.back());
    }
    body->addWidget(cardGrid);
    column->addWidget(content);
    column->addStretch();

    connect(rerun, &QAbstractButton::clicked, this, [this] {
        ++current.seed;
        recompute();
    });
    connect(ruinSwitch, &QAbstractButton::toggled, this, [this, dim](bool on) {
        current.ruinEnabled = on;
        dim->setOpacity(on ? 1.0 : 0.5);
        recompute();
    });
    connect(runner, &SimulationRunner::finished, this, &JournalSimulations::showResult);
    connect(store, &ClipJournalStore::clipsChanged, this, &JournalSimulations::refresh);
    connect(store, &ClipJournalStore::displayUnitChanged, this, &JournalSimulations::refresh);
    connect(store, &ClipJournalStore::filterChanged, this, &JournalSimulations::refresh);
    refresh();
}

QSlider* JournalSimulations::addSlider(
    QWidget* owner, QBoxLayout* into, const QString& label, Range range, double value, V3Text** valueText)
{
    auto* header = new QHBoxLayout;
    header->addWidget(new V3Text(label, 12, QFont::Normal, V3::fgMute, owner));
    header->addStretch();
    *valueText = new V3Text({}, 12, QFont::DemiBold, V3::fg, owner);
    // Wide enough for the longest value, so that a moving value never lays the card out again.
    (*valueText)->setMinimumWidth(64);
    (*valueText)->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    header->addWidget(*valueText);
    into->addLayout(header);
    // The slider counts steps; the setting is the minimum plus that many steps.
    auto* slider = new V3Slider(owner);
    slider->setAccessibleName(label);
    slider->setRange(0, int(std::lround((range.max - range.min) / range.step)));
    slider->setPageStep(std::max(1, slider->maximum() / 10));
    slider->setValue(int(std::lround((value - range.min) / range.step)));
    into->addWidget(slider);
    const size_t index = sliders.size();
    sliders.push_back(slider);
    connect(slider, &QSlider::valueChanged, this, [this, slider, index, range](int steps) {
        const double setting = range.min + range.step * steps;
        double* fields[] = { &current.horizon, &current.paths, &current.startingEquity, &current.ruinOffset };
        *fields[index] = setting;
        // Only the value beside the label changes while a slider moves; the fan waits for the run.
        updateSliderTexts();
        // A drag runs when it ends; a key or a click on the groove is an edit of its own.
        if (!slider->isSliderDown() && (index != 3 || current.ruinEnabled)) recompute();
    });
    connect(slider, &QSlider::sliderReleased, this, [this, index] {
        if (index != 3 || current.ruinEnabled) recompute();
    });
    return slider;
}

bool JournalSimulations::showsEmptyState() const
{
    return emptyState->isVisibleTo(this);
}

JournalMetricCard* JournalSimulations::card(const QString& label) const
{
    for (JournalMetricCard* card : cards)
        if (card->figure().label == label) return card;
    return nullptr;
}

void JournalSimulations::refresh()
{
    tradeCount = store->metrics().tradeCount();
    const bool enough = tradeCount >= JournalFigures::minimumTradesToSimulate;
    emptyState->setVisible(!enough);
    content->setVisible(enough);
    updateTexts();
    if (enough) recompute();
}

void JournalSimulations::recompute()
{
    const JournalMetrics m = store->metrics();
    if (m.tradeCount() < JournalFigures::minimumTradesToSimulate) return;
    runner->run(JournalFigures::simulationConfig(current, m.tradePnL()));
}

void JournalSimulations::showResult(const std::optional<MonteCarloEngine::Result>& result)
{
    shown = result;
    shownTracksRuin = result && result->ruinProbability.has_value();
    updateTexts();
    emit resultShown();
}

void JournalSimulations::updateSliderTexts()
{
    const PnLUnit unit = store->displayUnit();
    sliderValues[0]->setText(QString::number(int(current.horizon)));
    sliderValues[1]->setText(QString::number(int(current.paths)));
    sliderValues[2]->setText(formatPnL(current.startingEquity, unit, 0));
    sliderValues[3]->setText(formatPnL(current.ruinOffset, unit, 0));
}

void JournalSimulations::updateTexts()
{
    const PnLUnit unit = store->displayUnit();
    bootstrapText->setText(QStringLiteral("Bootstrap from %1 trades").arg(tradeCount));
    updateSliderTexts();
    fan->setResult(shown, unit);
    const std::vector<MetricFigure> figures = JournalFigures::simulationCards(shown, shownTracksRuin, unit);
    for (size_t i = 0; i < cards.size() && i < figures.size(); ++i)
        cards[i]->setFigure(figures[i]);
}
