#pragma once

#include <QString>

#include <optional>

// Whether finished clips can land in a folder the user has chosen.
namespace SaveFolder {

// None when `folder` is a folder that a file can be written into; otherwise the message for the
// user, which names the folder and the reason ("Can't save clips in /srv/share: Permission denied").
// Tries it for real with a file that is removed at once: permission bits alone don't tell (a
// read-only mount, a folder that root can't write either).
std::optional<QString> problem(const QString& folder);

} // namespace SaveFolder
