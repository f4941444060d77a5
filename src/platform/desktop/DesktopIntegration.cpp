#include "platform/DesktopIntegration.h"

#include "core/Log.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QUrl>

#include <canberra.h>

namespace {

class FreedesktopIntegration : public DesktopIntegration {
public:
    FreedesktopIntegration()
    {
        ca_context* ctx = nullptr;
        if (ca_context_create(&ctx) == CA_SUCCESS) context.reset(ctx);
    }

    void playCompleteSound() override
    {
        if (!context) return;
        // Asynchronous: canberra plays it on its own thread and we never wait for it.
        ca_context_play(
            context.get(), 0, CA_PROP_EVENT_ID, "complete", CA_PROP_EVENT_DESCRIPTION, "Clip saved", nullptr);
    }

    void revealInFileManager(const QString& path) override
    {
        QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.FileManager1"),
            QStringLiteral("/org/freedesktop/FileManager1"), QStringLiteral("org.freedesktop.FileManager1"),
            QStringLiteral("ShowItems"));
        call << QStringList { QUrl::fromLocalFile(path).toString() } << QString();
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (bus.isConnected()) {
            const QDBusMessage reply = bus.call(call, QDBus::Block, 2000);
            if (reply.type() == QDBusMessage::ReplyMessage) return;
        }
        if (!QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(path).absolutePath())))
            logLine(QStringLiteral("Could not show %1 in a file manager").arg(path));
    }

    bool open(const QString& path) override { return QDesktopServices::openUrl(QUrl::fromLocalFile(path)); }

    std::optional<QString> moveToTrash(const QString& path) override
    {
        // The home trash lives in the user's data folder, which a fresh account may not have yet; Qt
        // will not make it, and the freedesktop trash rules ask the program to.
        QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
        QFile file(path);
        if (file.moveToTrash()) return std::nullopt;
        return file.errorString();
    }

private:
    struct ContextDeleter {
        void operator()(ca_context* c) const { ca_context_destroy(c); }
    };
    std::unique_ptr<ca_context, ContextDeleter> context;
};

} // namespace

std::unique_ptr<DesktopIntegration> DesktopIntegration::create()
{
    return std::make_unique<FreedesktopIntegration>();
}
