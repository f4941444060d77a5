#include "recorder/SegmentFolder.h"

#include "core/Log.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString lockPathOf(const QString& folder)
{
    return folder + QLatin1Char('/') + QLatin1String(SegmentFolder::lockFileName);
}

QString errnoText()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

int64_t bytesIn(const QString& folder)
{
    int64_t total = 0;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::NoSymLinks, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        total += it.fileInfo().size();
    }
    return total;
}

} // namespace

QString SegmentFolder::defaultParent()
{
    return QDir::tempPath() + QStringLiteral("/Velotape2");
}

SegmentFolder::SegmentFolder(const QString& parent)
{
    // A sweep of another start can take a folder for a dead one in the moment between its making
    // and its locking, and remove it. The lock therefore only counts if the file it is on is still
    // the one at the path; otherwise a fresh name is tried.
    QString failure;
    for (int attempt = 0; attempt < 3; ++attempt) {
        folder = parent + QStringLiteral("/segments-") + QUuid::createUuid().toString(QUuid::WithoutBraces).left(8);
        if (!QDir().mkpath(folder)) {
            failure = QStringLiteral("cannot create ") + folder;
            continue;
        }
        const QByteArray lockPath = QFile::encodeName(lockPathOf(folder));
        // Close-on-exec: a program started from here must not keep the folder alive after a crash.
        const int fd = ::open(lockPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd < 0) {
            failure = QStringLiteral("cannot create its lock: ") + errnoText();
            continue;
        }
        struct stat held {
        }, named {};
        if (::flock(fd, LOCK_EX | LOCK_NB) != 0 || ::fstat(fd, &held) != 0 || ::stat(lockPath.constData(), &named) != 0
            || held.st_ino != named.st_ino || held.st_dev != named.st_dev) {
            failure = QStringLiteral("its lock was taken away");
            ::close(fd);
            continue;
        }
        lockFd = fd;
        return;
    }
    logLine(QStringLiteral("Segment folder not locked (") + failure
        + QStringLiteral("); a later start may take it for a crashed run's: ") + folder);
}

SegmentFolder::~SegmentFolder()
{
    remove();
}

void SegmentFolder::remove()
{
    if (folder.isEmpty()) return;
    // Removed while still locked, so that no sweep ever sees it half gone and unowned.
    QDir(folder).removeRecursively();
    if (lockFd >= 0) ::close(lockFd);
    lockFd = -1;
    folder.clear();
}

SegmentFolder::SweepResult SegmentFolder::sweepStale(const QString& parent, const QString& own)
{
    SweepResult result;
    const QString ownPath = own.isEmpty() ? QString() : QFileInfo(own).absoluteFilePath();
    const QFileInfoList folders = QDir(parent).entryInfoList(
        { QStringLiteral("segments-*") }, QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks);
    for (const QFileInfo& info : folders) {
        if (info.absoluteFilePath() == ownPath) continue;
        const QByteArray lockPath = QFile::encodeName(lockPathOf(info.absoluteFilePath()));
        const int fd = ::open(lockPath.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        // A lock file that can't be opened for another reason than its absence belongs to someone
        // this process may not judge (another user's folder, say): it stays.
        const bool noLockFile = fd < 0 && errno == ENOENT;
        if (fd < 0 && !noLockFile) {
            ++result.alive;
            continue;
        }
        if (fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) != 0) {
            ++result.alive;
            ::close(fd);
            continue;
        }
        // Held by this sweep until the folder is gone: an owner that was just making it finds its
        // lock file gone and makes another.
        result.bytes += bytesIn(info.absoluteFilePath());
        if (QDir(info.absoluteFilePath()).removeRecursively()) ++result.removed;
        if (fd >= 0) ::close(fd);
    }
    return result;
}
