#pragma once

#include <QString>

// One plain line to stderr (journald picks it up). No levels: the text says what happened.
// Safe from any thread; lines never interleave.
void logLine(const QString& text);
