#include "journal/ClipEntry.h"
#include "journal/ClipMetaStore.h"
#include "journal/ClipNameParser.h"
#include "journal/FormatPnL.h"
#include "journal/ReferenceDate.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sys/stat.h>

namespace {

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeAll(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

// A clip file in `dir` with a fixed modification time, so that the fall-back to it can be seen.
QUrl makeClip(const QTemporaryDir& dir, const QString& name, const QDateTime& modified = {})
{
    const QString path = dir.filePath(name);
    writeAll(path, "mp4");
    if (modified.isValid()) {
        QFile file(path);
        file.open(QIODevice::ReadWrite);
        file.setFileTime(modified, QFileDevice::FileModificationTime);
    }
    return QUrl::fromLocalFile(path);
}

} // namespace

TEST(ClipMetaStore, RoundTripKeepsDatesAndRectanglesExactly)
{
    QTemporaryDir dir;
    const QUrl url = makeClip(dir, QStringLiteral("a.b.mp4"));
    EXPECT_EQ(ClipMetaStore::sidecarPath(url), dir.filePath(QStringLiteral("a.b.clipmeta.json")));

    ClipMeta meta;
    meta.outcome = TradeOutcome::loss;
    meta.pnl = -12.345678901234567;
    meta.unit = PnLUnit::ticks;
    meta.notes = QStringLiteral("faded the open — \"again\"\n");
    meta.ticker = QStringLiteral("ES");
    meta.date = 752000000.1234567; // finer than a millisecond
    meta.monitorRect = QRectF(10.5, -20.25, 300, 0.1);
    meta.recordedSize = QSizeF(1920, 1080);
    meta.sourcePointSize = QSizeF(960.5, 540.25);
    ClipMetaStore::save(meta, url);
    EXPECT_EQ(ClipMetaStore::load(url), meta);

    // On disk: sorted keys, the date as seconds since 2001, the rectangle as [[x, y], [w, h]].
    const QByteArray bytes = readAll(ClipMetaStore::sidecarPath(url));
    const QJsonObject json = QJsonDocument::fromJson(bytes).object();
    EXPECT_EQ(json.value("date").toDouble(), 752000000.1234567);
    EXPECT_EQ(json.value("monitorRect").toVariant(),
        QVariant(QVariantList { QVariantList { 10.5, -20.25 }, QVariantList { 300, 0.1 } }));
    EXPECT_EQ(json.value("unit").toString(), QStringLiteral("ticks"));
    EXPECT_LT(bytes.indexOf("\"date\""), bytes.indexOf("\"mistakes\""));
    EXPECT_LT(bytes.indexOf("\"sourcePointSize\""), bytes.indexOf("\"ticker\""));
    EXPECT_TRUE(bytes.contains("\n")); // pretty printed

    // Only the unit differs from the empty record: still written, and optional keys left out.
    ClipMeta unitOnly;
    unitOnly.unit = PnLUnit::R;
    ClipMetaStore::save(unitOnly, url);
    const QJsonObject minimal = QJsonDocument::fromJson(readAll(ClipMetaStore::sidecarPath(url))).object();
    EXPECT_EQ(minimal.keys(), (QStringList { "mistakes", "notes", "outcome", "unit" }));
    EXPECT_EQ(ClipMetaStore::load(url), unitOnly);
}

TEST(ClipMetaStore, ReadsWhatOthersWroteNullsAndUnknownKeys)
{
    QTemporaryDir dir;
    const QUrl url = makeClip(dir, QStringLiteral("AAPL.mp4"));
    const QByteArray written = R"({"outcome":"win","unit":"dollars","notes":"","mistakes":"late",
        "pnl":125,"ticker":null,"date":null,"monitorRect":null,"future":{"x":[1,2]}})";
    writeAll(ClipMetaStore::sidecarPath(url), written);
    const ClipMeta meta = ClipMetaStore::load(url);
    EXPECT_EQ(meta.outcome, TradeOutcome::win);
    EXPECT_EQ(meta.pnl, 125.0);
    EXPECT_EQ(meta.mistakes, QStringLiteral("late"));
    EXPECT_FALSE(meta.ticker || meta.date || meta.monitorRect);
    // A date in the file takes effect over the name.
    writeAll(ClipMetaStore::sidecarPath(url), R"({"outcome":"win","unit":"R","notes":"","mistakes":"","date":0})");
    ClipEntry entry { url, 5.0, std::nullopt, ClipMetaStore::load(url) };
    EXPECT_EQ(entry.date(), 0.0);
}

