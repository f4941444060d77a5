#include "app/session/SaveFolder.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryFile>

namespace SaveFolder {

std::optional<QString> problem(const QString& folder)
{
    const QString shown = QDir::toNativeSeparators(folder);
    if (!QFileInfo(folder).isDir()) return QStringLiteral("Can't save clips in %1: it is not a folder").arg(shown);
    QTemporaryFile probe(QDir(folder).filePath(QStringLiteral(".velotape-write-test-XXXXXX")));
    if (!probe.open()) return QStringLiteral("Can't save clips in %1: %2").arg(shown, probe.errorString());
    return std::nullopt;
}

} // namespace SaveFolder
