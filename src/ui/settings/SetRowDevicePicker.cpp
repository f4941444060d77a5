#include "ui/settings/SetRowDevicePicker.h"

#include "ui/kit/V3Button.h"

#include <QMenu>

SetRowDevicePicker::SetRowDevicePicker(const QString& label, const QString& none, QWidget* parent)
    : SetRow(label, none, parent)
    , noneText(none)
{
    menuButton = new V3Button(V3Button::Kind::secondary, QStringLiteral("None"));
    menuButton->setMenu(new QMenu(menuButton));
    addControl(menuButton);
}

void SetRowDevicePicker::setDevices(const std::vector<Device>& devices, const std::optional<QString>& chosen)
{
    QMenu* menu = menuButton->menu();
    menu->clear();
    QString shown = QStringLiteral("None");
    for (const Device& device : devices) {
        QAction* item = menu->addAction(device.name);
        item->setCheckable(true);
        item->setChecked(chosen == device.uniqueID);
        if (chosen == device.uniqueID) shown = device.name;
        connect(item, &QAction::triggered, this, [this, id = device.uniqueID] { emit deviceChosen(id); });
    }
    menuButton->setText(shown);
    const auto count = devices.size();
    setHelp(count == 0
            ? noneText
            : QStringLiteral("%1 device%2 detected").arg(count).arg(count == 1 ? QString() : QStringLiteral("s")));
}
