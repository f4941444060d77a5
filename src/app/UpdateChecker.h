#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

class QNetworkAccessManager;

// The update checker: reads an appcast feed (RSS items whose enclosure carries sparkle:version and
// sparkle:shortVersionString) once at start and then once a day, and reports a newer version than
// ours. With no feed configured at build time (VELOTAPE_APPCAST_URL) it does nothing at all: no
// timer, no network.
//
// Main thread.
class UpdateChecker : public QObject {
    Q_OBJECT
public:
    struct Release {
        QString version;
        QUrl link;
    };

    // `feed` empty: the checker stays idle.
    UpdateChecker(QUrl feed, QString currentVersion, QObject* parent = nullptr);
    ~UpdateChecker() override;

    // The feed this build was configured with, if any.
    static QUrl configuredFeed();

    // Starts checking (the first check a little after start-up, so it never competes with it).
    void start();
    bool isActive() const { return !feed.isEmpty(); }

    // The newest release the feed lists, if it is newer than `currentVersion`.
    static std::optional<Release> newerRelease(const QByteArray& appcast, const QString& currentVersion);

    std::function<void(const Release&)> onNewerRelease;

private:
    void check();

    QUrl feed;
    QString currentVersion;
    QNetworkAccessManager* network = nullptr;
    QString lastReported;
};
