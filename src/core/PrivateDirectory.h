#pragma once

#include <QString>

#include <cstdint>

// A directory that only its user can enter: the place for files that show the user's screen or
// speak for the running program. One made by someone else, or that others may read or enter, is
// refused rather than repaired: whoever made it may already hold files or links inside.
namespace PrivateDirectory {

// Why `dir` is not private to `uid` (absent, a link, no directory, another user's, mode other than
// 700), as a phrase for a log line or a message; empty when it is.
QString problem(const QString& dir, uint32_t uid);

// Makes `dir` with mode 700 if it does not exist (its parents as the user's umask has them), then
// checks it as problem() does. Empty when `dir` is ready for use.
QString make(const QString& dir, uint32_t uid);

} // namespace PrivateDirectory
