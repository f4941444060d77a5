#pragma once

#include <QHash>
#include <QString>

// The name a person knows an application by, found from its WM_CLASS: the Name of its desktop
// entry (matched by StartupWMClass or by the entry's file name), or else the class made
// presentable ("org.gnome.Nautilus" gives "Nautilus", "xterm" gives "Xterm").
//
// Not thread-safe: its owner serialises calls. The desktop entries are read once, at the first call.
class ApplicationNames {
public:
    QString nameFor(const QString& instance, const QString& wmClass);

    // Pure: the class made presentable.
    static QString prettified(const QString& wmClass);

private:
    void load();

    bool loaded = false;
    QHash<QString, QString> byWmClass; // lowercased StartupWMClass -> Name
    QHash<QString, QString> byFileName; // lowercased file name without ".desktop" -> Name
};
