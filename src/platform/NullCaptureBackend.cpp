#include "platform/NullCaptureBackend.h"

NullCaptureBackend::NullCaptureBackend(QString reason)
    : reason(std::move(reason))
{
}

CaptureBackend::ContentResult NullCaptureBackend::shareableContent()
{
    return { std::nullopt, reason };
}

CaptureBackend::StreamStart NullCaptureBackend::startCapture(
    const ContentFilter&, const StreamConfiguration&, std::shared_ptr<const StreamOutput>)
{
    return { nullptr, reason };
}
