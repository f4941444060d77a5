#include "app/session/BackendAreaGrabber.h"

#include "platform/CaptureBackend.h"

BackendAreaGrabber::BackendAreaGrabber(std::shared_ptr<CaptureBackend> screen)
    : screen(std::move(screen))
{
}

std::optional<QImage> BackendAreaGrabber::grabRect(const QRectF& globalRect)
{
    return screen ? screen->grabRect(globalRect) : std::nullopt;
}

std::optional<QImage> BackendAreaGrabber::grabWindowRect(uint32_t windowID, const QRectF& globalRect)
{
    return screen ? screen->grabWindowRect(windowID, globalRect) : std::nullopt;
}

std::optional<QRectF> BackendAreaGrabber::windowFrame(uint32_t windowID)
{
    return screen ? screen->windowFrame(windowID) : std::nullopt;
}

std::optional<QByteArray> BackendAreaGrabber::signatureOfRect(const QRectF& globalRect)
{
    const std::optional<QImage> pixels = screen ? screen->peekRect(globalRect) : std::nullopt;
    return pixels ? signatures.signatureOf(*pixels) : std::nullopt;
}

std::optional<QByteArray> BackendAreaGrabber::signatureOfWindowRect(uint32_t windowID, const QRectF& globalRect)
{
    const std::optional<QImage> pixels = screen ? screen->peekWindowRect(windowID, globalRect) : std::nullopt;
    return pixels ? signatures.signatureOf(*pixels) : std::nullopt;
}
