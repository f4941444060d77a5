#include "journal/JournalTradesFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace JournalTradesFile {

QString path(const QString& folder)
{
    return QDir(folder).filePath(QLatin1StringView(fileName));
}

Loaded load(const QString& folder)
{
    Loaded loaded;
    const QFileInfo info(path(folder));
    if (!info.exists() && !info.isSymLink()) return loaded;
    QFile file(info.filePath());
    if (!info.isFile() || info.size() > maxBytes || !file.open(QIODevice::ReadOnly)) {
        loaded.unreadable = true;
        return loaded;
    }
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    const QJsonValue trades = document.object().value(QLatin1StringView("trades"));
    if (error.error != QJsonParseError::NoError || !trades.isArray()) {
        loaded.unreadable = true;
        return loaded;
    }
    for (const QJsonValue& value : trades.toArray()) {
        const auto trade = ClipTrade::fromJson(value);
        if (!trade) {
            loaded.unreadable = true;
            loaded.trades.clear();
            return loaded;
        }
        loaded.trades.push_back(*trade);
    }
    return loaded;
}

bool save(const QString& folder, const QList<ClipTrade>& trades, QString* error)
{
    const QString target = path(folder);
    if (trades.isEmpty()) {
        if (!QFile::exists(target) || QFile::remove(target)) return true;
        if (error) *error = QStringLiteral("could not remove it");
        return false;
    }
    QJsonArray array;
    for (const ClipTrade& t : trades)
        array.append(t.toJson());
    const QByteArray bytes
        = QJsonDocument(QJsonObject { { QStringLiteral("trades"), array } }).toJson(QJsonDocument::Indented);
    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        if (error) *error = file.errorString();
        file.cancelWriting();
        return false;
    }
    return true;
}

} // namespace JournalTradesFile
