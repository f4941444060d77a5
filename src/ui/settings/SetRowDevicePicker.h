#pragma once

#include "ui/settings/SetRow.h"

#include <QString>

#include <optional>
#include <vector>

class V3Button;

// A row that picks one device from a menu: each device by name, a check mark on the chosen one.
// The button names the device whose identifier the setting holds, "None" in every other case; the
// help line counts the devices ("2 devices detected", or `noneText` when there are none).
class SetRowDevicePicker : public SetRow {
    Q_OBJECT
public:
    struct Device {
        QString uniqueID;
        QString name;
    };

    SetRowDevicePicker(const QString& label, const QString& noneText, QWidget* parent = nullptr);

    void setDevices(const std::vector<Device>& devices, const std::optional<QString>& chosen);
    V3Button* button() const { return menuButton; }

signals:
    void deviceChosen(const QString& uniqueID);

private:
    QString noneText;
    V3Button* menuButton;
};
