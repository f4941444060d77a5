#include "recorder/SegmentFolder.h"

#include "ClipProbe.h"
#include "RecorderHarness.h"
#include "RingPlaces.h"
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
#include <sys/stat.h>
#include <unistd.h>

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

struct stat lstatOf(const QString& path)
{
    struct stat info { };
    ::lstat(QFile::encodeName(path).constData(), &info);
    return info;
}

unsigned modeOf(const QString& path)
{
    return lstatOf(path).st_mode & 07777;
}

// A folder of `mode` that another user made.
void foreignFolder(const QString& path, unsigned mode)
{
    QDir().mkpath(path);
    ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), mode), 0);
    ASSERT_EQ(::chown(QFile::encodeName(path).constData(), 65534, 65534), 0);
}

// Feeds `seconds` of frames at 10 a second from `from` seconds on.
void feedSeconds(SegmentedRecorder& recorder, double from, double seconds, int width = 256, int height = 144)
{
    const int first = int(from * 10);
    for (int i = first; i < first + int(seconds * 10); ++i)
        recorder.ingest(IndexedFrames::frame(i, width, height, ticks600(60 * i), true));
    settle(recorder);
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
    ScopedEnv runtime("XDG_RUNTIME_DIR", temp.path());
    auto recorder = std::make_unique<SegmentedRecorder>();
    const QString own = recorder->segmentsDirectory();
    const QString parent = QFileInfo(own).absolutePath();
    ASSERT_EQ(parent, temp.path() + QStringLiteral("/velotape"));
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

TEST(SegmentFolder, TheRingIsTheUsersAloneAndNeverInAFolderAnotherUserMadeOrCanEnter)
{
    QTemporaryDir temp;
    const QString uid = QString::number(::geteuid());
    QDir().mkpath(temp.filePath("run"));
    ::chmod(QFile::encodeName(temp.filePath("run")).constData(), 0700);
    QDir().mkpath(temp.filePath("tmp"));
    ::chmod(QFile::encodeName(temp.filePath("tmp")).constData(), 01777);
    ScopedEnv runtime("XDG_RUNTIME_DIR", temp.filePath("run"));
    ScopedEnv cache("XDG_CACHE_HOME", temp.filePath("cache"));
    ScopedEnv tmp("TMPDIR", temp.filePath("tmp"));

    // The runtime folder first: the folder, its parent and every file in it closed to others.
    {
        auto recorder = pacedRecorder(10, 10);
        const QString dir = recorder->segmentsDirectory();
        EXPECT_EQ(QFileInfo(dir).absolutePath(), temp.filePath("run/velotape"));
        feedSeconds(*recorder, 0, 7);
        const std::vector<Segment> segments = recorder->segmentsSnapshot();
        ASSERT_EQ(segments.size(), 1u);
        EXPECT_EQ(modeOf(dir), 0700u);
        EXPECT_EQ(modeOf(QFileInfo(dir).absolutePath()), 0700u);
        EXPECT_EQ(modeOf(segments[0].url), 0600u);
        EXPECT_EQ(modeOf(dir + "/" + SegmentFolder::lockFileName), 0600u);
    }

    // Without a runtime folder, and with the cache's and the temporary folder's places taken by
    // another user (one open to all, one closed but not ours) or a link: none of them is used,
    // and the ring still buffers, in a folder that is ours and closed.
    ScopedEnv noRuntime("XDG_RUNTIME_DIR", QString());
    ASSERT_NO_FATAL_FAILURE(foreignFolder(temp.filePath("cache/velotape"), 0777));
    ASSERT_NO_FATAL_FAILURE(foreignFolder(temp.filePath("tmp/velotape-" + uid), 0700));
    const QString othersRun = runFolder(temp.filePath("tmp/velotape-" + uid), "segments-44444444", 10, false);
    {
        auto recorder = pacedRecorder(10, 10);
        const QString dir = recorder->segmentsDirectory();
        const QString parent = QFileInfo(dir).absolutePath();
        EXPECT_NE(parent, temp.filePath("cache/velotape"));
        EXPECT_NE(parent, temp.filePath("tmp/velotape-" + uid));
        EXPECT_TRUE(parent.startsWith(temp.filePath("tmp/velotape-"))) << parent.toStdString();
        EXPECT_EQ(lstatOf(dir).st_uid, ::geteuid());
        EXPECT_EQ(modeOf(dir), 0700u);
        EXPECT_EQ(lstatOf(parent).st_uid, ::geteuid());
        EXPECT_EQ(modeOf(parent), 0700u);
        feedSeconds(*recorder, 0, 7);
        EXPECT_EQ(recorder->segmentsSnapshot().size(), 1u);
        EXPECT_DOUBLE_EQ(recorder->bufferedSeconds(), 6.9);
    }
    QDir(temp.filePath("cache/velotape")).removeRecursively();
    QDir().mkpath(temp.filePath("elsewhere"));
    ::chmod(QFile::encodeName(temp.filePath("elsewhere")).constData(), 0700);
    ASSERT_TRUE(QFile::link(temp.filePath("elsewhere"), temp.filePath("cache/velotape")));
    EXPECT_EQ(SegmentFolder::chooseParent(1, { temp.filePath("cache/velotape") }), std::nullopt);
    // The start-up sweep looks into none of them: the other user's unlocked run stays.
    SegmentFolder::sweepStaleEverywhere();
    EXPECT_TRUE(QFileInfo::exists(othersRun));
}

TEST(SegmentFolder, ARuntimeFolderTooSmallForTheBufferIsPassedOverAtStartAndWhenTheBufferGrows)
{
    SmallDisk run(1 << 20);
    if (!run.mounted()) GTEST_SKIP() << "mounting a tmpfs needs root";
    QTemporaryDir temp;
    ScopedEnv runtime("XDG_RUNTIME_DIR", run.path());
    ScopedEnv cache("XDG_CACHE_HOME", temp.filePath("cache"));
    // 10 s at 20 Mb/s (the recorder's defaults) is far beyond 1 MB, and so is 10 s at 2 Mb/s.
    SegmentedRecorder recorder;
    EXPECT_EQ(QFileInfo(recorder.segmentsDirectory()).absolutePath(), temp.filePath("cache/velotape"));
    EXPECT_EQ(SegmentFolder::chooseParent(512 * 1024), run.path() + "/velotape");

    // A runtime disk that holds the default buffer, until the settings ask for two minutes at
    // 100 Mb/s: the ring, still empty, moves to the cache.
    SmallDisk roomier(128 << 20);
    ASSERT_TRUE(roomier.mounted());
    ScopedEnv roomierRuntime("XDG_RUNTIME_DIR", roomier.path());
    SegmentedRecorder moving;
    EXPECT_EQ(QFileInfo(moving.segmentsDirectory()).absolutePath(), roomier.path() + "/velotape");
    const QString first = moving.segmentsDirectory();
    moving.configure(1920, 1080, 100, 120, 60);
    moving.waitUntilIdle();
    EXPECT_EQ(QFileInfo(moving.segmentsDirectory()).absolutePath(), temp.filePath("cache/velotape"));
    EXPECT_FALSE(QFileInfo::exists(first));
}

TEST(SegmentFolder, AFolderRemovedWhileRunningIsMadeAgainAndWhatWentWithItIsNotClaimed)
{
    QTemporaryDir temp;
    ScopedEnv runtime("XDG_RUNTIME_DIR", temp.path());
    auto recorder = pacedRecorder(10, 10);
    QString shortNote;
    recorder->onClipShort = [&](const QString&, const QString& text) { shortNote = text; };
    QString saved, error;
    recorder->onFinished = [&](const QString& path) { saved = path; };
    recorder->onError = [&](const QString& text) { error = text; };
    feedSeconds(*recorder, 0, 14);
    EXPECT_DOUBLE_EQ(recorder->bufferedSeconds(), 10.0);

    // At 14 s the folder goes, with two finished segments and the open one.
    const QString dir = recorder->segmentsDirectory();
    ASSERT_TRUE(QDir(dir).removeRecursively());
    feedSeconds(*recorder, 14, 3);
    EXPECT_TRUE(QFileInfo(dir).isDir());
    EXPECT_EQ(recorder->bufferProblem(), SegmentedRecorder::folderRemovedCause);
    // What is on disk again: the seconds since the folder came back, not the 10 s there were.
    EXPECT_DOUBLE_EQ(recorder->bufferedSeconds(), 2.9);

    // A save that reaches back before the removal holds what came after it and says so.
    recorder->startRecording(temp.filePath("clips/after-removal.mp4"));
    feedSeconds(*recorder, 17, 2);
    recorder->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return !saved.isEmpty() || !error.isEmpty(); })) << "no clip, no error";
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    EXPECT_EQ(shortNote, QStringLiteral("Saved 5 s of the 12 s asked: the buffer's folder was removed."));
    const ClipProbe clip = ClipProbe::read(saved);
    ASSERT_FALSE(clip.frames.empty());
    EXPECT_EQ(clip.decodeErrors, 0);
    // One unbroken stretch: every frame from the first after the removal to the last one fed.
    EXPECT_EQ(clip.frames.front().index, 140);
    for (size_t f = 1; f < clip.frames.size(); ++f)
        ASSERT_EQ(clip.frames[f].index, clip.frames[f - 1].index + 1) << "a jump at frame " << f;
    EXPECT_EQ(clip.frames.back().index, 189);
    // Once a segment is written in full again, the problem is over.
    feedSeconds(*recorder, 19, 7);
    EXPECT_TRUE(recorder->bufferProblem().isEmpty()) << recorder->bufferProblem().toStdString();
}
