#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <optional>
#include <sys/mount.h>

// An environment variable set (or unset, with an empty value) for as long as the object lives.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const QString& value)
        : name(name)
    {
        if (qEnvironmentVariableIsSet(name)) saved = qgetenv(name);
        value.isEmpty() ? qunsetenv(name) : qputenv(name, QFile::encodeName(value));
    }
    ~ScopedEnv() { saved ? qputenv(name, *saved) : qunsetenv(name); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name;
    std::optional<QByteArray> saved;
};

// A tmpfs of a few megabytes mounted on a fresh folder while the object lives: a disk that really
// fills up. Mounting needs root, which the test machines have; elsewhere mounted() is false.
class SmallDisk {
public:
    explicit SmallDisk(int64_t bytes)
    {
        const QByteArray options = "size=" + QByteArray::number(qint64(bytes)) + ",mode=0700";
        ok = dir.isValid()
            && ::mount("tmpfs", QFile::encodeName(dir.path()).constData(), "tmpfs", 0, options.constData()) == 0;
    }
    ~SmallDisk()
    {
        if (ok) ::umount2(QFile::encodeName(dir.path()).constData(), MNT_DETACH);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool mounted() const { return ok; }
    QString path() const { return dir.path(); }

private:
    QTemporaryDir dir;
    bool ok = false;
};
