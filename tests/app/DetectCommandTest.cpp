#include "app/cli/DetectCommand.h"

#include "app/AppSettings.h"
#include "core/LocalFileName.h"
#include "journal/ClipMetaStore.h"
#include "platform/ocr/TesseractRecognizer.h"
#include "support/DrawnTextClip.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

struct CommandRun {
    int status;
    QString out;
    QString err;
};

CommandRun run(const QStringList& args, AppSettings* settings)
{
    CommandRun r {};
    QTextStream out(&r.out);
    QTextStream err(&r.err);
    r.status = runDetectCommand(args, out, err, TesseractRecognizer::factory(), settings);
    out.flush();
    err.flush();
    return r;
}

} // namespace

TEST(DetectCommandTest, ReadsABacklogAndTagsOnlyWhatTheUserLeftUntagged)
{
    QTemporaryDir dir;
    AppSettings settings(
        std::make_unique<QSettings>(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat));
    const QString win = dir.filePath(QStringLiteral("win.mp4"));
    const QString mine = dir.filePath(QStringLiteral("mine.mp4"));
    const QString blank = dir.filePath(QStringLiteral("blank.mp4"));
    const QString white = QStringLiteral("white");
    ASSERT_TRUE(makeDrawnTextClip(win, QSize(320, 180), QStringLiteral("black"), 1.0,
        { DrawnText { QStringLiteral("$2,310.75"), QStringLiteral("DejaVuSans.ttf"), 18, white, QStringLiteral("30"),
            QStringLiteral("30"), {} } }));
    ASSERT_TRUE(makeDrawnTextClip(mine, QSize(320, 180), QStringLiteral("black"), 1.0,
        { DrawnText { QStringLiteral("-7.25"), QStringLiteral("DejaVuSans.ttf"), 18, white, QStringLiteral("30"),
            QStringLiteral("30"), {} } }));
    ASSERT_TRUE(makeDrawnTextClip(blank, QSize(320, 180), QStringLiteral("black"), 1.0, {}));
    ClipMeta userTag;
    userTag.outcome = TradeOutcome::win;
    userTag.pnl = 3;
    ClipMetaStore::save(userTag, QUrl::fromLocalFile(mine));

    // A clip that can't be read is named, and nothing is scanned or written.
    const QString broken = dir.filePath(QStringLiteral("broken.mp4"));
    QFile file(broken);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("not a clip");
    file.close();
    const CommandRun refused
        = run({ win, broken, QStringLiteral("--write"), QStringLiteral("--area=10,10,200,60") }, &settings);
    EXPECT_EQ(refused.status, 2);
    EXPECT_TRUE(refused.err.contains(broken)) << refused.err.toStdString();
    EXPECT_FALSE(QFile::exists(ClipMetaStore::sidecarPath(QUrl::fromLocalFile(win))));

    // Without --area the saved watch area is used, read as the clip's own pixels.
    settings.setAreaMonitorRect(QRectF(10, 10, 200, 60));
    const CommandRun ran = run({ QStringLiteral("--json"), win, mine, blank, QStringLiteral("--write") }, &settings);
    ASSERT_EQ(ran.status, 0) << ran.err.toStdString();
    const QJsonArray results = QJsonDocument::fromJson(ran.out.toUtf8()).array();
    ASSERT_EQ(results.size(), 3) << ran.out.toStdString();
    EXPECT_EQ(results[0].toObject(),
        QJsonObject({ { QStringLiteral("file"), win }, { QStringLiteral("outcome"), QStringLiteral("win") },
            { QStringLiteral("pnl"), 2310.75 }, { QStringLiteral("rawText"), QStringLiteral("$2,310.75") },
            { QStringLiteral("disputed"), QJsonValue() } }));
    EXPECT_EQ(results[1].toObject()[QStringLiteral("outcome")], QStringLiteral("loss"));
    EXPECT_EQ(results[2].toObject(),
        QJsonObject({ { QStringLiteral("file"), blank }, { QStringLiteral("outcome"), QJsonValue() },
            { QStringLiteral("pnl"), QJsonValue() }, { QStringLiteral("rawText"), QJsonValue() },
            { QStringLiteral("disputed"), QJsonValue() } }));

    const ClipMeta written = ClipMetaStore::load(QUrl::fromLocalFile(win));
    EXPECT_EQ(written.outcome, TradeOutcome::win);
    EXPECT_EQ(written.pnl, 2310.75);
    EXPECT_EQ(ClipMetaStore::load(QUrl::fromLocalFile(mine)), userTag);
    EXPECT_TRUE(ran.err.contains(QStringLiteral("kept your value"))) << ran.err.toStdString();
    EXPECT_FALSE(QFile::exists(ClipMetaStore::sidecarPath(QUrl::fromLocalFile(blank))));
}

