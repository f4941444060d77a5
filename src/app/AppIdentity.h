#pragma once

#include <QString>

namespace AppIdentity {

// The application's reverse-DNS id: its desktop entry is "<id>.desktop", its icon "<id>", and the
// desktop knows its windows, notifications and autostart entry by it.
QString appId();

// The command that starts Velotape, for the autostart entry: the `velotape` launcher that handed
// over to this program, or this program itself when it was started directly.
QString launcherPath();

} // namespace AppIdentity