TEST(ClipMetaStore, AnAmountBeyondAnyAccountReadsAsNoneAndTheFileStaysAsItIs)
{
    QTemporaryDir dir;
    const QUrl url = makeClip(dir, QStringLiteral("ES.mp4"));
    const QString sidecar = ClipMetaStore::sidecarPath(url);
    const auto withPnL = [](const char* pnl) {
        return QByteArray(R"({"outcome":"loss","unit":"dollars","notes":"fat finger","mistakes":"","pnl":)") + pnl
            + '}';
    };
    for (const char* huge : { "1e308", "-1.7e308", "1000000000000.01" }) {
        writeAll(sidecar, withPnL(huge));
        const ClipMeta meta = ClipMetaStore::load(url);
        EXPECT_FALSE(meta.pnl) << huge;
        EXPECT_EQ(meta.outcome, TradeOutcome::loss) << huge;
        EXPECT_EQ(meta.notes, QStringLiteral("fat finger")) << huge;
        EXPECT_EQ(readAll(sidecar), withPnL(huge));
    }
    writeAll(sidecar, withPnL("-1e12"));
    EXPECT_EQ(ClipMetaStore::load(url).pnl, -1e12);
}

TEST(ClipMetaStore, BadSidecarsLoadEmptyAndStayOnDisk)
{
    QTemporaryDir dir;
    const QUrl url = makeClip(dir, QStringLiteral("clip.mp4"));
    const QString sidecar = ClipMetaStore::sidecarPath(url);
    const QList<QByteArray> bad {
        R"({"outcome":"win","unit":"dollars","notes":"",)", // broken JSON
        R"({"outcome":"win","unit":"euro","notes":"","mistakes":""})", // unknown unit
        R"({"outcome":"Win","unit":"dollars","notes":"","mistakes":""})", // raw values are exact
        R"({"outcome":"win","unit":"dollars","pnl":50,"mistakes":""})", // "notes" missing
        R"({"outcome":"win","unit":"dollars","notes":null,"mistakes":""})", // required but null
        R"({"outcome":"win","unit":"dollars","notes":"","mistakes":"","pnl":"50"})", // wrong type
        R"({"outcome":"win","unit":"dollars","notes":"","mistakes":"","recordedSize":[1]})",
        R"({"outcome":"win","unit":"dollars","notes":"","mistakes":"","monitorRect":[1,2,3,4]})",
        R"(["outcome","win"])",
        "",
    };
    for (const QByteArray& bytes : bad) {
        writeAll(sidecar, bytes);
        EXPECT_TRUE(ClipMetaStore::load(url).isEmpty()) << bytes.constData();
        EXPECT_EQ(readAll(sidecar), bytes);
    }
}

TEST(ClipMetaStore, HostileSidecarsAreRefusedWithoutReadingThem)
{
    QTemporaryDir dir;
    const QUrl url = makeClip(dir, QStringLiteral("clip.mp4"));
    const QString sidecar = ClipMetaStore::sidecarPath(url);

    // A valid record padded with whitespace to exactly the limit loads; one byte more does not.
    const QByteArray record = R"({"outcome":"win","unit":"dollars","notes":"","mistakes":"","pnl":1})";
    QByteArray padded = record;
    padded.append(QByteArray(ClipMetaStore::maxSidecarBytes - record.size(), ' '));
    writeAll(sidecar, padded);
    EXPECT_EQ(ClipMetaStore::load(url).pnl, 1.0);
    writeAll(sidecar, padded + ' ');
    EXPECT_TRUE(ClipMetaStore::load(url).isEmpty());

    // A FIFO under the sidecar's name would block a plain open until someone writes to it.
    QFile::remove(sidecar);
    ASSERT_EQ(::mkfifo(QFile::encodeName(sidecar).constData(), 0600), 0);
    EXPECT_TRUE(ClipMetaStore::load(url).isEmpty());
    QFile::remove(sidecar);
    // So would a directory's contents be no record at all.
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("clip.clipmeta.json")));
    EXPECT_TRUE(ClipMetaStore::load(url).isEmpty());
}

