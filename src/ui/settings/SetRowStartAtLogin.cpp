#include "ui/settings/SetRowStartAtLogin.h"

#include "ui/kit/V3Toggle.h"

SetRowStartAtLogin::SetRowStartAtLogin(AutostartEntry autostart, QWidget* parent)
    : SetRow(QStringLiteral("Start at login"),
        QStringLiteral("Starts Velotape with your session, hidden in the tray (without a tray, in the background "
                       "with no window)."),
        parent)
    , entry(std::move(autostart))
    , control(new V3Toggle)
{
    control->setText(label());
    addControl(control);
    control->setChecked(entry.isEnabled());
    connect(control, &QAbstractButton::clicked, this, &SetRowStartAtLogin::setEnabledAtLogin);
}

void SetRowStartAtLogin::showEvent(QShowEvent* event)
{
    SetRow::showEvent(event);
    control->setChecked(entry.isEnabled());
}

void SetRowStartAtLogin::setEnabledAtLogin(bool on)
{
    const std::optional<QString> problem = entry.setEnabled(on);
    setWarning(problem.value_or(QString()));
    control->setChecked(entry.isEnabled());
}
