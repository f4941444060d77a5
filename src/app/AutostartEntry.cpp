#include "app/AutostartEntry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

AutostartEntry::AutostartEntry(QString id, QString programPath)
    : appId(std::move(id))
    , program(std::move(programPath))
{
}

QString AutostartEntry::path() const
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/autostart/")
        + appId + QStringLiteral(".desktop");
}

bool AutostartEntry::isEnabled() const
{
    if (!QFileInfo::exists(path())) return false;
    // A session's settings switch an entry off by marking it hidden rather than deleting it.
    QFile file(path());
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return false;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        if (line == "Hidden=true") return false;
    }
    return true;
}

std::optional<QString> AutostartEntry::setEnabled(bool enabled) const
{
    const QString file = path();
    if (!enabled) {
        if (!QFileInfo::exists(file) || QFile::remove(file)) return std::nullopt;
        return QStringLiteral("Could not remove %1.").arg(file);
    }
    const QString folder = QFileInfo(file).absolutePath();
    if (!QDir().mkpath(folder)) return QStringLiteral("Could not make the folder %1.").arg(folder);
    QSaveFile out(file);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Text))
        return QStringLiteral("Could not write %1: %2.").arg(file, out.errorString());
    out.write(contents().toUtf8());
    if (!out.commit()) return QStringLiteral("Could not write %1: %2.").arg(file, out.errorString());
    return std::nullopt;
}

QString AutostartEntry::contents() const
{
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=Velotape\n"
                          "Comment=Keeps the last seconds of the screen, from the start of the session\n"
                          "Exec=%1 --background\n"
                          "Icon=%2\n"
                          "Terminal=false\n"
                          // After the panel, so that the tray is there to be found.
                          "X-GNOME-Autostart-Phase=Applications\n")
        .arg(execArgument(program), appId);
}

QString AutostartEntry::execArgument(const QString& program)
{
    // A percent sign would start a field code. An argument with a space or a reserved character
    // goes in double quotes, in which ", `, $ and \ take a backslash; the desktop entry's string
    // rules then double every backslash again.
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    bool quote = false;
    for (const QChar c : program)
        quote = quote || reserved.contains(c);
    if (!quote) return QString(program).replace(u'%', QStringLiteral("%%"));
    QString quoted;
    for (const QChar c : program) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\') quoted += u'\\';
        quoted += c;
    }
    quoted.replace(QStringLiteral("\\"), QStringLiteral("\\\\"));
    quoted.replace(u'%', QStringLiteral("%%"));
    return u'"' + quoted + u'"';
}
