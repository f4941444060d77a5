#pragma once

#include "app/AutostartEntry.h"
#include "ui/settings/SetRow.h"

class V3Toggle;

// "Start at login": a switch over the user's autostart entry. The entry is read again whenever
// the row shows, as the desktop's own start-up settings may have changed it; a failure to write
// it is said under the row and leaves the switch as the file is.
class SetRowStartAtLogin : public SetRow {
    Q_OBJECT
public:
    explicit SetRowStartAtLogin(AutostartEntry entry, QWidget* parent = nullptr);

    V3Toggle* toggle() const { return control; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void setEnabledAtLogin(bool on);
    // The switch as the entry on disk has it.
    void showEntry();

    AutostartEntry entry;
    V3Toggle* control;
};
