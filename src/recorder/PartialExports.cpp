#include "recorder/PartialExports.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

bool PartialExports::isTemporaryName(const QString& fileName)
{
    static const QRegularExpression pattern(QStringLiteral("^\\..+\\.mp4\\.[0-9a-f]{8}\\.part$"));
    return pattern.match(fileName).hasMatch();
}

int PartialExports::sweep(const QString& folder, bool otherInstancesRunning)
{
    if (folder.isEmpty()) return 0;
    const QDateTime quietSince = QDateTime::currentDateTimeUtc().addSecs(-quietTime.count());
    int removed = 0;
    const QFileInfoList files = QDir(folder).entryInfoList(
        { QStringLiteral(".*.part") }, QDir::Files | QDir::Hidden | QDir::NoSymLinks | QDir::NoDotAndDotDot);
    for (const QFileInfo& file : files) {
        if (!isTemporaryName(file.fileName())) continue;
        if (otherInstancesRunning && file.lastModified().toUTC() > quietSince) continue;
        if (QFile::remove(file.absoluteFilePath())) ++removed;
    }
    return removed;
}
