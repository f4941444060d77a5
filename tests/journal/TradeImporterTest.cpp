#include "journal/TradeImporter.h"

#include "journal/ClipJournalStore.h"
#include "journal/ClipMetaStore.h"
#include "journal/JournalTradesFile.h"
#include "journal/ReferenceDate.h"
#include "recorder/ClipExporter.h"
#include "recorder/IndexedFrames.h"
#include "recorder/SegmentWriter.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <map>
#include <sys/stat.h>

namespace {

constexpr int fps = 10;

MediaTime at(double seconds)
{
    return MediaTime::fromSeconds(seconds, 600);
}

// A clip as the recorder saves one: a segment written by the real encoder, joined by the real
// exporter from half a second in, then given the save time as its modification time.
QUrl recordClip(const QTemporaryDir& dir, const QString& name, const QDateTime& savedAt, int seconds)
{
    const QString segment = dir.filePath(name + QStringLiteral(".segment.mp4"));
    SegmentWriter::VideoSettings s;
    s.width = 160;
    s.height = 90;
    s.averageBitRate = 300'000;
    s.expectedFPS = fps;
    {
        SegmentWriter writer(segment);
        writer.setExpectsMediaDataInRealTime(false);
        if (!writer.addVideoInput(s) || !writer.startWriting()) return {};
        writer.startSession(at(0));
        for (int i = 0; i < seconds * fps; ++i)
            writer.append(IndexedFrames::frame(i, 160, 90, at(double(i) / fps)));
        writer.endSession(at(seconds));
        writer.markAsFinished();
        if (writer.finishWriting() != SegmentWriter::Status::completed) return {};
    }
    const ClipExporter::Result clip
        = ClipExporter::exportConcatenated({ Segment { segment, at(0), at(seconds) } }, at(0.5), dir.filePath(name));
    QFile::remove(segment);
    if (!clip.completed) return {};
    QFile file(clip.path);
    file.open(QIODevice::ReadWrite);
    file.setFileTime(savedAt, QFileDevice::FileModificationTime);
    return QUrl::fromLocalFile(clip.path);
}

QString iso(const QDateTime& t)
{
    return t.toUTC().toString(Qt::ISODate);
}

QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Every file of the folder but the clips, by name.
std::map<QString, QByteArray> journalFiles(const QString& folder)
{
    std::map<QString, QByteArray> files;
    for (const QString& name : QDir(folder).entryList({ "*.json" }, QDir::Files))
        files[name] = readAll(QDir(folder).filePath(name));
    return files;
}

double netOf(const QString& folder)
{
    ClipJournalStore store(QUrl::fromLocalFile(folder));
    store.rescan();
    return store.metrics().netPnL();
}

// Three clips saved by the recorder a few minutes apart, each four seconds long (3.5 s once cut).
class ImportIntoRecordedClips : public ::testing::Test {
protected:
    void SetUp() override
    {
        base = QDateTime(QDate(2024, 3, 5), QTime(14, 0), QTimeZone::utc());
        first = recordClip(dir, QStringLiteral("Chart, Mar 5, 14-00-00.mp4"), base, 4);
        second = recordClip(dir, QStringLiteral("Chart, Mar 5, 14-05-00.mp4"), base.addSecs(300), 4);
        third = recordClip(dir, QStringLiteral("Chart, Mar 5, 14-10-00.mp4"), base.addSecs(600), 4);
        ASSERT_FALSE(first.isEmpty() || second.isEmpty() || third.isEmpty());
        EXPECT_NEAR(TradeImporter::clipDuration(first), 3.5, 0.15);

        // The second clip carries the user's setup tag and notes; the third a detector's wrong guess
        // (a loss read as a win).
        ClipMeta tagged;
        tagged.tags = QStringList { QStringLiteral("breakout") };
        tagged.notes = QStringLiteral("waited for the retest");
        ClipMetaStore::save(tagged, second);
        ClipMeta guessed;
        guessed.outcome = TradeOutcome::win;
        guessed.pnl = 7.25;
        guessed.tagOrigin = TagOrigin::detected;
        ClipMetaStore::save(guessed, third);
    }

