#include "platform/x11/ApplicationNames.h"

#include <QDirIterator>
#include <QFile>
#include <QStandardPaths>

QString ApplicationNames::nameFor(const QString& instance, const QString& wmClass)
{
    if (!loaded) load();
    const QString key = wmClass.toLower();
    if (auto it = byWmClass.constFind(key); it != byWmClass.constEnd()) return *it;
    if (auto it = byFileName.constFind(key); it != byFileName.constEnd()) return *it;
    if (auto it = byFileName.constFind(instance.toLower()); it != byFileName.constEnd()) return *it;
    return prettified(wmClass);
}

QString ApplicationNames::prettified(const QString& wmClass)
{
    QString name = wmClass.trimmed();
    // Reverse-domain classes end in the application's own name.
    if (name.count(QLatin1Char('.')) >= 2) name = name.section(QLatin1Char('.'), -1);
    if (!name.isEmpty()) name[0] = name[0].toUpper();
    return name;
}

void ApplicationNames::load()
{
    loaded = true;
    // Earlier directories win: the user's own entries shadow the system's.
    const QStringList dirs = QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation);
    for (const QString& dir : dirs) {
        QDirIterator it(dir, { QStringLiteral("*.desktop") }, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) continue;
            QString name, wmClass;
            bool inEntry = false;
            while (!file.atEnd()) {
                const QString line = QString::fromUtf8(file.readLine()).trimmed();
                if (line.startsWith(QLatin1Char('['))) {
                    if (inEntry) break;
                    inEntry = line == QLatin1String("[Desktop Entry]");
                } else if (inEntry && line.startsWith(QLatin1String("Name="))) {
                    name = line.mid(5).trimmed();
                } else if (inEntry && line.startsWith(QLatin1String("StartupWMClass="))) {
                    wmClass = line.mid(15).trimmed();
                }
            }
            if (name.isEmpty()) continue;
            const QString fileName = it.fileInfo().completeBaseName().toLower();
            if (!byFileName.contains(fileName)) byFileName.insert(fileName, name);
            if (!wmClass.isEmpty() && !byWmClass.contains(wmClass.toLower())) byWmClass.insert(wmClass.toLower(), name);
        }
    }
}
