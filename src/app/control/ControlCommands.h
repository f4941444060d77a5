#pragma once

#include "app/client/ControlProtocol.h"

class RecorderViewModel;

// What the running instance does for each `velotape <command>`. `toggle` is exactly the save
// hotkey; `start` and `stop` are the same action made idempotent for scripts.
//
// Main thread.
class ControlCommands {
public:
    explicit ControlCommands(RecorderViewModel& viewModel)
        : viewModel(viewModel)
    {
    }

    ControlProtocol::Reply handle(const QStringList& command);

    // One line about the state: recording or buffering, how much, from which source, and with
    // which encoder once it is chosen.
    QString status() const;

private:
    RecorderViewModel& viewModel;
};
