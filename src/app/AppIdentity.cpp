#include "app/AppIdentity.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace AppIdentity {

QString appId()
{
    // Set once, by the build, for everything that is installed under the id.
    return QStringLiteral(VELOTAPE_APP_ID);
}

QString launcherPath()
{
    const QString launcher = qEnvironmentVariable("VELOTAPE_LAUNCHER");
    if (!launcher.isEmpty() && QFileInfo(launcher).isExecutable()) return launcher;
    return QCoreApplication::applicationFilePath();
}

} // namespace AppIdentity
