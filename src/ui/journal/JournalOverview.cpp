#include "ui/journal/JournalOverview.h"

#include "journal/ClipJournalStore.h"
#include "ui/HeroCard.h"
#include "ui/ResponsiveGrid.h"
#include "ui/journal/CalendarGrid.h"
#include "ui/journal/JournalCharts.h"
#include "ui/journal/JournalFigures.h"
#include "ui/journal/JournalMetricCard.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Segmented.h"
#include "ui/kit/V3Text.h"

#include <QHBoxLayout>
#include <QResizeEvent>
#include <QVBoxLayout>

namespace {

// Below this width the card headers take two rows.
constexpr int narrowWidth = 380;

} // namespace

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
    // Its full width where there is room; a narrow window gives it what there is.
    compassCard->setMaximumWidth(280);
    compass = new CompassRadial(compassCard);
    compassCard->column()->addWidget(compass, 0, Qt::AlignHCenter);
    compassCard->column()->addWidget(
        new V3Text(QStringLiteral("Compass Score"), 11, QFont::DemiBold, V3::fgMute, compassCard), 0, Qt::AlignHCenter);
    compassValue = new V3Text({}, 30, QFont::DemiBold, V3::accent, compassCard);
    compassCard->column()->addWidget(compassValue, 0, Qt::AlignHCenter);
    compassCaption = new V3Text({}, 11, QFont::Normal, V3::fgFaint, compassCard);
    compassCaption->setAlignment(Qt::AlignHCenter);
    compassCaption->setMinimumWidth(1);
    compassCard->column()->addWidget(compassCaption);
    middle->addItem(compassCard);

    auto* perfCard = new HeroCard(middle);
    perfHeader = new QHBoxLayout;
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
    calendarTop = new QHBoxLayout;
    calendarTop->addWidget(new V3Text(QStringLiteral("Calendar"), 13, QFont::DemiBold, V3::fg, calendarCard));
    calendarTop->addStretch();
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
    calendarTop->addWidget(current);
    calendarBottom = new QHBoxLayout;
    calendarControls = { previous, monthLabel, next };
    arrangeHeaders(false);
    calendarCard->column()->addLayout(calendarTop);
    calendarCard->column()->addLayout(calendarBottom);
    calendarGrid = new CalendarGrid(calendarCard);
    calendarCard->column()->addWidget(calendarGrid);
    column->addWidget(calendarCard);
    column->addStretch();
    connect(previous, &QAbstractButton::clicked, this, [this] { setMonthAnchor(anchor.addMonths(-1)); });
    connect(next, &QAbstractButton::clicked, this, [this] { setMonthAnchor(anchor.addMonths(1)); });
    connect(current, &QAbstractButton::clicked, this, [this] { setMonthAnchor(QDate::currentDate()); });

    connect(store, &ClipJournalStore::clipsChanged, this, &JournalOverview::refresh);
    connect(store, &ClipJournalStore::displayUnitChanged, this, &JournalOverview::refresh);
    connect(store, &ClipJournalStore::filterChanged, this, &JournalOverview::refresh);
    refresh();
}

void JournalOverview::arrangeHeaders(bool narrow)
{
    narrowHeaders = narrow;
    // The curve's title over its switch, and the month with its chevrons under the calendar's title
    // and "Current": each row whole is too wide for the screen beside a small window's sidebar.
    perfHeader->setDirection(narrow ? QBoxLayout::TopToBottom : QBoxLayout::LeftToRight);
    perfHeader->setAlignment(perfSwitch, narrow ? Qt::AlignLeft : Qt::Alignment {});
    QWidget* previous = calendarControls[0];
    QWidget* month = calendarControls[1];
    QWidget* next = calendarControls[2];
    for (QWidget* control : calendarControls) {
        calendarTop->removeWidget(control);
        calendarBottom->removeWidget(control);
    }
    if (narrow) {
        calendarBottom->addWidget(previous);
        calendarBottom->addWidget(month, 1);
        calendarBottom->addWidget(next);
    } else {
        // After the title and the stretch, before "Current".
        calendarTop->insertWidget(2, previous);
        calendarTop->insertWidget(3, month);
        calendarTop->insertWidget(4, next);
    }
}

void JournalOverview::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    const bool narrow = width() < narrowWidth;
    if (narrow != narrowHeaders) arrangeHeaders(narrow);
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