TEST(ClipMetaStore, SavingTheEmptyRecordRemovesTheSidecarAndBadRecordsKeepTheOld)
{
    QTemporaryDir dir;
    const QUrl url = makeClip(dir, QStringLiteral("CLIP.MP4"));
    const QString sidecar = ClipMetaStore::sidecarPath(url);
    EXPECT_EQ(sidecar, dir.filePath(QStringLiteral("CLIP.clipmeta.json")));

    ClipMetaStore::save(ClipMeta {}, url); // nothing to remove: nothing happens
    EXPECT_FALSE(QFile::exists(sidecar));

    ClipMeta meta;
    meta.outcome = TradeOutcome::win;
    meta.pnl = 40;
    ClipMetaStore::save(meta, url);
    const QByteArray before = readAll(sidecar);
    ASSERT_FALSE(before.isEmpty());

    ClipMeta infinite = meta;
    infinite.pnl = std::numeric_limits<double>::infinity();
    ClipMetaStore::save(infinite, url);
    ClipMeta nanRect = meta;
    nanRect.monitorRect = QRectF(0, 0, std::nan(""), 1);
    ClipMetaStore::save(nanRect, url);
    EXPECT_EQ(readAll(sidecar), before);
    // Nothing half-written is left beside it either.
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 2);

    ClipMetaStore::save(ClipMeta {}, url);
    EXPECT_FALSE(QFile::exists(sidecar));
}

// Sidecar writes: only regular files of ours, never through a link, never over what can't be read.
TEST(ClipMetaStore, ALinkAFifoOrAFolderInTheSidecarsPlaceIsRefusedAndLeftAlone)
{
    QTemporaryDir dir;
    const QUrl url = makeClip(dir, QStringLiteral("trade.mp4"));
    const QString sidecar = ClipMetaStore::sidecarPath(url);
    const QString target = dir.filePath(QStringLiteral("bashrc"));
    writeAll(target, "export PATH=/usr/bin\n");
    ClipMeta meta;
    meta.outcome = TradeOutcome::win;
    meta.pnl = 500;

    // A link, even to a record that reads, is no sidecar of ours: not followed for reading either.
    ASSERT_TRUE(QFile::link(target, sidecar));
    auto failed = ClipMetaStore::save(meta, url);
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->reason, ClipMetaStore::SaveFailure::Reason::unusable);
    EXPECT_TRUE(failed->text.contains(QStringLiteral("symbolic link"))) << failed->text.toStdString();
    EXPECT_TRUE(ClipMetaStore::save(ClipMeta {}, url)); // not removed either
    EXPECT_EQ(readAll(target), QByteArray("export PATH=/usr/bin\n"));
    EXPECT_TRUE(QFileInfo(sidecar).isSymLink());
    QFile::remove(sidecar);
    writeAll(target, R"({"outcome":"win","unit":"dollars","notes":"","mistakes":""})");
    ASSERT_TRUE(QFile::link(target, sidecar));
    EXPECT_EQ(ClipMetaStore::read(url).state, ClipMetaStore::Sidecar::State::unusable);
    EXPECT_TRUE(ClipMetaStore::load(url).isEmpty());
    QFile::remove(sidecar);
    // A link to a device: the probe's run as root replaced /dev/null.
    ASSERT_TRUE(QFile::link(QStringLiteral("/dev/null"), sidecar));
    EXPECT_TRUE(ClipMetaStore::save(meta, url));
    struct stat null { };
    ASSERT_EQ(::stat("/dev/null", &null), 0);
    EXPECT_TRUE(S_ISCHR(null.st_mode));
    QFile::remove(sidecar);

    // A FIFO would block a writer that opened it; a folder would be replaced with its contents.
    ASSERT_EQ(::mkfifo(QFile::encodeName(sidecar).constData(), 0600), 0);
    failed = ClipMetaStore::save(meta, url);
    ASSERT_TRUE(failed);
    EXPECT_TRUE(failed->text.contains(QStringLiteral("not a regular file")));
    struct stat info { };
    ASSERT_EQ(::lstat(QFile::encodeName(sidecar).constData(), &info), 0);
    EXPECT_TRUE(S_ISFIFO(info.st_mode));
    QFile::remove(sidecar);
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("trade.clipmeta.json")));
    EXPECT_TRUE(ClipMetaStore::save(meta, url));
    EXPECT_TRUE(QFileInfo(sidecar).isDir());
    // Nothing was left behind by the refused writes.
    EXPECT_EQ(
        QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot).size(), 3);
}

