#pragma once

#include <QStringList>
#include <QTextStream>

class AppSettings;

// `velotape journal [--folder DIR] [--unit dollars|R|points|ticks] [--json]` prints every figure of
// the journal's Overview and Stats screens with its caption; `--simulate [--horizon N] [--paths N]
// [--start X] [--ruin OFFSET] [--seed N]` runs the Monte Carlo simulation as the Simulations screen
// would. `args` are the arguments after "journal".
//
// Without --folder the save folder comes from `settings` (the user's settings when null). Returns
// the exit status: 0 on success, 2 for bad arguments or a folder that does not exist, with one line
// on `err` saying what was wrong. Needs a QCoreApplication but no display; runs on the calling thread.
int runJournalCommand(const QStringList& args, QTextStream& out, QTextStream& err, AppSettings* settings = nullptr);
