#include "journal/ClipJournalStore.h"

#include "core/LocalFileName.h"
#include "journal/ClipMetaStore.h"
#include "journal/ReferenceDate.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QUrl touch(const QTemporaryDir& dir, const QString& name)
{
    QFile file(dir.filePath(name));
    file.open(QIODevice::WriteOnly);
    file.write("mp4");
    return QUrl::fromLocalFile(dir.filePath(name));
}

ClipMeta tagged(TradeOutcome outcome, double pnl)
{
    ClipMeta meta;
    meta.outcome = outcome;
    meta.pnl = pnl;
    return meta;
}

QStringList names(const QList<ClipEntry>& clips)
{
    QStringList list;
    for (const ClipEntry& e : clips)
        list << e.url.fileName();
    return list;
}

// A file by the bytes of its name, which need not be UTF-8.
void writeNative(const QByteArray& path, const QByteArray& bytes)
{
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0) << path.constData();
    ASSERT_EQ(::write(fd, bytes.constData(), size_t(bytes.size())), ssize_t(bytes.size()));
    ::close(fd);
}

// Lets the store's queued rescans run.
void runQueued()
{
    QCoreApplication::processEvents();
}

} // namespace

TEST(ClipJournalStore, RescanListsClipsNewestFirst)
{
    QTemporaryDir dir;
    touch(dir, QStringLiteral("AAPL_2024-11-05_09-30.mp4"));
    touch(dir, QStringLiteral("MSFT_2024-11-06_09-30.MP4"));
    // The same minute: the listing (name) order stands.
    touch(dir, QStringLiteral("B_2024-11-04_10-00.mp4"));
    touch(dir, QStringLiteral("A_2024-11-04_10-00.mp4"));
    const QUrl dated = touch(dir, QStringLiteral("TSLA_2024-01-01_00-00.mp4"));
    touch(dir, QStringLiteral("old.mov"));
    touch(dir, QStringLiteral(".hidden_2030-01-01_00-00.mp4"));
    touch(dir, QStringLiteral("x.mp4.part"));
    QDir(dir.path()).mkdir(QStringLiteral("sub"));
    touch(dir, QStringLiteral("sub/NVDA_2030-01-01_00-00.mp4"));
    // A sidecar date overrides the name.
    ClipMeta meta = tagged(TradeOutcome::win, 5);
    meta.date = ReferenceDate::fromDateTime(QDateTime(QDate(2024, 12, 1), QTime(12, 0)));
    ClipMetaStore::save(meta, dated);

    ClipJournalStore store(QUrl::fromLocalFile(dir.path()));
    EXPECT_TRUE(store.clips().isEmpty()); // the first rescan is queued, not run in the constructor
    runQueued();
    EXPECT_EQ(names(store.clips()),
        (QStringList { "TSLA_2024-01-01_00-00.mp4", "MSFT_2024-11-06_09-30.MP4", "AAPL_2024-11-05_09-30.mp4",
            "A_2024-11-04_10-00.mp4", "B_2024-11-04_10-00.mp4" }));
    EXPECT_EQ(store.clips().front().meta, meta);
    EXPECT_EQ(store.clips().at(1).parsedTicker, QStringLiteral("MSFT"));

    // A folder with nothing but .mov files, a missing folder and no folder are all empty journals.
    QTemporaryDir movies;
    touch(movies, QStringLiteral("a.mov"));
    store.setSavePath(QUrl::fromLocalFile(movies.path()));
    runQueued();
    EXPECT_TRUE(store.clips().isEmpty());
    EXPECT_TRUE(ClipJournalStore::scanFolder(dir.filePath(QStringLiteral("missing"))).isEmpty());
    store.setSavePath(std::nullopt);
    runQueued();
    EXPECT_TRUE(store.clips().isEmpty());
    EXPECT_EQ(store.metrics().equityCurve(), std::vector<double> { 0.0 });
}

TEST(ClipJournalStore, AssigningTheSameFolderRescansOnceAfterTheAssignment)
{
    QTemporaryDir dir;
    touch(dir, QStringLiteral("a.mp4"));
    ClipJournalStore store(QUrl::fromLocalFile(dir.path()));
    runQueued();
    ASSERT_EQ(store.clips().size(), 1);

    int changes = 0;
    QObject::connect(&store, &ClipJournalStore::clipsChanged, [&] { ++changes; });
    touch(dir, QStringLiteral("b.mp4"));
    store.setSavePath(store.savePath());
    EXPECT_EQ(store.clips().size(), 1);
    runQueued();
    EXPECT_EQ(store.clips().size(), 2);
    EXPECT_EQ(changes, 1);
}

