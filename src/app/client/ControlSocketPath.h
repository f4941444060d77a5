#pragma once

#include <QString>

#include <cstdint>

// Where the control socket lives: only inside a directory that belongs to this user and that no one
// else may enter, so that no other local user can take the name first or answer in our place.
namespace ControlSocketPath {

struct Location {
    QString path; // the socket, when there is a place for it
    QString error; // otherwise why not, in one line
    // Set when $XDG_RUNTIME_DIR was given but passed over, and why.
    QString note;
};

// `runtimeDir`/velotape.sock when that directory is a private one of `uid`; otherwise
// `tempDir`/velotape-UID/velotape.sock. That directory is made (mode 0700) when `create` is set and
// it is missing, and refused when it exists but is not a private directory of `uid`.
Location resolve(const QString& runtimeDir, const QString& tempDir, uint32_t uid, bool create);

// The same for this process: $XDG_RUNTIME_DIR, the temporary directory and the real user id.
Location forThisUser(bool create);

} // namespace ControlSocketPath
