#pragma once

#include "journal/ClipEntry.h"
#include "journal/ClipTrade.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// Narrows the journal's statistics to one instrument or one setup tag. Symbols compare without
// regard to case; a clip's symbol is the one the user entered, else the one in its file name, and
// each imported trade has its own. Tags belong to clips, so a tag filter leaves out the trades
// without a clip. The empty filter lets everything through.
struct JournalFilter {
    std::optional<QString> symbol;
    std::optional<QString> tag;

    bool isEmpty() const { return !symbol && !tag; }
    // The clip's own tag (not its trades) passes.
    bool accepts(const ClipEntry& clip) const;
    // One of a clip's trades (clip given) or a trade without a clip (null) passes.
    bool accepts(const ClipTrade& trade, const ClipEntry* clip) const;

    // The symbols and tags there are to choose from, each once, sorted without regard to case.
    static QStringList symbols(const QList<ClipEntry>& clips, const QList<ClipTrade>& withoutClip);
    static QStringList tags(const QList<ClipEntry>& clips);

    friend bool operator==(const JournalFilter&, const JournalFilter&) = default;
};
