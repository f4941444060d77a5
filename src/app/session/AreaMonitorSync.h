#pragma once

#include <QObject>

#include <memory>

class AppSettings;
class AreaMonitor;
class ArmedFrame;

// The area monitor in step with the settings, both ways: its sensitivity, area and reference come
// from them at launch and are remembered whenever they change. And the armed frame on the screen in
// step with the monitor's arming and area and the overlay's settings.
//
// Main thread.
class AreaMonitorSync : public QObject {
    Q_OBJECT
public:
    // `armedFrame` may be null: nothing on the screen says that the monitor is armed.
    AreaMonitorSync(
        AppSettings& settings, AreaMonitor& monitor, std::unique_ptr<ArmedFrame> armedFrame, QObject* parent = nullptr);
    ~AreaMonitorSync() override;

private:
    void followArming();

    AppSettings& settings;
    AreaMonitor& monitor;
    std::unique_ptr<ArmedFrame> armedFrame;
};
