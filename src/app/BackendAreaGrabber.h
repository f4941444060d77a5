#pragma once

#include "monitor/AreaGrabber.h"

#include <memory>

class CaptureBackend;

// The area monitor's view of the screen: single grabs through the capture backend.
class BackendAreaGrabber final : public AreaGrabber {
public:
    explicit BackendAreaGrabber(std::shared_ptr<CaptureBackend> screen);

    std::optional<QImage> grabRect(const QRectF& globalRect) override;
    std::optional<QImage> grabWindowRect(uint32_t windowID, const QRectF& globalRect) override;
    std::optional<QRectF> windowFrame(uint32_t windowID) override;

private:
    std::shared_ptr<CaptureBackend> screen;
};
