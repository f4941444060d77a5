#pragma once

#include "journal/TradeFileReader.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>

// Imports a broker's file of closed trades into the journal of a save folder: reads the file
// (TradeFileReader), lists the clips with their sidecars and lengths, matches (TradeImport), and
// writes each changed sidecar through ClipMetaStore and the trades without a clip to
// JournalTradesFile. A sidecar that can't be written is named and its trades are left for the next
// import; the other clips go on.
//
// Blocking (it reads every clip's index for its length); call it off the main thread in the window.
// Touches nothing but the save folder's sidecars and trades file.
namespace TradeImporter {

struct Report {
    // False when nothing was imported because the file itself could not be used; `error` says why.
    bool imported = false;
    QString error;
    // "N trades: M matched to clips, K without a clip, J rows skipped (lines …)".
    QString summary;
    // What else the user must hear: a file read as Latin-1, sidecars (or the trades file) that
    // could not be read or written.
    QStringList notes;
    // Each skipped row with its reason: "Line 4 skipped: unreadable P&L "ten".".
    QStringList skippedRows;
    int read = 0;
    int matched = 0;
    int withoutClip = 0;
    int alreadyImported = 0;
    int failedClips = 0;
};

// A clip's length in seconds as its index says, 0 when it can't be read.
double clipDuration(const QUrl& clip);

using DurationOf = std::function<double(const QUrl&)>;

Report importFile(const QString& csvPath, const QString& folder, const DurationOf& durationOf = clipDuration);
Report importBytes(const QByteArray& csv, const QString& folder, const DurationOf& durationOf = clipDuration);

} // namespace TradeImporter
