#include "ui/clips/ClipsScreen.h"

#include "DesktopTestMain.h"
#include "LaunchedWindow.h"
#include "SampleClip.h"
#include "app/session/RecorderViewModel.h"
#include "app/session/SessionStatus.h"
#include "journal/ClipMetaStore.h"
#include "support/EventLoop.h"
#include "ui/AppDelegate.h"
#include "ui/ContentView.h"
#include "ui/clips/ClipCard.h"
#include "ui/clips/ClipNotesEditor.h"
#include "ui/clips/ClipSetupTags.h"
#include "ui/clips/ClipTagBar.h"
#include "ui/clips/TradesWithoutClipList.h"
#include "ui/kit/V3Button.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QCompleter>
#include <QContextMenuEvent>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

// The clips screen in the real window, over a save folder of real clips.
namespace {

class ClipsWindow : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(writeSampleClip(path(first), 2.0, 1));
        ASSERT_TRUE(writeSampleClip(path(second), 1.0, 2));
        delegate = launchWindow(clips.path(), home.filePath(QStringLiteral("control")));
        ASSERT_NE(delegate, nullptr);
        delegate->contentView()->showScreen(D1Screen::clips);
        screen = qobject_cast<ClipsScreen*>(delegate->contentView()->screenWidget());
        ASSERT_NE(screen, nullptr);
    }

    void TearDown() override { delegate.reset(); }

    QString path(const QString& name) const { return clips.filePath(name); }
    QUrl url(const QString& name) const { return QUrl::fromLocalFile(path(name)); }

    ClipCard* card(const QString& name)
    {
        ClipCard* found = screen->cardFor(url(name));
        EXPECT_NE(found, nullptr) << qPrintable(name);
        return found;
    }

    void rename(ClipCard* card, const QString& text)
    {
        QTest::mouseClick(card->renameButton(), Qt::LeftButton);
        QLineEdit* field = card->renameField();
        ASSERT_TRUE(field->isVisible());
        EXPECT_EQ(field->text(), card->name());
        field->selectAll();
        QTest::keyClicks(field, text);
        QTest::keyClick(field, Qt::Key_Return);
    }

    // The context menu of a card as the right mouse button opens it, and one of its items chosen.
    void chooseFromMenu(ClipCard* card, const QString& item)
    {
        QContextMenuEvent event(
            QContextMenuEvent::Mouse, card->rect().center(), card->mapToGlobal(card->rect().center()));
        QApplication::sendEvent(card, &event);
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        ASSERT_NE(menu, nullptr);
        QAction* chosen = nullptr;
        for (QAction* action : menu->actions())
            if (action->text() == item) chosen = action;
        ASSERT_NE(chosen, nullptr) << qPrintable(item);
        menu->close();
        chosen->trigger();
    }

    const QString first = QStringLiteral("Display 1, Nov 5, 10-00-00.mp4");
    const QString second = QStringLiteral("taken.mp4");
    QTemporaryDir home;
    QTemporaryDir clips;
    std::unique_ptr<AppDelegate> delegate;
    ClipsScreen* screen = nullptr;
};

} // namespace

