#include "ui/JournalOverview.h"

#include "journal/ClipJournalStore.h"
#include "ui/CalendarGrid.h"
#include "ui/HeroCard.h"
#include "ui/JournalCharts.h"
#include "ui/JournalFigures.h"
#include "ui/JournalMetricCard.h"
#include "ui/ResponsiveGrid.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Segmented.h"
#include "ui/kit/V3Text.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

JournalOverview::JournalOverview(ClipJournalStore* journal, QWidget* parent)
    : QWidget(parent)
    , store(journal)
    , anchor(JournalChartData::startOfMonth(QDate::currentDate()))
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(12);

    for (int row = 0; row < 2; ++row) {
        auto* cardRow = new ResponsiveGrid(4, 150, this);
        for (int i = 0; i < 4; ++i) {
            metricCards.push_back(new JournalMetricCard(cardRow));
            cardRow->addItem(metricCards.back());
        }
        column->addWidget(cardRow);
    }

    auto* middle = new ResponsiveGrid(2, 280, this);
    auto* compassCard = new HeroCard(middle);
    compassCard->setFixedWidth(280);
    compass = new CompassRadial(compassCard);
    compassCard->column()->addWidget(compass, 0, Qt::AlignHCenter);
    compassCard->column()->addWidget(
        new V3Text(QStringLiteral("Compass Score"), 11, QFont::DemiBold, V3::fgMute, compassCard), 0, Qt::AlignHCenter);
    compassValue = new V3Text({}, 30, QFont::DemiBold, V3::accent, compassCard);
    compassCard->column()->addWidget(compassValue, 0, Qt::AlignHCenter);
    compassCaption = new V3Text({}, 11, QFont::Normal, V3::fgFaint, compassCard);
    compassCaption->setAlignment(Qt::AlignHCenter);
    compassCard->column()->addWidget(compassCaption);
    middle->addItem(compassCard);

    auto* perfCard = new HeroCard(middle);
    auto* perfHeader = new QHBoxLayout;
    perfHeader->addWidget(new V3Text(QStringLiteral("Equity curve"), 13, QFont::DemiBold, V3::fg, perfCard));
    perfHeader->addStretch();
    perfSwitch = new V3Segmented({ { QStringLiteral("cumulative"), QStringLiteral("cumulative") },
                                     { QStringLiteral("daily"), QStringLiteral("daily") } },
        perfCard);
    perfSwitch->setSelection(QStringLiteral("cumulative"));
    perfHeader->addWidget(perfSwitch);
    perfCard->column()->addLayout(perfHeader);
    chart = new PnLLineChart(perfCard);
    perfCard->column()->addWidget(chart, 1);
    middle->addItem(perfCard);
    column->addWidget(middle);
    connect(perfSwitch, &V3Segmented::selectionChanged, this, [this](const QString& value) {
        setPerfMode(value == QStringLiteral("daily") ? PerfChartMode::daily : PerfChartMode::cumulative);
    });

    auto* calendarCard = new HeroCard(this);
    auto* calendarHeader = new QHBoxLayout;
    calendarHeader->addWidget(new V3Text(QStringLiteral("Calendar"), 13, QFont::DemiBold, V3::fg, calendarCard));
    calendarHeader->addStretch();
    auto* previous = new V3Button(V3Button::Kind::ghost, {}, calendarCard);
    previous->setSymbol(QStringLiteral("chevron.left"));
    previous->setAccessibleName(QStringLiteral("Previous month"));
    monthLabel = new V3Text({}, 13, QFont::DemiBold, V3::fg, calendarCard);
    monthLabel->setAlignment(Qt::AlignCenter);
    monthLabel->setMinimumWidth(72);
    auto* next = new V3Button(V3Button::Kind::ghost, {}, calendarCard);
    next->setSymbol(QStringLiteral("chevron.right"));
    next->setAccessibleName(QStringLiteral("Next month"));
    auto* current = new V3Button(V3Button::Kind::secondary, QStringLiteral("Current"), calendarCard);
    calendarHeader->addWidget(previous);
    calendarHeader->addWidget(monthLabel);
    calendarHeader->addWidget(next);
    calendarHeader->addWidget(current);
    calendarCard->column()->addLayout(calendarHeader);
    calendarGrid = new CalendarGrid(calendarCard);
    calendarCard->column()->addWidget(calendarGrid);
    column->addWidget(calendarCard);
    column->addStretch();
    connect(previous, &QAbstractButton::clicked, this, [this] { setMonthAnchor(anchor.addMonths(-1)); });
    connect(next, &QAbstractButton::clicked, this, [this] { setMonthAnchor(anchor.addMonths(1)); });
    connect(current, &QAbstractButton::clicked, this, [this] { setMonthAnchor(QDate::currentDate()); });

    connect(store, &ClipJournalStore::clipsChanged, this, &JournalOverview::refresh);
    connect(store, &ClipJournalStore::displayUnitChanged, this, &JournalOverview::refresh);
    refresh();
}

JournalMetricCard* JournalOverview::card(const QString& label) const
{
    for (JournalMetricCard* card : metricCards)
        if (card->figure().label == label) return card;
    return nullptr;
}

void JournalOverview::setMonthAnchor(const QDate& date)
{
    anchor = JournalChartData::startOfMonth(date);
    refresh();
}

void JournalOverview::setPerfMode(PerfChartMode mode)
{
    perfMode = mode;
    perfSwitch->setSelection(mode == PerfChartMode::daily ? QStringLiteral("daily") : QStringLiteral("cumulative"));
    refresh();
}

void JournalOverview::refresh()
{
    const JournalMetrics m = store->metrics();
    const PnLUnit unit = store->displayUnit();
    const std::vector<MetricFigure> figures = JournalFigures::overviewCards(m, unit);
    for (size_t i = 0; i < metricCards.size() && i < figures.size(); ++i)
        metricCards[i]->setFigure(figures[i]);
    const std::optional<int> score = m.compassScore();
    compass->setScore(score);
    compassValue->setText(score ? QString::number(*score) : JournalFigures::absent);
    compassCaption->setText(JournalFigures::compassCaption(score.has_value()));
    chart->setPoints(perfMode == PerfChartMode::daily ? m.daily() : m.cumulative());
    monthLabel->setText(JournalChartData::monthYearLabel(anchor));
    calendarGrid->setData(anchor, m.dailyPnL(), m.dailyCount(), unit);
}
