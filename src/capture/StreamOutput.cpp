#include "capture/StreamOutput.h"

#include "core/Log.h"

void StreamOutput::didOutputFrame(const VideoFrame& frame) const
{
    if (frame.image.isNull() || !frame.pts.isNumeric()) return;
    if (onFrame) onFrame(frame);
}

void StreamOutput::didOutputAudio(const AudioBuffer& buffer) const
{
    if (buffer.frameCount() <= 0 || !buffer.pts.isNumeric()) return;
    if (onAudio) onAudio(buffer);
}

void StreamOutput::didSkipFrame() const
{
    if (onSkipped) onSkipped();
}

void StreamOutput::didStopWithError(const QString& error) const
{
    logLine(QStringLiteral("Capture stream stopped: ") + error);
    if (onStop) onStop(error);
}