TEST(ClipMetaStore, ASidecarThatDoesNotReadIsNeverReplacedAndUnknownKeysSurviveAnEdit)
{
    QTemporaryDir dir;
    const QUrl url = makeClip(dir, QStringLiteral("clip.mp4"));
    const QString sidecar = ClipMetaStore::sidecarPath(url);
    const QByteArray notes = R"("notes":"my whole plan for the week")";
    const QList<QByteArray> unreadable {
        R"({"outcome":"win","unit":"dollars",)" + notes + R"(,"mistakes":"")", // truncated
        R"({"outcome":"win","unit":"dollars",)" + notes + R"(,"mistakes":""}garbage)",
        R"({"outcome":"WIN","unit":"dollars",)" + notes + R"(,"mistakes":""})",
        R"({"outcome":"win","unit":"EUR",)" + notes + R"(,"mistakes":""})",
        R"({"outcome":"unset","unit":"dollars",)" + notes + R"(})", // "mistakes" missing
        R"({"outcome":"unset","unit":"dollars",)" + notes + R"(,"mistakes":"","pnl":"500"})",
        R"({"outcome":"unset","unit":"dollars",)" + notes + R"(,"mistakes":"","ticker":42})",
        R"({"outcome":"unset","unit":"dollars",)" + notes + R"(,"mistakes":"","pad":")"
            + QByteArray(ClipMetaStore::maxSidecarBytes, 'x') + R"("})",
    };
    ClipMeta tag;
    tag.outcome = TradeOutcome::loss;
    tag.pnl = 12;
    for (const QByteArray& bytes : unreadable) {
        writeAll(sidecar, bytes);
        const auto failed = ClipMetaStore::save(tag, url);
        ASSERT_TRUE(failed) << bytes.left(100).constData();
        EXPECT_EQ(failed->reason, ClipMetaStore::SaveFailure::Reason::unusable);
        EXPECT_TRUE(ClipMetaStore::save(ClipMeta {}, url));
        EXPECT_EQ(readAll(sidecar), bytes);
    }

    // Keys of a later version or of another tool, and an amount too large to use, come back as
    // they were after an edit of the notes.
    writeAll(sidecar, R"({"outcome":"unset","unit":"R","notes":"","mistakes":"","pnl":1e300,
        "fills":[{"qty":2,"price":4512.25}],"broker":"ib"})");
    ClipMeta meta = ClipMetaStore::load(url);
    EXPECT_FALSE(meta.pnl);
    meta.notes = QStringLiteral("added later");
    ASSERT_FALSE(ClipMetaStore::save(meta, url));
    const QJsonObject json = QJsonDocument::fromJson(readAll(sidecar)).object();
    EXPECT_EQ(json.value("broker").toString(), QStringLiteral("ib"));
    EXPECT_EQ(json.value("fills").toArray().at(0).toObject().value("price").toDouble(), 4512.25);
    EXPECT_EQ(json.value("pnl").toDouble(), 1e300);
    EXPECT_EQ(json.value("notes").toString(), QStringLiteral("added later"));
    EXPECT_EQ(ClipMetaStore::load(url), meta);
    // The user's own amount takes the place of the unusable one.
    meta.pnl = 40;
    ASSERT_FALSE(ClipMetaStore::save(meta, url));
    EXPECT_EQ(QJsonDocument::fromJson(readAll(sidecar)).object().value("pnl").toDouble(), 40.0);

    // Bytes that are not UTF-8 in the notes cost those bytes, not the record.
    writeAll(sidecar, "{\"outcome\":\"win\",\"unit\":\"dollars\",\"notes\":\"caf\xe9\",\"mistakes\":\"\",\"pnl\":5}");
    const ClipMeta latin1 = ClipMetaStore::load(url);
    EXPECT_EQ(latin1.pnl, 5.0);
    EXPECT_TRUE(latin1.notes.startsWith(QStringLiteral("caf")));
}