TEST(ClipJournalStore, UpdateWritesTheDiskAndReplacesTheMatchingEntryInPlace)
{
    QTemporaryDir dir;
    const QUrl newer = touch(dir, QStringLiteral("A_2024-11-05_09-30.mp4"));
    touch(dir, QStringLiteral("B_2024-11-04_09-30.mp4"));
    ClipJournalStore store(QUrl::fromLocalFile(dir.path()));
    runQueued();
    const ClipEntry older = store.clips().at(1);

    // A new date does not reorder the list; the next rescan does.
    ClipMeta win = tagged(TradeOutcome::win, 10);
    win.date = ReferenceDate::fromDateTime(QDateTime(QDate(2025, 1, 1), QTime(0, 0)));
    store.update(older, win);
    EXPECT_EQ(store.clips().at(1).meta, win);
    EXPECT_EQ(store.clips().at(0).url, newer);
    EXPECT_EQ(ClipMetaStore::load(older.url), win);

    // A stale entry (its old record) updates the disk only.
    const ClipMeta loss = tagged(TradeOutcome::loss, 3);
    store.update(older, loss);
    EXPECT_EQ(store.clips().at(1).meta, win);
    EXPECT_EQ(ClipMetaStore::load(older.url), loss);

    // The empty record removes the sidecar and shows the clip untagged at once.
    store.update(store.clips().at(1), ClipMeta {});
    EXPECT_TRUE(store.clips().at(1).meta.isEmpty());
    EXPECT_FALSE(QFile::exists(ClipMetaStore::sidecarPath(older.url)));
}

TEST(ClipJournalStore, ARenamedClipLosesItsTagsUntilItsNameComesBack)
{
    QTemporaryDir dir;
    const QUrl clip = touch(dir, QStringLiteral("trade.mp4"));
    ClipMetaStore::save(tagged(TradeOutcome::win, 25), clip);
    ClipJournalStore store(QUrl::fromLocalFile(dir.path()));

    ASSERT_TRUE(QFile::rename(dir.filePath("trade.mp4"), dir.filePath("renamed.mp4")));
    store.rescan();
    ASSERT_EQ(store.clips().size(), 1);
    EXPECT_TRUE(store.clips().front().meta.isEmpty());
    EXPECT_TRUE(QFile::exists(dir.filePath("trade.clipmeta.json"))); // the orphan stays

    ASSERT_TRUE(QFile::rename(dir.filePath("renamed.mp4"), dir.filePath("trade.mp4")));
    store.rescan();
    EXPECT_EQ(store.clips().front().meta, tagged(TradeOutcome::win, 25));

    // Changing the unit re-filters without touching the disk.
    store.setDisplayUnit(PnLUnit::R);
    EXPECT_EQ(store.metrics().netPnL(), 0);
    EXPECT_EQ(store.metrics().winRate(), 1.0);
}

// Journal counting: a trade per sidecar, clips that are files, names as the file system has them.
TEST(ClipJournalStore, CountsOneTradePerSidecarOnlyRegularFilesAndNamesThatAreNotUtf8)
{
    QTemporaryDir dir;
    // Three names of one stem share one sidecar: one trade.
    for (const char* name : { "a.mp4", "a.MP4", "a.Mp4" })
        touch(dir, QString::fromLatin1(name));
    ClipMetaStore::save(tagged(TradeOutcome::win, 10), QUrl::fromLocalFile(dir.filePath("a.mp4")));
    // A folder or a FIFO with a clip's name is no clip.
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("d.mp4")));
    ASSERT_EQ(::mkfifo(QFile::encodeName(dir.filePath("f.mp4")).constData(), 0600), 0);
    // A name in Latin-1, as an old archive unpacks it, with its sidecar.
    const QByteArray folder = QFile::encodeName(dir.path());
    writeNative(folder + "/caf\xe9.mp4", "mp4");
    writeNative(
        folder + "/caf\xe9.clipmeta.json", R"({"outcome":"loss","unit":"dollars","notes":"","mistakes":"","pnl":4})");
    // Notes in Latin-1 keep their trade.
    touch(dir, QStringLiteral("b.mp4"));
    writeNative(folder + "/b.clipmeta.json",
        "{\"outcome\":\"win\",\"unit\":\"dollars\",\"notes\":\"d\xe9j\xe0 vu\","
        "\"mistakes\":\"\",\"pnl\":6}");

    ClipJournalStore store(QUrl::fromLocalFile(dir.path()));
    store.rescan();
    ASSERT_EQ(store.clips().size(), 3) << names(store.clips()).join(u' ').toStdString();
    EXPECT_EQ(store.metrics().tradeCount(), 3);
    EXPECT_EQ(store.metrics().netPnL(), 10 - 4 + 6);
    QStringList shown = names(store.clips());
    shown.sort();
    EXPECT_EQ(shown.at(0), QStringLiteral("a.MP4")); // the first name of the three
    // The entry of the Latin-1 name names its file.
    bool found = false;
    for (const ClipEntry& e : store.clips())
        found = found || LocalFileName::encode(e.url.toLocalFile()) == folder + "/caf\xe9.mp4";
    EXPECT_TRUE(found);
}
