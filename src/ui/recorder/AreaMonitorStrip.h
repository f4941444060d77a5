#pragma once

#include "core/SettingsEnums.h"
#include "monitor/AreaMonitor.h"

#include <QWidget>

#include <vector>

class QAbstractButton;
class V3Chip;
class V3Text;

class AreaCommands;
class AreaMonitor;
class SessionActions;

// The area monitor's row on the recorder screen: its state as a chip and a line, the three
// sensitivities, and the actions of that state (pick an area, recapture the reference, arm,
// disarm). Every control calls one operation of the monitor or of the area commands.
class AreaMonitorStrip : public QWidget {
    Q_OBJECT
public:
    // No area / an area, not armed / armed and quiet / armed and the area changed.
    enum class Variant { off, idle, armed, triggered };

    static constexpr int stripHeight = 56;
    // Narrower than this, the sensitivities give their room to the actions.
    static constexpr int sensitivitiesWidth = 620;

    explicit AreaMonitorStrip(
        AreaMonitor* monitor, AreaCommands* areas, SessionActions* session, QWidget* parent = nullptr);

    static Variant variantOf(bool hasRect, bool isArmed, AreaMonitor::MonitorPhase phase);

    Variant variant() const { return shown; }
    QString chipText() const;
    QString detailText() const;
    // The buttons a user can press now, by their accessible names ("Arm", "Re-pick", "High"…).
    QAbstractButton* button(const QString& name) const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool event(QEvent* event) override;

private:
    QAbstractButton* addAction(const QString& symbol, const QString& text, const QString& tip);
    void arm();
    void refresh();

    AreaMonitor* monitor;
    AreaCommands* areas;
    SessionActions* session;
    Variant shown = Variant::off;
    V3Chip* chip;
    V3Text* detail;
    QWidget* sensitivities;
    std::vector<std::pair<AreaSensitivity, QAbstractButton*>> sensitivityButtons;
    QAbstractButton* select;
    QAbstractButton* repick;
    QAbstractButton* recapture;
    QAbstractButton* armButton;
    QAbstractButton* disarm;
    QAbstractButton* stopAndDisarm;
    class QHBoxLayout* actions;
};
