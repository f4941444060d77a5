#pragma once

#include <QDate>
#include <QWidget>

#include <vector>

class CalendarGrid;
class ClipJournalStore;
class CompassRadial;
class JournalMetricCard;
class PnLLineChart;
class QBoxLayout;
class V3Segmented;
class V3Text;

// The journal at a glance: the headline and quant cards, the compass score, the equity curve and
// the month calendar. It shows the store's metrics as they stand and follows every change of the
// clips or the unit.
class JournalOverview : public QWidget {
    Q_OBJECT
public:
    enum class PerfChartMode { cumulative, daily };

    explicit JournalOverview(ClipJournalStore* store, QWidget* parent = nullptr);

    // The eight cards, headline row first.
    const std::vector<JournalMetricCard*>& cards() const { return metricCards; }
    JournalMetricCard* card(const QString& label) const;
    CalendarGrid* calendar() const { return calendarGrid; }
    PnLLineChart* performanceChart() const { return chart; }
    QDate monthAnchor() const { return anchor; }
    void setMonthAnchor(const QDate& date);
    void setPerfMode(PerfChartMode mode);

    // Shows the store's figures again.
    void refresh();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    // Lays the card headers out in one row, or in two when the screen is narrow.
    void arrangeHeaders(bool narrow);

    ClipJournalStore* store;
    std::vector<JournalMetricCard*> metricCards;
    CompassRadial* compass;
    V3Text* compassValue;
    V3Text* compassCaption;
    V3Segmented* perfSwitch;
    QBoxLayout* perfHeader;
    QBoxLayout* calendarTop;
    QBoxLayout* calendarBottom;
    std::vector<QWidget*> calendarControls; // previous, month, next
    bool narrowHeaders = false;
    PnLLineChart* chart;
    V3Text* monthLabel;
    CalendarGrid* calendarGrid;
    QDate anchor;
    PerfChartMode perfMode = PerfChartMode::cumulative;
};
