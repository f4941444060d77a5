#pragma once

#include <QString>

#include <optional>

// "Start at login": an XDG autostart entry in the user's config folder
// ($XDG_CONFIG_HOME/autostart/<id>.desktop) that starts the program in the background, hidden in
// the tray, or headless where the desktop has no tray.
//
// The file is the setting: a desktop's own list of start-up programs edits the same file, so it is
// read each time rather than remembered.
class AutostartEntry {
public:
    // `appId`: the entry's name without ".desktop"; `program`: the binary to start, an absolute path.
    AutostartEntry(QString appId, QString program);

    QString path() const;
    // Present, and not switched off by the desktop (Hidden=true).
    bool isEnabled() const;
    // Writes or removes the entry. The reason, in a sentence, when the file could not be written
    // or removed; then nothing changed.
    std::optional<QString> setEnabled(bool enabled) const;

    // The entry's text.
    QString contents() const;
    // `program` as one argument of an Exec line, quoted where the desktop entry rules require it.
    static QString execArgument(const QString& program);

private:
    QString appId;
    QString program;
};
