#pragma once

#include "platform/CaptureBackend.h"

#include <QImage>

// The screen seam: two displays and a few windows, and a count of the streams asked for. Frames
// never come, which is all the controller's own logic and its source memory need.
class ScriptedScreen : public CaptureBackend {
public:
    struct NoStream : CaptureStream {
        void stop() override { }
    };

    ShareableContent content;
    int streamsStarted = 0;
    StreamConfiguration lastConfiguration;

    ScriptedScreen()
    {
        content.displays = { { 1, 1920, 1080, QRect(0, 0, 1920, 1080), QStringLiteral("DP-1") },
            { 2, 1280, 1024, QRect(1920, 0, 1280, 1024), QStringLiteral("HDMI-1") } };
        content.windows = { window(11, "org.kde.konsole", "Konsole", "Chart: BTC@@USD", QRectF(100, 100, 800, 600)),
            window(12, "firefox", "Firefox", "Orders", QRectF(2000, 50, 1000, 700)) };
    }
    static CaptureWindow window(uint32_t id, const char* bundle, const char* name, const char* title, QRectF frame)
    {
        CaptureWindow w;
        w.windowID = id;
        w.isOnScreen = true;
        w.frame = frame;
        w.title = QString::fromUtf8(title);
        w.owningApplication = CaptureApplication { QString::fromUtf8(bundle), QString::fromUtf8(name), 0 };
        return w;
    }

    ContentResult shareableContent() override { return { content, {} }; }
    WindowListFilter::SystemRules systemWindowRules() const override { return {}; }
    StreamStart startCapture(
        const ContentFilter&, const StreamConfiguration& configuration, std::shared_ptr<const StreamOutput>) override
    {
        ++streamsStarted;
        lastConfiguration = configuration;
        return { std::make_unique<NoStream>(), {} };
    }
    std::optional<QRectF> windowFrame(uint32_t) override { return std::nullopt; }
    // What a grab of any rectangle shows; none makes grabs fail.
    std::optional<QImage> screenPicture;
    std::optional<QImage> grabRect(const QRectF& r) override
    {
        if (!screenPicture) return std::nullopt;
        return screenPicture->scaled(r.size().toSize());
    }
    std::optional<QImage> grabWindowRect(uint32_t, const std::optional<QRectF>&) override { return std::nullopt; }
};
