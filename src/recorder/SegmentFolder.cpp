#include "recorder/SegmentFolder.h"

#include "core/Log.h"
#include "core/PrivateDirectory.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
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

QStringList SegmentFolder::candidateParents()
{
    const QString uid = QString::number(::geteuid());
    QStringList parents;
    // Relative values are ignored, as the freedesktop base directory rules ask.
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QDir::isAbsolutePath(runtime)) parents << runtime + QStringLiteral("/velotape");
    QString cache = qEnvironmentVariable("XDG_CACHE_HOME");
    if (cache.isEmpty() || !QDir::isAbsolutePath(cache)) cache = QDir::homePath() + QStringLiteral("/.cache");
    parents << cache + QStringLiteral("/velotape");
    // Shared by every user: the name is this user's, and a folder of that name made by anyone
    // else is refused.
    parents << QDir::tempPath() + QStringLiteral("/velotape-") + uid;
    return parents;
}

std::optional<QString> SegmentFolder::chooseParent(int64_t bytesNeeded, const QStringList& candidates)
{
    std::optional<QString> roomiest;
    int64_t mostRoom = -2;
    for (const QString& parent : candidates) {
        const QString problem = PrivateDirectory::make(parent, ::geteuid());
        if (!problem.isEmpty()) {
            logLine(QStringLiteral("Segment folder: passed over %1: %2").arg(parent, problem));
            continue;
        }
        const int64_t room = freeBytesAt(parent);
        if (room < 0 || room >= bytesNeeded) return parent;
        logLine(QStringLiteral("Segment folder: passed over %1: %2 MB free, the buffer needs %3 MB")
                    .arg(parent)
                    .arg(double(room) / 1e6, 0, 'f', 0)
                    .arg(double(bytesNeeded) / 1e6, 0, 'f', 0));
        if (room > mostRoom) {
            mostRoom = room;
            roomiest = parent;
        }
    }
    return roomiest;
}

int64_t SegmentFolder::freeBytesAt(const QString& path)
{
    struct statvfs info { };
    if (::statvfs(QFile::encodeName(path).constData(), &info) != 0) return -1;
    return int64_t(info.f_bavail) * int64_t(info.f_frsize);
}

SegmentFolder::SegmentFolder(int64_t bytesNeeded)
{
    QString failure;
    if (const std::optional<QString> parent = chooseParent(bytesNeeded)) {
        if (makeUnder(*parent, &failure)) return;
    } else {
        failure = QStringLiteral("no private folder for it");
    }
    // Nothing better: a fresh folder of a name nobody can have taken, made private by mkdtemp.
    QByteArray pattern = QFile::encodeName(QDir::tempPath() + QStringLiteral("/velotape-XXXXXX"));
    if (::mkdtemp(pattern.data())) {
        QString again;
        logLine(QStringLiteral("Segment folder: %1; using %2").arg(failure, QFile::decodeName(pattern)));
        if (makeUnder(QFile::decodeName(pattern), &again)) return;
        failure = again;
    }
    logLine(QStringLiteral("Segment folder not made: ") + failure);
}

SegmentFolder::SegmentFolder(const QString& parent)
{
    QString failure;
    if (!makeUnder(parent, &failure)) logLine(QStringLiteral("Segment folder not made: ") + failure);
}

bool SegmentFolder::makeUnder(const QString& parent, QString* failure)
{
    // A sweep of another start can take a folder for a dead one in the moment between its making
    // and its locking, and remove it. The lock therefore only counts if the file it is on is still
    // the one at the path; otherwise a fresh name is tried.
    for (int attempt = 0; attempt < 3; ++attempt) {
        folder = parent + QStringLiteral("/segments-") + QUuid::createUuid().toString(QUuid::WithoutBraces).left(8);
        if (makeAndLock(failure)) return true;
    }
    logLine(QStringLiteral("Segment folder not locked (") + *failure
        + QStringLiteral("); a later start may take it for a crashed run's: ") + folder);
    return false;
}

bool SegmentFolder::makeAndLock(QString* failure)
{
    if (::mkdir(QFile::encodeName(folder).constData(), 0700) != 0) {
        *failure = QStringLiteral("cannot create %1: %2").arg(folder, errnoText());
        return false;
    }
    const QByteArray lockPath = QFile::encodeName(lockPathOf(folder));
    // Close-on-exec: a program started from here must not keep the folder alive after a crash.
    const int fd = ::open(lockPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        *failure = QStringLiteral("cannot create its lock: ") + errnoText();
        return false;
    }
    struct stat held {
    }, named {};
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0 || ::fstat(fd, &held) != 0 || ::stat(lockPath.constData(), &named) != 0
        || held.st_ino != named.st_ino || held.st_dev != named.st_dev) {
        *failure = QStringLiteral("its lock was taken away");
        ::close(fd);
        return false;
    }
    if (lockFd >= 0) ::close(lockFd);
    lockFd = fd;
    return true;
}

bool SegmentFolder::exists() const
{
    struct stat info { };
    return !folder.isEmpty() && ::lstat(QFile::encodeName(folder).constData(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool SegmentFolder::recreate()
{
    if (folder.isEmpty()) return false;
    // The parent may have gone with it; it is made private again, or the folder is not made.
    const QString parent = QFileInfo(folder).absolutePath();
    if (const QString problem = PrivateDirectory::make(parent, ::geteuid()); !problem.isEmpty()) {
        logLine(QStringLiteral("Segment folder not made again: ") + problem);
        return false;
    }
    QString failure;
    if (makeAndLock(&failure)) return true;
    logLine(QStringLiteral("Segment folder not made again: ") + failure);
    return false;
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

SegmentFolder::SweepResult SegmentFolder::sweepStaleEverywhere(const QString& own)
{
    SweepResult total;
    for (const QString& parent : candidateParents()) {
        if (!PrivateDirectory::problem(parent, ::geteuid()).isEmpty()) continue;
        const SweepResult here = sweepStale(parent, own);
        total.removed += here.removed;
        total.bytes += here.bytes;
        total.alive += here.alive;
    }
    return total;
}
