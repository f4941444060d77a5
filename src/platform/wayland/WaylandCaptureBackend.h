#pragma once

#include "platform/CaptureBackend.h"

#include <QDBusConnection>
#include <QImage>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class PipeWireCaptureStream;
class PortalScreenCast;

// The screen of a Wayland session, through the desktop portal's screen cast and PipeWire.
//
// What is captured is what the user chose in the desktop's own dialog, once: the restore token the
// portal gives is kept (`TokenStore`), and passed the next time, so the desktop does not ask
// again. The content is therefore one display, "what the desktop shares", at the stream's size;
// there is no list of windows (a window is chosen in the desktop's dialog), and no application
// can be left out of the picture.
//
// Single grabs (the area monitor, the picker's frozen picture) are read from the newest picture of
// the running stream, so the monitor needs no second session and no second consent.
//
// Thread-safe. shareableContent() blocks while the desktop asks the user.
class WaylandCaptureBackend : public CaptureBackend {
public:
    // What is kept between runs: the portal's token, and which source it restored the last time
    // (the stream's id, or its place and size), to tell the user when the desktop shares another.
    struct Kept {
        QString token;
        QString source;
    };
    struct TokenStore {
        std::function<Kept()> load;
        std::function<void(const Kept&)> save;
    };

    // `bus`: the session bus the desktop portal is on.
    explicit WaylandCaptureBackend(TokenStore tokens, QDBusConnection bus = QDBusConnection::sessionBus());
    ~WaylandCaptureBackend() override;

    // Empty when a desktop portal with a screen cast and PipeWire answer on this session; otherwise
    // why not, in words for the user.
    static QString probe();

    ContentResult shareableContent() override;
    WindowListFilter::SystemRules systemWindowRules() const override { return {}; }
    bool asksCapturePermission() const override { return true; }
    bool desktopChoosesSource() const override { return true; }
    // The kept token is passed no more until the user chose anew; closing the desktop's dialog
    // keeps what was shared.
    void chooseSourceAgain() override;
    StreamStart startCapture(const ContentFilter& filter, const StreamConfiguration& configuration,
        std::shared_ptr<const StreamOutput> output) override;
    std::optional<QRectF> windowFrame(uint32_t) override { return std::nullopt; }
    std::optional<QImage> grabRect(const QRectF& globalRect) override;
    std::optional<QImage> grabWindowRect(uint32_t, const std::optional<QRectF>&) override { return std::nullopt; }

    void setOnNotice(std::function<void(const QString&)> callback) override;
    // The newest picture of the running (or last) stream and where it lies in global space; none
    // before the first picture. Any thread; never starts a session nor waits for the desktop.
    struct Still {
        QPoint origin;
        QImage picture;
    };
    std::optional<Still> newestPicture() const;
    // Whether the desktop shares one window rather than a screen: its pictures then lie nowhere on
    // the screen in particular. Any thread; never waits for the desktop.
    bool sharesWindow() const;

    static const QString cancelledMessage;
    static const QString missingMessage;
    static const QString askedAgainNotice;
    static const QString refusedNotice;

private:
    struct Shared;
    CaptureDisplay displayLocked() const;

    std::shared_ptr<Shared> shared;
};