namespace {

// One clip showing a winning figure inside 10,10,200,60, made once per test.
QString makeWinClip(const QTemporaryDir& dir)
{
    const QString path = dir.filePath(QStringLiteral("win.mp4"));
    const bool made = makeDrawnTextClip(path, QSize(320, 180), QStringLiteral("black"), 1.0,
        { DrawnText { QStringLiteral("$2,310.75"), QStringLiteral("DejaVuSans.ttf"), 18, QStringLiteral("white"),
            QStringLiteral("30"), QStringLiteral("30"), {} } });
    return made ? path : QString();
}

QByteArray readBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

// The detect command: what --write leaves alone, and names taken as they are.
TEST(DetectCommandTest, WriteLeavesLinksAndUnreadableSidecarsAloneAndSaysSo)
{
    QTemporaryDir dir;
    AppSettings settings(
        std::make_unique<QSettings>(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat));
    const QString win = makeWinClip(dir);
    ASSERT_FALSE(win.isEmpty());
    const QString linked = dir.filePath(QStringLiteral("linked.mp4"));
    const QString broken = dir.filePath(QStringLiteral("broken.mp4"));
    ASSERT_TRUE(QFile::copy(win, linked));
    ASSERT_TRUE(QFile::copy(win, broken));
    // A downloaded folder whose sidecar points at a file of the user's.
    const QString bashrc = dir.filePath(QStringLiteral("bashrc"));
    QFile target(bashrc);
    ASSERT_TRUE(target.open(QIODevice::WriteOnly));
    target.write("alias ll='ls -l'\n");
    target.close();
    ASSERT_TRUE(QFile::link(bashrc, ClipMetaStore::sidecarPath(QUrl::fromLocalFile(linked))));
    // A sidecar with the user's notes that this version cannot read.
    const QByteArray notes = R"({"outcome":"WIN","unit":"dollars","notes":"my plan","mistakes":""})";
    const QString brokenSidecar = ClipMetaStore::sidecarPath(QUrl::fromLocalFile(broken));
    QFile sidecar(brokenSidecar);
    ASSERT_TRUE(sidecar.open(QIODevice::WriteOnly));
    sidecar.write(notes);
    sidecar.close();

    const CommandRun r
        = run({ QStringLiteral("--write"), QStringLiteral("--area=10,10,200,60"), win, linked, broken }, &settings);
    EXPECT_EQ(r.status, 1) << r.err.toStdString();
    EXPECT_EQ(r.err.count(QStringLiteral("could not write the tag of")), 2) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(QStringLiteral("symbolic link"))) << r.err.toStdString();
    EXPECT_EQ(readBytes(bashrc), QByteArray("alias ll='ls -l'\n"));
    EXPECT_TRUE(QFileInfo(ClipMetaStore::sidecarPath(QUrl::fromLocalFile(linked))).isSymLink());
    EXPECT_EQ(readBytes(brokenSidecar), notes);
    // The others are tagged all the same.
    EXPECT_EQ(ClipMetaStore::load(QUrl::fromLocalFile(win)).pnl, 2310.75);
    const QStringList lines = r.out.split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3) << r.out.toStdString();
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral(", written")));
    EXPECT_TRUE(lines[1].endsWith(QStringLiteral(", not written")));
}

