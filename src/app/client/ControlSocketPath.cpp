#include "app/client/ControlSocketPath.h"

#include "core/PrivateDirectory.h"

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

Location resolve(const QString& runtimeDir, const QString& tempDir, uint32_t uid, bool create)
{
    QString note;
    if (!runtimeDir.isEmpty()) {
        const QString problem = PrivateDirectory::problem(runtimeDir, uid);
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
    if (const QString problem = PrivateDirectory::problem(dir, uid); !problem.isEmpty())
        return { {}, problem + QStringLiteral("; set XDG_RUNTIME_DIR to a private directory of yours"), note };
    return { dir + u'/' + socketName, {}, note };
}

Location forThisUser(bool create)
{
    return resolve(qEnvironmentVariable("XDG_RUNTIME_DIR"), QDir::tempPath(), ::getuid(), create);
}

} // namespace ControlSocketPath