TEST_F(ClipsWindow, RenameCopyAndTrashActOnTheClipFileAndSayWhyNot)
{
    ClipMeta tagged;
    tagged.outcome = TradeOutcome::win;
    tagged.pnl = 50;
    ClipMetaStore::save(tagged, url(second));
    EXPECT_EQ(screen->countText(), QStringLiteral("2 clips"));
    EXPECT_FALSE(screen->showsEmptyState());

    // The card in view gets its picture from the clip's middle, with the length.
    ClipCard* clip = card(first);
    ASSERT_NE(clip, nullptr);
    EXPECT_TRUE(spinUntil([clip] { return !clip->wantsThumbnail(); }));

    // Characters a file name can't hold become dashes.
    rename(clip, QStringLiteral("a/b:c"));
    EXPECT_TRUE(QFile::exists(path(QStringLiteral("a-b-c.mp4"))));
    EXPECT_FALSE(QFile::exists(path(first)));
    EXPECT_EQ(screen->countText(), QStringLiteral("2 clips"));

    // A name that another clip has: a toast, and nothing moves.
    ClipCard* renamed = card(QStringLiteral("a-b-c.mp4"));
    ASSERT_NE(renamed, nullptr);
    rename(renamed, QStringLiteral("taken"));
    EXPECT_EQ(delegate->viewModel()->status()->toast(), QStringLiteral("A clip already has that name."));
    EXPECT_TRUE(QFile::exists(path(QStringLiteral("a-b-c.mp4"))));
    EXPECT_TRUE(QFile::exists(path(second)));
    EXPECT_FALSE(renamed->renameField()->isVisible());

    // "Copy" puts the file on the clipboard as file managers and chat applications take it, read
    // back here by another X client.
    QAction* copy = nullptr;
    for (QAction* action : renamed->shareButton()->menu()->actions())
        if (action->text() == QStringLiteral("Copy")) copy = action;
    ASSERT_NE(copy, nullptr);
    copy->trigger();
    const QByteArray encoded = url(QStringLiteral("a-b-c.mp4")).toEncoded();
    for (const auto& [type, expected] :
        { std::pair { QStringLiteral("x-special/gnome-copied-files"), "copy\n" + encoded },
            std::pair { QStringLiteral("text/uri-list"), encoded } }) {
        QProcess xclip;
        xclip.start(QStringLiteral("xclip"),
            { QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o"), QStringLiteral("-t"),
                type });
        ASSERT_TRUE(spinUntil([&xclip] { return xclip.state() == QProcess::NotRunning; }, 10000));
        EXPECT_EQ(xclip.readAllStandardOutput().trimmed(), expected) << qPrintable(type);
    }

    // Into the trash of this (private) home, from which the file manager restores it; the tags stay.
    const QString trash
        = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Trash");
    ASSERT_TRUE(trash.startsWith(QDir::homePath()));
    ClipCard* taken = card(second);
    ASSERT_NE(taken, nullptr);
    chooseFromMenu(taken, QStringLiteral("Move to Trash"));
    EXPECT_FALSE(QFile::exists(path(second)));
    EXPECT_TRUE(QFile::exists(trash + QStringLiteral("/files/taken.mp4")));
    EXPECT_TRUE(QFile::exists(trash + QStringLiteral("/info/taken.mp4.trashinfo")));
    EXPECT_EQ(ClipMetaStore::load(url(second)), tagged);
    EXPECT_EQ(screen->countText(), QStringLiteral("1 clip"));
    EXPECT_EQ(screen->cardFor(url(second)), nullptr);
}

TEST_F(ClipsWindow, TaggingACardWritesTheSidecarThatTheJournalCounts)
{
    ClipCard* clip = card(second);
    ASSERT_NE(clip, nullptr);
    ClipTagBar* tags = clip->tagBar();
    QTest::mouseClick(tags->pill(TradeOutcome::win), Qt::LeftButton);
    tags->amountField()->setFocus();
    QTest::keyClicks(tags->amountField(), QStringLiteral("120"));
    QTest::keyClick(tags->amountField(), Qt::Key_Return);
    const ClipMeta written = ClipMetaStore::load(url(second));
    EXPECT_EQ(written.outcome, TradeOutcome::win);
    EXPECT_EQ(written.pnl, 120);
    EXPECT_EQ(written.unit, PnLUnit::dollars);
    EXPECT_EQ(tags->amountField()->text(), QStringLiteral("120.00"));

    // The journal panel: notes saved beside the tags, and the toggle says the journal has some.
    QTest::mouseClick(clip->journalToggle(), Qt::LeftButton);
    ClipNotesEditor* notes = clip->notesEditor();
    ASSERT_NE(notes, nullptr);
    EXPECT_EQ(clip->journalToggle()->text(), QStringLiteral("Hide journal"));
    QTest::keyClicks(notes->notesField(), QStringLiteral("Waited for the retest"));
    QTest::mouseClick(notes->saveButton(), Qt::LeftButton);
    EXPECT_TRUE(notes->isFlashing());
    QTest::mouseClick(clip->journalToggle(), Qt::LeftButton);
    EXPECT_EQ(clip->notesEditor(), nullptr);
    EXPECT_EQ(clip->journalToggle()->text(), QStringLiteral("Edit journal"));
    const ClipMeta withNotes = ClipMetaStore::load(url(second));
    EXPECT_EQ(withNotes.notes, QStringLiteral("Waited for the retest"));
    EXPECT_EQ(withNotes.pnl, 120);

    QProcess journal;
    journal.start(QStringLiteral(VELOTAPE_BINARY),
        { QStringLiteral("journal"), QStringLiteral("--folder"), clips.path(), QStringLiteral("--json") });
    ASSERT_TRUE(journal.waitForFinished(20000));
    const QJsonObject stats = QJsonDocument::fromJson(journal.readAllStandardOutput()).object();
    EXPECT_EQ(stats.value(QLatin1String("tradeCount")).toInt(), 1);
    EXPECT_DOUBLE_EQ(stats.value(QLatin1String("netPnL")).toDouble(), 120);

    // A sidecar this version cannot read (notes under a unit it does not know) is not replaced by
    // a tag: the window says why.
    const QString unreadable = ClipMetaStore::sidecarPath(url(first));
    const QByteArray notesOfAnother = R"({"outcome":"unset","unit":"EUR","notes":"my plan","mistakes":""})";
    QFile file(unreadable);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(notesOfAnother);
    file.close();
    QTest::mouseClick(card(first)->tagBar()->pill(TradeOutcome::loss), Qt::LeftButton);
    EXPECT_TRUE(delegate->viewModel()->status()->toast()->startsWith(QStringLiteral("Couldn't save the tags: ")));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), notesOfAnother);
}