TEST(DetectCommandTest, ANameIsAClipWhateverItHolds)
{
    QTemporaryDir dir;
    AppSettings settings(
        std::make_unique<QSettings>(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat));
    const QString win = makeWinClip(dir);
    ASSERT_FALSE(win.isEmpty());
    // Names as a user types them: relative to the working folder, which is put back however the test ends.
    const std::unique_ptr<const QString, void (*)(const QString*)> here(
        new QString(QDir::currentPath()), [](const QString* path) {
            QDir::setCurrent(*path);
            delete path;
        });
    ASSERT_TRUE(QDir::setCurrent(dir.path()));
    const QString area = QStringLiteral("--area=10,10,200,60");

    // A file called "-h" is a clip; so is anything after "--".
    ASSERT_TRUE(QFile::copy(win, QStringLiteral("-h")));
    ASSERT_TRUE(QFile::copy(win, QStringLiteral("--odd")));
    const CommandRun dashes
        = run({ area, QStringLiteral("-h"), QStringLiteral("--"), QStringLiteral("--odd") }, &settings);
    EXPECT_EQ(dashes.status, 0) << dashes.err.toStdString();
    EXPECT_TRUE(dashes.out.startsWith(QStringLiteral("-h: 2310.75 (win)"))) << dashes.out.toStdString();
    EXPECT_TRUE(dashes.out.contains(QStringLiteral("\n--odd: 2310.75 (win)"))) << dashes.out.toStdString();

    // A newline in a name does not make two lines; a name that is not UTF-8 is read and tagged.
    ASSERT_TRUE(QFile::copy(win, QStringLiteral("a\nb.mp4")));
    const QString latin1 = LocalFileName::decode("caf\xe9.mp4");
    ASSERT_EQ(::link(QFile::encodeName(win).constData(), "caf\xe9.mp4"), 0);
    const CommandRun names = run({ area, QStringLiteral("--write"), QStringLiteral("a\nb.mp4"), latin1 }, &settings);
    EXPECT_EQ(names.status, 0) << names.err.toStdString();
    const QStringList lines = names.out.split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2) << names.out.toStdString();
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("a\\nb.mp4: 2310.75 (win)")));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("caf\\xe9.mp4: 2310.75 (win)")));
    struct stat info { };
    EXPECT_EQ(::stat("caf\xe9.clipmeta.json", &info), 0);

    // An area that misses the picture says so.
    const CommandRun outside = run({ QStringLiteral("--area=400,10,50,50"), win }, &settings);
    EXPECT_EQ(outside.status, 0);
    EXPECT_TRUE(outside.out.contains(QStringLiteral("lies outside the clip's 320x180 picture")))
        << outside.out.toStdString();
}

namespace {

// Two readings of one frame that disagree on the sign, which Tesseract does only now and then: the
// first sees a loss, the one held to the characters of amounts a win.
class DisagreeingRecognizer : public TextRecognizer {
public:
    QList<RecognizedLine> recognize(const QImage&) override { return { { QStringLiteral("-7.25"), box } }; }
    QList<RecognizedLine> recognizeAmount(const QImage&) override { return { { QStringLiteral("7.25"), box } }; }

private:
    QRectF box { 0.1, 0.4, 0.5, 0.2 };
};

} // namespace

TEST(DetectCommandTest, ADisputedFigureIsReportedAndNotWritten)
{
    QTemporaryDir dir;
    AppSettings settings(
        std::make_unique<QSettings>(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat));
    const QString clip = makeWinClip(dir);
    ASSERT_FALSE(clip.isEmpty());
    const RecognizerFactory disagreeing = [] { return std::make_unique<DisagreeingRecognizer>(); };
    const auto detect = [&](const QStringList& args) {
        CommandRun r {};
        QTextStream out(&r.out);
        QTextStream err(&r.err);
        r.status = runDetectCommand(args, out, err, disagreeing, &settings);
        out.flush();
        err.flush();
        return r;
    };

    const CommandRun json
        = detect({ QStringLiteral("--json"), QStringLiteral("--write"), QStringLiteral("--area=10,10,200,60"), clip });
    ASSERT_EQ(json.status, 0) << json.err.toStdString();
    const QJsonArray results = QJsonDocument::fromJson(json.out.toUtf8()).array();
    ASSERT_EQ(results.size(), 1) << json.out.toStdString();
    EXPECT_EQ(results[0].toObject(),
        QJsonObject({ { QStringLiteral("file"), clip }, { QStringLiteral("outcome"), QJsonValue() },
            { QStringLiteral("pnl"), QJsonValue() }, { QStringLiteral("rawText"), QJsonValue() },
            { QStringLiteral("disputed"), QStringLiteral("-7.25") } }));
    EXPECT_FALSE(QFile::exists(ClipMetaStore::sidecarPath(QUrl::fromLocalFile(clip))));

    const CommandRun text = detect({ QStringLiteral("--area=10,10,200,60"), clip });
    EXPECT_TRUE(text.out.contains(QStringLiteral(": unsure of '-7.25': tag it by hand"))) << text.out.toStdString();
}
