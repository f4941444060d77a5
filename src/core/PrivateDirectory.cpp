#include "core/PrivateDirectory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace PrivateDirectory {

QString problem(const QString& dir, uint32_t uid)
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

QString make(const QString& dir, uint32_t uid)
{
    const QString parent = QFileInfo(dir).absolutePath();
    if (!QFileInfo(parent).isDir() && !QDir().mkpath(parent)) return QStringLiteral("%1 cannot be made").arg(parent);
    // Mode 700 from the first moment: a directory made open and closed afterwards could be
    // entered in between.
    if (::mkdir(QFile::encodeName(dir).constData(), 0700) != 0 && errno != EEXIST)
        return QStringLiteral("%1 cannot be made (%2)").arg(dir, QString::fromLocal8Bit(std::strerror(errno)));
    return problem(dir, uid);
}

} // namespace PrivateDirectory