TEST(ClipMetaStore, AChangeIsWrittenOnlyOverTheRecordItWasMadeFrom)
{
    QTemporaryDir dir;
    const QUrl url = makeClip(dir, QStringLiteral("clip.mp4"));
    ClipMeta before;
    before.notes = QStringLiteral("entry on the retest");
    ASSERT_FALSE(ClipMetaStore::save(before, url));
    ClipMeta typed = before;
    typed.outcome = TradeOutcome::win;
    typed.pnl = 80;
    ClipMeta detected = before;
    detected.outcome = TradeOutcome::loss;
    detected.pnl = 12.5;

    // Made from a record that is no longer on disk: refused, and the disk keeps the newer one.
    ASSERT_FALSE(ClipMetaStore::save(typed, url));
    const auto failed = ClipMetaStore::save(detected, url, before);
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->reason, ClipMetaStore::SaveFailure::Reason::changed);
    EXPECT_EQ(ClipMetaStore::load(url), typed);

    // Someone writes between the read and the write of a change: it reads again and decides anew.
    ASSERT_FALSE(ClipMetaStore::save(before, url));
    int asked = 0;
    const auto changed = ClipMetaStore::change(url, [&](const ClipMeta& current) -> std::optional<ClipMeta> {
        if (++asked == 1) ClipMetaStore::save(typed, url);
        if (current.outcome != TradeOutcome::unset) return std::nullopt;
        ClipMeta next = current;
        next.outcome = detected.outcome;
        next.pnl = detected.pnl;
        return next;
    });
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(changed.status, ClipMetaStore::Changed::Status::declined);
    EXPECT_EQ(ClipMetaStore::load(url), typed);
}

