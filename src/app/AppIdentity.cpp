#include "app/AppIdentity.h"

namespace AppIdentity {

QString appId()
{
    // Set once, by the build, for everything that is installed under the id.
    return QStringLiteral(VELOTAPE_APP_ID);
}

} // namespace AppIdentity
