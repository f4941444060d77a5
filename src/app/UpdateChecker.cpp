#include "app/UpdateChecker.h"

#include "core/Log.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>
#include <QVersionNumber>
#include <QXmlStreamReader>

namespace {
constexpr auto firstCheckDelay = std::chrono::seconds(10);
constexpr auto checkInterval = std::chrono::hours(24);
} // namespace

UpdateChecker::UpdateChecker(QUrl feedUrl, QString version, QObject* parent)
    : QObject(parent)
    , feed(std::move(feedUrl))
    , currentVersion(std::move(version))
{
}

UpdateChecker::~UpdateChecker() = default;

QUrl UpdateChecker::configuredFeed()
{
#ifdef VELOTAPE_APPCAST_URL
    return QUrl(QStringLiteral(VELOTAPE_APPCAST_URL));
#else
    return {};
#endif
}

void UpdateChecker::start()
{
    if (feed.isEmpty()) return;
    network = new QNetworkAccessManager(this);
    QTimer::singleShot(firstCheckDelay, this, &UpdateChecker::check);
    auto* daily = new QTimer(this);
    connect(daily, &QTimer::timeout, this, &UpdateChecker::check);
    daily->start(checkInterval);
}

void UpdateChecker::check()
{
    QNetworkReply* reply = network->get(QNetworkRequest(feed));
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        if (reply->error() != QNetworkReply::NoError) {
            logLine(QStringLiteral("Update check failed: %1").arg(reply->errorString()));
            return;
        }
        const auto release = newerRelease(reply->readAll(), currentVersion);
        if (!release || release->version == lastReported) return;
        lastReported = release->version;
        if (onNewerRelease) onNewerRelease(*release);
    });
}

std::optional<UpdateChecker::Release> UpdateChecker::newerRelease(const QByteArray& appcast, const QString& current)
{
    std::optional<Release> newest;
    QVersionNumber newestNumber = QVersionNumber::fromString(current);
    QXmlStreamReader xml(appcast);
    QUrl itemLink;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement) continue;
        if (xml.name() == QLatin1String("item")) itemLink.clear();
        if (xml.name() == QLatin1String("link") && xml.namespaceUri().isEmpty())
            itemLink = QUrl(xml.readElementText().trimmed());
        if (xml.name() != QLatin1String("enclosure")) continue;
        const QXmlStreamAttributes attributes = xml.attributes();
        // The short version is what people read; the build number is the fall-back.
        QString version;
        for (const QXmlStreamAttribute& a : attributes)
            if (a.name() == QLatin1String("shortVersionString")) version = a.value().toString();
        if (version.isEmpty())
            for (const QXmlStreamAttribute& a : attributes)
                if (a.name() == QLatin1String("version")) version = a.value().toString();
        const QVersionNumber number = QVersionNumber::fromString(version);
        if (number.isNull() || QVersionNumber::compare(number, newestNumber) <= 0) continue;
        newestNumber = number;
        const QUrl url(attributes.value(QLatin1String("url")).toString());
        newest = Release { version, itemLink.isValid() && !itemLink.isEmpty() ? itemLink : url };
    }
    if (xml.hasError()) return std::nullopt;
    return newest;
}
