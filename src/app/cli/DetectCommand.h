#pragma once

#include "platform/TextRecognizer.h"

#include <QStringList>
#include <QTextStream>

class AppSettings;

// `velotape detect CLIP... [--area X,Y,W,H] [--json] [--write]` reads the P&L figure off saved clips
// the way the recorder does after a save, without a window, so that a backlog of clips can be
// tagged. `--area` is in the clip's own pixels; without it the watch area of `settings` (the user's
// settings when null) is read as the clip's pixels, which is where it lies on a clip of a display at
// the top left recorded at its own size. One line a clip, or with `--json` one array of objects
// {file, outcome, pnl, rawText}. `--write` tags the clips' sidecars, never over a user's tag.
//
// Returns 0 when it ran, 2 for bad arguments or a clip that can't be read (each one named on
// `err`, and then nothing is scanned or written), 1 when no OCR engine starts. Clips are read on as
// many worker threads as there are cores, each with an engine of its own.
int runDetectCommand(const QStringList& args, QTextStream& out, QTextStream& err, const RecognizerFactory& recognizers,
    AppSettings* settings = nullptr);
