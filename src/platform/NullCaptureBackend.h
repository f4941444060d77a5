#pragma once

#include "platform/CaptureBackend.h"

// The backend of a session with no screen that this program can capture (no X display, or a
// Wayland session without a portal backend): every operation fails with one plain reason, so the
// program starts and says why nothing is captured instead of crashing.
class NullCaptureBackend : public CaptureBackend {
public:
    explicit NullCaptureBackend(QString reason = QStringLiteral("screen capture is not available in this session"));

    ContentResult shareableContent() override;
    WindowListFilter::SystemRules systemWindowRules() const override { return {}; }
    StreamStart startCapture(const ContentFilter& filter, const StreamConfiguration& configuration,
        std::shared_ptr<const StreamOutput> output) override;
    std::optional<QRectF> windowFrame(uint32_t) override { return std::nullopt; }
    std::optional<QImage> grabRect(const QRectF&) override { return std::nullopt; }
    std::optional<QImage> grabWindowRect(uint32_t, const std::optional<QRectF>&) override { return std::nullopt; }

private:
    QString reason;
};
