#include "ui/clips/ClipEdits.h"

#include <gtest/gtest.h>

// What the user types into a card, as the card applies it.

TEST(ClipEdits, RenameKeepsTheFolderAndExtensionAndRefusesNoChange)
{
    EXPECT_EQ(ClipEdits::renameTarget(QStringLiteral("/c/Clip 1.mp4"), QStringLiteral(" a/b:c \n")),
        QStringLiteral("/c/a-b-c.mp4"));
    EXPECT_EQ(
        ClipEdits::renameTarget(QStringLiteral("/c/x.y.MP4"), QStringLiteral("z.w")), QStringLiteral("/c/z.w.MP4"));
    EXPECT_EQ(ClipEdits::renameTarget(QStringLiteral("/c/Clip 1.mp4"), QStringLiteral("  Clip 1  ")), std::nullopt);
    EXPECT_EQ(ClipEdits::renameTarget(QStringLiteral("/c/Clip 1.mp4"), QStringLiteral(" \t")), std::nullopt);
}

TEST(ClipEdits, TheAmountsSignTagsOnlyAnUntaggedClip)
{
    ClipMeta untagged;
    const ClipMeta loss = ClipEdits::committedPnL(untagged, QStringLiteral(" -25 "));
    EXPECT_EQ(loss.outcome, TradeOutcome::loss);
    EXPECT_EQ(loss.pnl, 25);
    EXPECT_EQ(ClipEdits::pnlText(loss), QStringLiteral("-25.00"));

    // A tagged clip keeps its outcome whatever the sign; a decimal comma is a point.
    const ClipMeta stillLoss = ClipEdits::committedPnL(loss, QStringLiteral("12,5"));
    EXPECT_EQ(stillLoss.outcome, TradeOutcome::loss);
    EXPECT_EQ(ClipEdits::pnlText(stillLoss), QStringLiteral("-12.50"));
    EXPECT_EQ(ClipEdits::committedPnL(untagged, QStringLiteral("0")).outcome, TradeOutcome::unset);

    // Not one number (or not one a sidecar can hold): the amount goes, the outcome stays.
    for (const char* text : { "abc", "12abc", "inf", "" }) {
        const ClipMeta cleared = ClipEdits::committedPnL(stillLoss, QLatin1String(text));
        EXPECT_EQ(cleared.pnl, std::nullopt) << text;
        EXPECT_EQ(cleared.outcome, TradeOutcome::loss) << text;
        EXPECT_EQ(ClipEdits::pnlText(cleared), QString()) << text;
    }
    EXPECT_EQ(ClipEdits::toggledOutcome(TradeOutcome::win, TradeOutcome::win), TradeOutcome::unset);
}

TEST(ClipEdits, LengthsRoundToTheSecondAndShowHoursFromAnHourUp)
{
    EXPECT_EQ(ClipEdits::formatDuration(59.5), QStringLiteral("1:00"));
    EXPECT_EQ(ClipEdits::formatDuration(0.1), QStringLiteral("0:00"));
    EXPECT_EQ(ClipEdits::formatDuration(3599.4), QStringLiteral("59:59"));
    EXPECT_EQ(ClipEdits::formatDuration(3599.6), QStringLiteral("1:00:00"));
    EXPECT_EQ(ClipEdits::formatDuration(7384), QStringLiteral("2:03:04"));
}

TEST(ClipEdits, ATagChangedByHandIsTheUsersAndSetupTagsComeOnce)
{
    // A detected or imported tag stays so while only the notes change; a new outcome, amount or
    // unit makes it the user's, which no import writes over.
    ClipMeta imported;
    imported.outcome = TradeOutcome::win;
    imported.pnl = 20;
    imported.tagOrigin = TagOrigin::imported;
    ClipMeta notes = imported;
    notes.notes = QStringLiteral("held too long");
    EXPECT_EQ(ClipEdits::madeByUser(imported, notes).tagOrigin, TagOrigin::imported);
    EXPECT_FALSE(ClipEdits::madeByUser(imported, ClipEdits::committedPnL(imported, QStringLiteral("25"))).tagOrigin);
    ClipMeta loss = imported;
    loss.outcome = TradeOutcome::loss;
    EXPECT_FALSE(ClipEdits::madeByUser(imported, loss).tagOrigin);
    // The same amount typed again is no change.
    EXPECT_EQ(ClipEdits::madeByUser(imported, ClipEdits::committedPnL(imported, QStringLiteral("20.00"))).tagOrigin,
        TagOrigin::imported);

    const QStringList tags = ClipEdits::withTag({ QStringLiteral("Breakout") }, QStringLiteral("  A+  setup "));
    EXPECT_EQ(tags, (QStringList { "Breakout", "A+ setup" }));
    EXPECT_EQ(ClipEdits::withTag(tags, QStringLiteral("breakout")), tags);
    EXPECT_EQ(ClipEdits::withTag(tags, QStringLiteral("   ")), tags);
    EXPECT_EQ(ClipEdits::withoutTag(tags, QStringLiteral("Breakout")), QStringList { "A+ setup" });
}
