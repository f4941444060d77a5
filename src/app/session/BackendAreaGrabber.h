#pragma once

#include "monitor/AreaGrabber.h"
#include "monitor/IncrementalSignature.h"

#include <memory>

class CaptureBackend;

// The area monitor's view of the screen: single grabs through the capture backend. A tick's
// signature is read straight off the backend's own copy of the pixels, and only the rows that
// changed since the last tick are reduced again.
class BackendAreaGrabber final : public AreaGrabber {
public:
    explicit BackendAreaGrabber(std::shared_ptr<CaptureBackend> screen);

    std::optional<QImage> grabRect(const QRectF& globalRect) override;
    std::optional<QImage> grabWindowRect(uint32_t windowID, const QRectF& globalRect) override;
    std::optional<QRectF> windowFrame(uint32_t windowID) override;
    std::optional<QByteArray> signatureOfRect(const QRectF& globalRect) override;
    std::optional<QByteArray> signatureOfWindowRect(uint32_t windowID, const QRectF& globalRect) override;

private:
    std::shared_ptr<CaptureBackend> screen;
    IncrementalSignature signatures;
};
