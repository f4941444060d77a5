#include "recorder/SegmentFolder.h"

#include "recorder/PartialExports.h"
#include "recorder/SegmentedRecorder.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <sys/prctl.h>

namespace {

// A folder as a run leaves it: one segment file of `bytes`, and its lock file unless `locked` is false.
QString runFolder(const QString& parent, const char* name, int bytes, bool withLockFile = true)
{
    const QString path = parent + QLatin1Char('/') + QLatin1String(name);
    QDir().mkpath(path);
    QFile segment(path + QStringLiteral("/seg-0a1b2c3d.mp4"));
    segment.open(QIODevice::WriteOnly);
    segment.write(QByteArray(bytes, 'x'));
    if (withLockFile) {
        QFile lock(path + QLatin1Char('/') + QLatin1String(SegmentFolder::lockFileName));
        lock.open(QIODevice::WriteOnly);
    }
    return path;
}

// Another process that holds the folder's lock (flock(1) takes the same kind of lock), until killed.
void holdLock(QProcess& holder, const QString& folder)
{
    holder.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    holder.start(QStringLiteral("flock"),
        { QStringLiteral("--no-fork"), folder + QLatin1Char('/') + QLatin1String(SegmentFolder::lockFileName),
            QStringLiteral("sh"), QStringLiteral("-c"), QStringLiteral("echo held; exec sleep 60") });
    ASSERT_TRUE(holder.waitForReadyRead(5000)) << holder.errorString().toStdString();
    ASSERT_EQ(holder.readAllStandardOutput(), QByteArray("held\n"));
}

void writeFile(const QString& path, int ageSeconds)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("partial");
    file.flush(); // a later write would make the file new again
    if (ageSeconds > 0)
        file.setFileTime(QDateTime::currentDateTime().addSecs(-ageSeconds), QFileDevice::FileModificationTime);
}

} // namespace

TEST(SegmentFolder, TheStartUpSweepTakesWhatDeadRunsLeftAndNothingOfLiveOnes)
{
    // A recorder running in this process makes its folder under this test's own temporary folder.
    QTemporaryDir temp;
    const std::optional<QByteArray> savedTmp
        = qEnvironmentVariableIsSet("TMPDIR") ? std::optional(qgetenv("TMPDIR")) : std::nullopt;
    qputenv("TMPDIR", QFile::encodeName(temp.path()));
    auto recorder = std::make_unique<SegmentedRecorder>();
    const QString parent = SegmentFolder::defaultParent();
    savedTmp ? qputenv("TMPDIR", *savedTmp) : qunsetenv("TMPDIR");
    const QString own = recorder->segmentsDirectory();
    ASSERT_EQ(QFileInfo(own).absolutePath(), temp.path() + QStringLiteral("/Velotape2"));
    ASSERT_TRUE(QFileInfo(own).isDir());

    QProcess liveOwner, crashedOwner;
    const QString live = runFolder(parent, "segments-11111111", 1000);
    ASSERT_NO_FATAL_FAILURE(holdLock(liveOwner, live));
    // A run that was killed: the kernel let go of its lock.
    const QString crashed = runFolder(parent, "segments-22222222", 3000);
    ASSERT_NO_FATAL_FAILURE(holdLock(crashedOwner, crashed));
    crashedOwner.kill();
    ASSERT_TRUE(crashedOwner.waitForFinished(5000));
    // A build from before the lock, and a folder that isn't a run's at all.
    const QString unlocked = runFolder(parent, "segments-33333333", 500, false);
    const QString stranger = runFolder(parent, "keep-me", 10, false);

    const SegmentFolder::SweepResult swept = SegmentFolder::sweepStale(parent, own);
    EXPECT_EQ(swept.removed, 2);
    EXPECT_EQ(swept.bytes, 3500);
    EXPECT_EQ(swept.alive, 1);
    EXPECT_TRUE(QFileInfo::exists(live + QStringLiteral("/seg-0a1b2c3d.mp4")));
    EXPECT_FALSE(QFileInfo::exists(crashed));
    EXPECT_FALSE(QFileInfo::exists(unlocked));
    EXPECT_TRUE(QFileInfo::exists(stranger));
    // Seen from another start, this run's folder is as alive as the other.
    EXPECT_EQ(SegmentFolder::sweepStale(parent).alive, 2);
    EXPECT_TRUE(QFileInfo::exists(own));

    // Unfinished clips in the save folder: while another instance runs, only those no export has
    // written to for a while go; once none runs, every one. Other names are never touched.
    QTemporaryDir saves;
    const QString fresh = saves.filePath(QStringLiteral(".Chart, Mar 5, 14-07-33.mp4.0a1b2c3d.part"));
    const QString stale = saves.filePath(QStringLiteral(".Clip, Mar 4, 09-00-00.mp4.ffee0011.part"));
    const QStringList users { saves.filePath(QStringLiteral("notes.part")),
        saves.filePath(QStringLiteral(".draft.mp4.part")), saves.filePath(QStringLiteral("Clip.mp4.0a1b2c3d.part")),
        saves.filePath(QStringLiteral(".Clip.mov.0a1b2c3d.part")) };
    writeFile(fresh, 0);
    writeFile(stale, 120);
    for (const QString& user : users)
        writeFile(user, 120);
    EXPECT_EQ(PartialExports::sweep(saves.path(), true), 1);
    EXPECT_TRUE(QFileInfo::exists(fresh));
    EXPECT_FALSE(QFileInfo::exists(stale));
    EXPECT_EQ(PartialExports::sweep(saves.path(), false), 1);
    EXPECT_FALSE(QFileInfo::exists(fresh));
    for (const QString& user : users)
        EXPECT_TRUE(QFileInfo::exists(user)) << user.toStdString();

    liveOwner.kill();
    liveOwner.waitForFinished(5000);

    // The end of a run takes its folder with it.
    recorder.reset();
    EXPECT_FALSE(QFileInfo::exists(own));
}