TEST_F(ClipsWindow, ImportedTradesTagTheirClipAndSetupTagsAreTypedWithCompletion)
{
    // A broker's file: one trade closing a second before the first clip was saved, one with no clip.
    const QDateTime saved = QFileInfo(path(first)).lastModified();
    const QString csv = home.filePath(QStringLiteral("fills.csv"));
    QFile file(csv);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QStringLiteral("Symbol,Side,Qty,Close Time,Profit\nES,Buy,1,%1,\"(45.00)\"\nNQ,Sell,2,%2,30\n")
                   .arg(saved.addMSecs(-1000).toUTC().toString(Qt::ISODateWithMs),
                       saved.addSecs(-7200).toUTC().toString(Qt::ISODateWithMs))
                   .toUtf8());
    file.close();
    EXPECT_TRUE(screen->importAction()->isEnabled());
    QStringList finished;
    QObject::connect(screen->model(), &ClipsScreenModel::importFinished, screen,
        [&finished](const QString& summary) { finished << summary; });
    ASSERT_TRUE(screen->model()->importTrades(csv));
    ASSERT_TRUE(spinUntil([&finished] { return !finished.isEmpty(); }, 30000));
    EXPECT_EQ(finished.front(), QStringLiteral("2 trades: 1 matched to clips, 1 without a clip, 0 rows skipped"));
    EXPECT_EQ(delegate->viewModel()->status()->toast(), finished.front());

    // The matched clip's tag bar shows the broker's loss; the other trade is a line, not a card.
    ClipCard* clip = card(first);
    ASSERT_NE(clip, nullptr);
    ASSERT_TRUE(spinUntil([clip] { return clip->tagBar()->meta().outcome == TradeOutcome::loss; }));
    EXPECT_EQ(clip->tagBar()->amountField()->text(), QStringLiteral("-45.00"));
    EXPECT_EQ(screen->countText(), QStringLiteral("2 clips"));
    const QStringList lines = screen->tradesWithoutClip()->lines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral(" · NQ · short 2 · $30.00"))) << qPrintable(lines[0]);

    // A setup tag typed on one card is offered on another as the user types.
    ClipSetupTags* tags = clip->setupTagRow();
    QTest::keyClicks(tags->field(), QStringLiteral(" breakout "));
    QTest::keyClick(tags->field(), Qt::Key_Return);
    EXPECT_EQ(ClipMetaStore::load(url(first)).tags, QStringList { QStringLiteral("breakout") });
    ASSERT_TRUE(spinUntil([tags] { return tags->chips().size() == 1; }));
    ClipCard* other = card(second);
    ASSERT_NE(other, nullptr);
    ASSERT_TRUE(spinUntil([other] { return other->setupTagRow()->field()->completer()->model()->rowCount() == 1; }));
    QCompleter* completer = other->setupTagRow()->field()->completer();
    completer->setCompletionPrefix(QStringLiteral("BRE"));
    EXPECT_EQ(completer->currentCompletion(), QStringLiteral("breakout"));

    // The same file again adds nothing and leaves the hand-set tag; the chip's press removes it.
    finished.clear();
    ASSERT_TRUE(screen->model()->importTrades(csv));
    ASSERT_TRUE(spinUntil([&finished] { return !finished.isEmpty(); }, 30000));
    EXPECT_EQ(finished.front(),
        QStringLiteral("2 trades: 0 matched to clips, 0 without a clip, 2 already imported, 0 rows skipped"));
    clip = card(first);
    EXPECT_EQ(ClipMetaStore::load(url(first)).tags, QStringList { QStringLiteral("breakout") });
    EXPECT_EQ(ClipMetaStore::load(url(first)).trades.size(), 1);
    QTest::mouseClick(clip->setupTagRow()->chips().front(), Qt::LeftButton);
    EXPECT_TRUE(ClipMetaStore::load(url(first)).tags.isEmpty());
}