    QTemporaryDir dir;
    QDateTime base;
    QUrl first, second, third;
};

} // namespace

TEST_F(ImportIntoRecordedClips, TradesLandInTheirSidecarsTheNetAgreesAndASecondImportChangesNothing)
{
    // Gross P&L with commission; one malformed row. Exits: two inside the first clip, one inside the
    // second, one 40 s before the third ended (no clip holds it), one with no clip near.
    const QByteArray csv = QStringLiteral("Trade ID,Symbol,Side,Qty,Exit Time,Gross PnL,Commission\n"
                                          "A1,ES,Buy,1,%1,\"1,000.00\",2.50\n"
                                          "A2,ES,Sell,1,%2,(250.00),2.50\n"
                                          "A3,NQ,Sell,2,%3,120,5\n"
                                          "A4,ES,Buy,1,not a time,10,0\n"
                                          "A5,CL,Buy,1,%4,7.25-,0\n"
                                          "A6,GC,Sell,1,%5,40,1\n")
                               .arg(iso(base.addSecs(-2)), iso(base.addSecs(-1)), iso(base.addSecs(299)),
                                   iso(base.addSecs(560)), iso(base.addSecs(3600)))
                               .toUtf8();
    const TradeImporter::Report report = TradeImporter::importBytes(csv, dir.path());
    ASSERT_TRUE(report.imported) << report.error.toStdString();
    EXPECT_EQ(report.summary, "5 trades: 4 matched to clips, 1 without a clip, 1 row skipped (line 5)");
    EXPECT_EQ(report.skippedRows, QStringList { "Line 5 skipped: unreadable time \"not a time\"." });
    EXPECT_TRUE(report.notes.isEmpty());

    const ClipMeta a = ClipMetaStore::load(first);
    ASSERT_EQ(a.trades.size(), 2);
    EXPECT_EQ(a.trades[0].key, "id:A1");
    EXPECT_EQ(a.outcome, TradeOutcome::win);
    EXPECT_DOUBLE_EQ(*a.pnl, 997.5 - 252.5);
    const ClipMeta b = ClipMetaStore::load(second);
    ASSERT_EQ(b.trades.size(), 1);
    EXPECT_EQ(b.trades[0].symbol, "NQ");
    EXPECT_EQ(b.tags, QStringList { "breakout" });
    EXPECT_EQ(b.notes, "waited for the retest");
    EXPECT_DOUBLE_EQ(b.signedPnL(), 115);
    const ClipMeta c = ClipMetaStore::load(third);
    ASSERT_EQ(c.trades.size(), 1);
    EXPECT_DOUBLE_EQ(c.signedPnL(), -7.25);
    EXPECT_EQ(c.tagOrigin, TagOrigin::imported);
    const JournalTradesFile::Loaded loose = JournalTradesFile::load(dir.path());
    ASSERT_EQ(loose.trades.size(), 1);
    EXPECT_EQ(loose.trades[0].symbol, "GC");

    // The journal counts every trade of the file, with or without a clip.
    EXPECT_DOUBLE_EQ(netOf(dir.path()), 997.5 - 252.5 + 115 - 7.25 + 39);

    const auto before = journalFiles(dir.path());
    const TradeImporter::Report again = TradeImporter::importBytes(csv, dir.path());
    EXPECT_EQ(
        again.summary, "5 trades: 0 matched to clips, 0 without a clip, 5 already imported, 1 row skipped (line 5)");
    EXPECT_EQ(journalFiles(dir.path()), before);

    // Once the user tags the clip by hand, a later trade on it is kept but the tag stays theirs.
    ClipMeta mine = ClipMetaStore::load(second);
    mine.outcome = TradeOutcome::loss;
    mine.pnl = 60;
    mine.tagOrigin.reset();
    ClipMetaStore::save(mine, second);
    const QByteArray later = QStringLiteral("id,symbol,time,pnl\nA7,NQ,%1,500\n").arg(iso(base.addSecs(298))).toUtf8();
    EXPECT_EQ(TradeImporter::importBytes(later, dir.path()).matched, 1);
    const ClipMeta after = ClipMetaStore::load(second);
    EXPECT_EQ(after.trades.size(), 2);
    EXPECT_EQ(after.signedPnL(), -60);
    EXPECT_EQ(after.tags, QStringList { "breakout" });
}

