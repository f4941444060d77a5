#pragma once

#include "journal/ClipMeta.h"
#include "journal/ClipTrade.h"
#include "journal/TradeMatcher.h"

#include <QList>
#include <QString>
#include <QUrl>

#include <vector>

// What an import of the broker's trades changes, decided without touching a file: which clip each
// new trade goes to, which trades have no clip, and which were imported before (same key) and are
// left alone, so that importing a file twice adds nothing the second time.
//
// Pure; callable from any thread.
namespace TradeImport {

struct Clip {
    QUrl url;
    TradeMatcher::Span span;
    ClipMeta meta;
    // False when the clip's sidecar exists but can't be read: nothing is written over it, and the
    // trades that would go to it are left out until it is mended.
    bool readable = true;
};

struct Plan {
    struct Change {
        int clip; // index into the clips given
        ClipMeta meta; // the record with its new trades
        int added;
    };
    std::vector<Change> changes;
    QList<ClipTrade> withoutClip; // new trades without a clip
    int matched = 0; // new trades that went to a clip
    int alreadyImported = 0;
    struct LeftOut {
        int clip;
        int trades;
    };
    std::vector<LeftOut> leftOut; // trades of clips whose sidecar can't be read
};

Plan plan(const std::vector<Clip>& clips, const QList<ClipTrade>& withoutClipBefore, const QList<ClipTrade>& trades);

// The record with `added` among its trades. Its outcome and amount follow all its trades (their
// net sum in the unit of the first) unless the user tagged the clip: a tag without an origin stays
// as it is, a detected one gives way to the broker.
ClipMeta withTrades(ClipMeta meta, const QList<ClipTrade>& added);

// "12 trades: 8 matched to clips, 3 without a clip, 2 rows skipped (lines 4, 9)", with ", 5 already
// imported" before the skipped rows when some were.
QString summary(int read, int matched, int withoutClip, int alreadyImported, const std::vector<int>& skippedLines);

} // namespace TradeImport
