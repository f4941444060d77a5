#include "monitor/AreaGrabber.h"

#include "monitor/AreaSignature.h"

std::optional<QByteArray> AreaGrabber::signatureOfRect(const QRectF& globalRect)
{
    const std::optional<QImage> image = grabRect(globalRect);
    return image ? AreaSignature::downsampleToSignature(*image) : std::nullopt;
}

std::optional<QByteArray> AreaGrabber::signatureOfWindowRect(uint32_t windowID, const QRectF& globalRect)
{
    const std::optional<QImage> image = grabWindowRect(windowID, globalRect);
    return image ? AreaSignature::downsampleToSignature(*image) : std::nullopt;
}
