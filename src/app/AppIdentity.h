#pragma once

#include <QString>

namespace AppIdentity {

// The application's reverse-DNS id: its desktop entry is "<id>.desktop", its icon "<id>", and the
// desktop knows its windows, notifications and autostart entry by it.
QString appId();

} // namespace AppIdentity