TEST_F(ImportIntoRecordedClips, ASidecarThatCantBeReadOrWrittenIsNamedAndTheOthersGoOn)
{
    // A broken sidecar on the first clip, and a clip whose name leaves no room for its sidecar's
    // (the file system's limit is 255 bytes a name), saved fifteen minutes in.
    QFile broken(ClipMetaStore::sidecarPath(first));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("{ not json");
    broken.close();
    const QString longName = dir.filePath(QString(248, u'x') + QStringLiteral(".mp4"));
    ASSERT_TRUE(QFile::copy(first.toLocalFile(), longName));
    QFile longClip(longName);
    longClip.open(QIODevice::ReadWrite);
    longClip.setFileTime(base.addSecs(900), QFileDevice::FileModificationTime);
    longClip.close();

    const QByteArray csv = QStringLiteral("symbol,time,pnl\nES,%1,10\nNQ,%2,20\nCL,%3,-5\n")
                               .arg(iso(base.addSecs(-1)), iso(base.addSecs(899)), iso(base.addSecs(599)))
                               .toUtf8();
    const TradeImporter::Report report = TradeImporter::importBytes(csv, dir.path());
    EXPECT_EQ(report.matched, 1);
    EXPECT_EQ(report.failedClips, 2);
    EXPECT_EQ(report.summary, "3 trades: 1 matched to clips, 0 without a clip, 0 rows skipped");
    EXPECT_EQ(readAll(ClipMetaStore::sidecarPath(first)), "{ not json");
    const QString notes = report.notes.join(u'\n');
    EXPECT_TRUE(notes.contains("Chart, Mar 5, 14-00-00.clipmeta.json can't be read; its trade was left out"))
        << notes.toStdString();
    EXPECT_TRUE(notes.contains("Couldn't write " + ClipMetaStore::sidecarPath(QUrl::fromLocalFile(longName))))
        << notes.toStdString();
    EXPECT_EQ(ClipMetaStore::load(third).trades.size(), 1);

    // Once the broken sidecar is gone, the same file brings its trade in and nothing twice.
    QFile::remove(ClipMetaStore::sidecarPath(first));
    const TradeImporter::Report mended = TradeImporter::importBytes(csv, dir.path());
    EXPECT_EQ(mended.matched, 1);
    EXPECT_EQ(mended.alreadyImported, 1);
    EXPECT_EQ(ClipMetaStore::load(first).trades.size(), 1);
}

TEST_F(ImportIntoRecordedClips, FilesThatCantBeUsedWriteNothing)
{
    const auto before = journalFiles(dir.path());
    const TradeImporter::Report noColumns = TradeImporter::importBytes("Symbol,Price,Qty\nES,5000,1\n", dir.path());
    EXPECT_FALSE(noColumns.imported);
    EXPECT_EQ(noColumns.error, "no time and no P&L column (the columns are: Symbol, Price, Qty)");
    const TradeImporter::Report missing = TradeImporter::importFile(dir.filePath("nope.csv"), dir.path());
    EXPECT_FALSE(missing.imported);
    EXPECT_TRUE(missing.error.endsWith("does not exist"));
    EXPECT_EQ(journalFiles(dir.path()), before);

    // A file that is not UTF-8 is read as Latin-1, and said to be.
    const QByteArray accented = QStringLiteral("instrument;close time;profit;note\nDAX;%1;12,50;clôture\n")
                                    .arg(iso(base.addSecs(-2)))
                                    .toLatin1();
    const TradeImporter::Report l = TradeImporter::importBytes(accented, dir.path());
    EXPECT_TRUE(l.notes.contains("The file is not UTF-8; it was read as Latin-1."));
    EXPECT_EQ(ClipMetaStore::load(first).trades.back().notes, QStringLiteral("clôture"));
}
