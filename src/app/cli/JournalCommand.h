#pragma once

#include <QStringList>
#include <QTextStream>

class AppSettings;

// `velotape journal [--folder DIR] [--unit dollars|R|points|ticks] [--json]` prints every figure of
// the journal's Overview and Stats screens with its caption; `--simulate [--horizon N] [--paths N]
// [--start X] [--ruin OFFSET] [--seed N]` runs the Monte Carlo simulation as the Simulations screen
// would. `--import FILE.csv` reads the broker's closed trades into the folder's sidecars (see
// TradeImporter) and prints what it did; `--export FILE.csv` writes the journal as CSV, one row per
// trade or tagged clip, which `--import` reads back. `--symbol S` and `--tag T` narrow the
// statistics. `args` are the arguments after "journal".
//
// Without --folder the save folder comes from `settings` (the user's settings when null). Returns
// the exit status: 0 on success, 2 for bad arguments, a folder that does not exist, a file of trades
// that can't be used or an export that can't be written, with one line on `err` saying what was
// wrong. Needs a QCoreApplication but no display; runs on the calling thread.
int runJournalCommand(const QStringList& args, QTextStream& out, QTextStream& err, AppSettings* settings = nullptr);