// The batch an import writes: each record under the rules of a single save, a failure its own.
TEST(ClipMetaStore, ABatchWritesEveryRecordItCanAndNamesEachOneItCannot)
{
    QTemporaryDir dir;
    ClipMeta old;
    old.notes = QStringLiteral("entry on the retest");
    ClipMeta traded = old;
    traded.outcome = TradeOutcome::loss;
    traded.pnl = 7.25;
    traded.tagOrigin = TagOrigin::imported;

    // A new sidecar; one replaced that keeps its permissions and a key of another program's; one
    // with a name the file system can't hold; one the user edited after the import read it; a link.
    const QUrl fresh = makeClip(dir, QStringLiteral("fresh.mp4"));
    const QUrl kept = makeClip(dir, QStringLiteral("kept.mp4"));
    writeAll(ClipMetaStore::sidecarPath(kept),
        R"({"outcome":"unset","unit":"dollars","notes":"entry on the retest","mistakes":"","reviewedBy":"coach"})");
    ASSERT_TRUE(QFile::setPermissions(
        ClipMetaStore::sidecarPath(kept), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup));
    const ClipMeta keptBefore = ClipMetaStore::load(kept);
    ASSERT_EQ(keptBefore.otherFields.value(QStringLiteral("reviewedBy")), QStringLiteral("coach"));
    ClipMeta keptAfter = keptBefore;
    keptAfter.outcome = TradeOutcome::win;
    keptAfter.pnl = 40;
    // 254 bytes: the sidecar's name fits, the new file's beside it doesn't.
    const QUrl tooLong = QUrl::fromLocalFile(dir.filePath(QString(240, u'x') + QStringLiteral(".mp4")));
    const QUrl edited = makeClip(dir, QStringLiteral("edited.mp4"));
    ClipMeta mine = old;
    mine.outcome = TradeOutcome::win;
    mine.pnl = 3;
    ASSERT_FALSE(ClipMetaStore::save(mine, edited));
    const QUrl linked = makeClip(dir, QStringLiteral("linked.mp4"));
    writeAll(dir.filePath(QStringLiteral("elsewhere.txt")), "the user's file");
    ASSERT_TRUE(QFile::link(dir.filePath(QStringLiteral("elsewhere.txt")), ClipMetaStore::sidecarPath(linked)));
    const QUrl last = makeClip(dir, QStringLiteral("last.mp4"));

    const ClipMetaStore::SavedAll saved = ClipMetaStore::saveAll(
        { { fresh, traded, ClipMeta {} }, { kept, keptAfter, keptBefore }, { tooLong, traded, ClipMeta {} },
            { edited, traded, old }, { linked, traded, ClipMeta {} }, { last, traded, ClipMeta {} } });
    ASSERT_EQ(saved.failures.size(), 6U);
    EXPECT_TRUE(saved.unflushed.isEmpty());

    EXPECT_FALSE(saved.failures[0]);
    EXPECT_EQ(ClipMetaStore::load(fresh), traded);
    EXPECT_FALSE(saved.failures[1]);
    EXPECT_EQ(ClipMetaStore::load(kept), keptAfter);
    struct stat info { };
    ASSERT_EQ(::stat(QFile::encodeName(ClipMetaStore::sidecarPath(kept)).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640U);
    ASSERT_TRUE(saved.failures[2]);
    EXPECT_EQ(saved.failures[2]->reason, ClipMetaStore::SaveFailure::Reason::writeFailed);
    EXPECT_TRUE(saved.failures[2]->text.contains(QString(240, u'x') + QStringLiteral(".clipmeta.json")))
        << saved.failures[2]->text.toStdString();
    ASSERT_TRUE(saved.failures[3]);
    EXPECT_EQ(saved.failures[3]->reason, ClipMetaStore::SaveFailure::Reason::changed);
    EXPECT_EQ(ClipMetaStore::load(edited), mine);
    ASSERT_TRUE(saved.failures[4]);
    EXPECT_EQ(saved.failures[4]->reason, ClipMetaStore::SaveFailure::Reason::unusable);
    EXPECT_EQ(readAll(dir.filePath(QStringLiteral("elsewhere.txt"))), "the user's file");
    EXPECT_TRUE(QFileInfo(ClipMetaStore::sidecarPath(linked)).isSymLink());
    // After the failures, the batch went on to its end.
    EXPECT_FALSE(saved.failures[5]);
    EXPECT_EQ(ClipMetaStore::load(last), traded);
    // No new file is left behind beside the sidecars, whether it took its place or not.
    EXPECT_EQ(QDir(dir.path()).entryList({ QStringLiteral(".*") }, QDir::Files | QDir::Hidden), QStringList());
}

TEST(ClipNameParser, TickerAndMinuteOrTheModificationTime)
{
    QTemporaryDir dir;
    const QDateTime modified(QDate(2023, 1, 2), QTime(3, 4, 5), Qt::UTC);
    const double modifiedSeconds = ReferenceDate::fromDateTime(modified);
    const double minute = ReferenceDate::fromDateTime(QDateTime(QDate(2024, 11, 5), QTime(9, 30), Qt::LocalTime));

    const auto parsed = [&](const QString& name) { return ClipNameParser::parse(makeClip(dir, name, modified)); };

    auto p = parsed(QStringLiteral("AAPL_2024-11-05_09-30.mp4"));
    EXPECT_EQ(p.ticker, QStringLiteral("AAPL"));
    EXPECT_EQ(p.date, minute);

    p = parsed(QStringLiteral("_2024-11-05_09-30.mp4"));
    EXPECT_FALSE(p.ticker);
    EXPECT_EQ(p.date, minute);

    // The recorder's own names: no underscore, so no ticker and the file's time.
    p = parsed(QStringLiteral("Safari, Mar 5, 14-07-33.mp4"));
    EXPECT_FALSE(p.ticker);
    EXPECT_EQ(p.date, modifiedSeconds);

    // Three pieces with no date in them keep their ticker; the third piece keeps its underscores.
    for (const char* name : { "AAPL_x_y.mp4", "my_cool_app, Mar 5, 14-07-33.mp4", "AAPL_2024-11-05_09-30_extra.mp4",
             "AAPL_2024-11-05_09-30 .mp4", "AAPL_2024-02-30_09-30.mp4", "AAPL_2024-11-05_24-00.mp4" }) {
        p = parsed(QString::fromUtf8(name));
        EXPECT_TRUE(p.ticker == QStringLiteral("AAPL") || p.ticker == QStringLiteral("my")) << name;
        EXPECT_EQ(p.date, modifiedSeconds) << name;
    }

    // A file gone between listing and parsing has no date at all; its entry then dates from now.
    const QUrl vanished = QUrl::fromLocalFile(dir.filePath(QStringLiteral("gone.mp4")));
    EXPECT_FALSE(ClipNameParser::parse(vanished).date);
    const double before = ReferenceDate::now();
    const ClipEntry entry { vanished, std::nullopt, std::nullopt, {} };
    EXPECT_GE(entry.date(), before);
    EXPECT_LE(entry.date(), ReferenceDate::now());
}

TEST(FormatPnL, SignUnitAndDecimals)
{
    EXPECT_EQ(formatPnL(-12.5, PnLUnit::dollars, 2), QStringLiteral("-$12.50"));
    EXPECT_EQ(formatPnL(3, PnLUnit::R, 2), QStringLiteral("3.00R"));
    EXPECT_EQ(formatPnL(1.5, PnLUnit::R, 2), QStringLiteral("1.50R"));
    EXPECT_EQ(formatPnL(100, PnLUnit::R, 0), QStringLiteral("100R"));
    EXPECT_EQ(formatPnL(-0.0, PnLUnit::points, 1), QStringLiteral("0.0 pts"));
    EXPECT_EQ(formatPnL(-7.25, PnLUnit::ticks, 0), QStringLiteral("-7 ticks"));
    EXPECT_EQ(formatPnL(2.675, PnLUnit::dollars, 2), QStringLiteral("$2.67")); // 2.67499999... in binary
    EXPECT_EQ(formatPnL(-0.001, PnLUnit::dollars, 2), QStringLiteral("-$0.00"));
    // Beyond what a double holds to the cent: three digits and the power, not 309 digits.
    EXPECT_EQ(formatPnL(999999999999999, PnLUnit::dollars, 0, QLocale::c()), QStringLiteral("$999999999999999"));
    EXPECT_EQ(formatPnL(1.2e308, PnLUnit::dollars, 2), QStringLiteral("$1.2e308"));
    EXPECT_EQ(formatPnL(-2.5e15, PnLUnit::R, 0), QStringLiteral("-2.5e15R"));
    EXPECT_EQ(formatFixed(-std::numeric_limits<double>::infinity(), 2), QStringLiteral("-inf"));
}

TEST(FormatPnL, ThousandsAndDecimalMarkFollowTheLocale)
{
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    const QLocale german(QLocale::German, QLocale::Germany);
    EXPECT_EQ(formatPnL(-1234567.5, PnLUnit::dollars, 2, english), QStringLiteral("-$1,234,567.50"));
    EXPECT_EQ(formatPnL(1234.5, PnLUnit::R, 2, german), QStringLiteral("1.234,50R"));
    EXPECT_EQ(formatPnL(999.996, PnLUnit::points, 2, english), QStringLiteral("1,000.00 pts"));
    // A bare environment groups nothing.
    EXPECT_EQ(formatPnL(-12345, PnLUnit::ticks, 0, QLocale::c()), QStringLiteral("-12345 ticks"));
}

TEST(ClipMetaStore, TradesTagsAndTheTagsOriginRoundTripAndABrokenTradeFailsTheRecord)
{
    QTemporaryDir dir;
    const QUrl url = makeClip(dir, QStringLiteral("ES.mp4"));
    ClipMeta meta;
    meta.outcome = TradeOutcome::loss;
    meta.pnl = 7.25;
    meta.tagOrigin = TagOrigin::imported;
    meta.tags = QStringList { "breakout", "A+" };
    ClipTrade t;
    t.key = QStringLiteral("id:T-1");
    t.symbol = QStringLiteral("ES");
    t.side = QStringLiteral("short");
    t.quantity = 2;
    t.entryTime = 752000000.5;
    t.exitTime = 752000090.25;
    t.pnl = -7.25;
    t.fees = 4.5;
    t.outcome = TradeOutcome::loss;
    meta.trades = { t, t };
    meta.trades[1].key = QStringLiteral("h:0011223344556677");
    meta.trades[1].quantity.reset();
    meta.trades[1].entryTime.reset();
    ClipMetaStore::save(meta, url);
    EXPECT_EQ(ClipMetaStore::load(url), meta);
    const QJsonObject json = QJsonDocument::fromJson(readAll(ClipMetaStore::sidecarPath(url))).object();
    EXPECT_EQ(json.value("tagOrigin").toString(), "imported");
    EXPECT_EQ(json.value("trades").toArray().at(0).toObject().value("origin").toString(), "imported");

    // A sidecar written before trades existed has none and loads as it did.
    writeAll(ClipMetaStore::sidecarPath(url), R"({"outcome":"win","unit":"dollars","notes":"","mistakes":""})");
    EXPECT_TRUE(ClipMetaStore::load(url).trades.isEmpty());
    // A trade without its key, a tag that is not text or an unknown origin: no partial record.
    for (const char* broken : { R"("trades":[{"exitTime":1,"outcome":"win","unit":"dollars"}])", R"("tags":[1])",
             R"("tagOrigin":"guessed")", R"("trades":{})" }) {
        writeAll(ClipMetaStore::sidecarPath(url),
            QByteArray(R"({"outcome":"win","unit":"dollars","notes":"","mistakes":"",)") + broken + "}");
        EXPECT_TRUE(ClipMetaStore::load(url).isEmpty()) << broken;
    }
}
