#include "app/cli/DetectCommand.h"

#include "app/AppSettings.h"
#include "journal/ClipMetaStore.h"
#include "platform/ocr/TesseractRecognizer.h"
#include "support/DrawnTextClip.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

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
            { QStringLiteral("pnl"), 2310.75 }, { QStringLiteral("rawText"), QStringLiteral("$2,310.75") } }));
    EXPECT_EQ(results[1].toObject()[QStringLiteral("outcome")], QStringLiteral("loss"));
    EXPECT_EQ(results[2].toObject(),
        QJsonObject({ { QStringLiteral("file"), blank }, { QStringLiteral("outcome"), QJsonValue() },
            { QStringLiteral("pnl"), QJsonValue() }, { QStringLiteral("rawText"), QJsonValue() } }));

    const ClipMeta written = ClipMetaStore::load(QUrl::fromLocalFile(win));
    EXPECT_EQ(written.outcome, TradeOutcome::win);
    EXPECT_EQ(written.pnl, 2310.75);
    EXPECT_EQ(ClipMetaStore::load(QUrl::fromLocalFile(mine)), userTag);
    EXPECT_TRUE(ran.err.contains(QStringLiteral("kept your value"))) << ran.err.toStdString();
    EXPECT_FALSE(QFile::exists(ClipMetaStore::sidecarPath(QUrl::fromLocalFile(blank))));
}
