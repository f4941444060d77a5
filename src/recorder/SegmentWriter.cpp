#include "recorder/SegmentWriter.h"

// Placeholder until the FFmpeg writer lands: every writer reports that it cannot be made.
struct SegmentWriter::Impl { };

SegmentWriter::SegmentWriter(QString path)
    : filePath(std::move(path))
    , impl(std::make_unique<Impl>())
{
}
SegmentWriter::~SegmentWriter() = default;
bool SegmentWriter::addVideoInput(const VideoSettings&)
{
    return false;
}
bool SegmentWriter::addAudioInput()
{
    return false;
}
bool SegmentWriter::hasVideoInput() const
{
    return false;
}
bool SegmentWriter::hasAudioInput() const
{
    return false;
}
bool SegmentWriter::startWriting()
{
    return false;
}
void SegmentWriter::startSession(const MediaTime&) { }
bool SegmentWriter::isReadyForMoreMediaData() const
{
    return false;
}
bool SegmentWriter::isReadyForMoreAudioData() const
{
    return false;
}
bool SegmentWriter::append(const VideoFrame&)
{
    return false;
}
bool SegmentWriter::appendAudio(const AudioBuffer&)
{
    return false;
}
void SegmentWriter::markAsFinished() { }
SegmentWriter::Status SegmentWriter::finishWriting()
{
    return Status::failed;
}
SegmentWriter::Status SegmentWriter::status() const
{
    return Status::failed;
}
QString SegmentWriter::error() const
{
    return QStringLiteral("not implemented");
}
