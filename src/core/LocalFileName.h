#pragma once

#include <QByteArray>
#include <QString>

// File names as the kernel has them (bytes) and as the program handles them (QString), without
// losing a byte either way. A name is UTF-8 almost always, and then this is plain UTF-8; but a
// name may hold any bytes, and QFile::decodeName turns those into U+FFFD, after which the file can
// no longer be opened. Here each byte that is not part of valid UTF-8 becomes the lone surrogate
// U+DC00 + byte (as Python's "surrogateescape" does), which valid UTF-8 never gives, and
// encode() turns it back into that byte. QUrl::fromLocalFile and toLocalFile keep such a name
// intact, so it can travel in a clip's URL.
//
// Stateless; any thread.
namespace LocalFileName {

QString decode(const QByteArray& native);
QByteArray encode(const QString& name);

// The name for a person to read on one line: control characters and backslashes written as
// escapes (\n, \t, \\, \x1b) and each byte that is not UTF-8 as \xHH, so that a name holding a
// newline cannot pass for two lines of output.
QString printable(const QString& name);

} // namespace LocalFileName
