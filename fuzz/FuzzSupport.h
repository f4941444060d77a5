#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

// What every fuzz target shares: a private folder that lives as long as the process, and a check
// that stops the run (so that libFuzzer keeps the input) when a property does not hold.
namespace FuzzSupport {

// In memory where there is a tmpfs: settings and sidecars are written with fsync, which on a disk
// would make each input cost tens of milliseconds.
inline const QTemporaryDir& scratch()
{
    static const QTemporaryDir dir(QFileInfo(QStringLiteral("/dev/shm")).isWritable()
            ? QStringLiteral("/dev/shm/velotape-fuzz-XXXXXX")
            : QDir::tempPath() + QStringLiteral("/velotape-fuzz-XXXXXX"));
    return dir;
}

inline bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

[[noreturn]] inline void fail(const char* what, const QByteArray& detail = {})
{
    std::fprintf(stderr, "fuzz check failed: %s\n%s\n", what, detail.constData());
    std::abort();
}

} // namespace FuzzSupport

#define FUZZ_CHECK(condition, detail)                                                                                  \
    do {                                                                                                               \
        if (!(condition)) FuzzSupport::fail(#condition, (detail));                                                     \
    } while (false)
