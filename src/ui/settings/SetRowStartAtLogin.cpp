#include "ui/settings/SetRowStartAtLogin.h"

#include "ui/kit/V3Toggle.h"

#include <QSignalBlocker>

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
    showEntry();
    // On toggled, not clicked: assistive technology toggles a switch without a click.
    connect(control, &QAbstractButton::toggled, this, &SetRowStartAtLogin::setEnabledAtLogin);
}

void SetRowStartAtLogin::showEvent(QShowEvent* event)
{
    SetRow::showEvent(event);
    showEntry();
}

void SetRowStartAtLogin::setEnabledAtLogin(bool on)
{
    const std::optional<QString> problem = entry.setEnabled(on);
    setWarning(problem.value_or(QString()));
    showEntry();
}

void SetRowStartAtLogin::showEntry()
{
    // What the entry is on disk, without writing it again.
    const QSignalBlocker quiet(control);
    control->setChecked(entry.isEnabled());
}
