#include "app/control/ControlSocketPath.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace ControlSocketPath {

namespace {

const QString socketName = QStringLiteral("velotape.sock");

} // namespace

QString privateDirectoryProblem(const QString& dir, uint32_t uid)
{
    struct stat info { };
    // lstat: a link named like our directory is somebody's trap, whatever it points to.
    if (::lstat(QFile::encodeName(dir).constData(), &info) != 0)
        return QStringLiteral("%1 cannot be examined (%2)").arg(dir, QString::fromLocal8Bit(std::strerror(errno)));
    if (S_ISLNK(info.st_mode)) return QStringLiteral("%1 is a symbolic link, not a directory").arg(dir);
    if (!S_ISDIR(info.st_mode)) return QStringLiteral("%1 is not a directory").arg(dir);
    if (info.st_uid != uid) return QStringLiteral("%1 belongs to another user (uid %2)").arg(dir).arg(info.st_uid);
    if ((info.st_mode & 077) != 0)
        return QStringLiteral("%1 is open to other users (mode %2; it must be 700)")
            .arg(dir)
            .arg(info.st_mode & 07777, 4, 8, QLatin1Char('0'));
    return {};
}

Location resolve(const QString& runtimeDir, const QString& tempDir, uint32_t uid, bool create)
{
    QString note;
    if (!runtimeDir.isEmpty()) {
        const QString problem = privateDirectoryProblem(runtimeDir, uid);
        if (problem.isEmpty()) return { runtimeDir + u'/' + socketName, {}, {} };
        note = QStringLiteral("XDG_RUNTIME_DIR is not used: ") + problem;
    }

    const QString dir = tempDir + QStringLiteral("/velotape-%1").arg(uid);
    const QByteArray native = QFile::encodeName(dir);
    if (create) {
        if (::mkdir(native.constData(), 0700) == 0)
            ::chmod(native.constData(), 0700); // the umask may have taken some of the owner's bits too
        else if (errno != EEXIST)
            return { {}, QStringLiteral("cannot make %1 (%2)").arg(dir, QString::fromLocal8Bit(std::strerror(errno))),
                note };
    } else {
        struct stat info { };
        if (::lstat(native.constData(), &info) != 0 && errno == ENOENT)
            return { dir + u'/' + socketName, {}, note }; // nobody made it, so nobody listens there
    }
    if (const QString problem = privateDirectoryProblem(dir, uid); !problem.isEmpty())
        return { {}, problem + QStringLiteral("; set XDG_RUNTIME_DIR to a private directory of yours"), note };
    return { dir + u'/' + socketName, {}, note };
}

Location forThisUser(bool create)
{
    return resolve(qEnvironmentVariable("XDG_RUNTIME_DIR"), QDir::tempPath(), ::getuid(), create);
}

} // namespace ControlSocketPath
