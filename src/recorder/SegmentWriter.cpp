#include "recorder/SegmentWriter.h"

#include <QFileInfo>

SegmentWriter::SegmentWriter(QString path, std::shared_ptr<SegmentEncoder> shared)
    : filePath(std::move(path))
    , encoder(shared ? std::move(shared) : std::make_shared<SegmentEncoder>())
{
    // Like the platform's writer, never write over a file that is already there.
    if (QFileInfo(filePath).isFile()) openError = QStringLiteral("a file already exists at ") + filePath;
}

SegmentWriter::~SegmentWriter()
{
    if (file && !finished) encoder->abandonFile(file);
}

bool SegmentWriter::addVideoInput(const VideoSettings& settings)
{
    if (started || video || settings.width < 2 || settings.height < 2) return false;
    video = settings;
    return true;
}

bool SegmentWriter::addAudioInput()
{
    if (started || audio) return false;
    audio = true;
    return true;
}

bool SegmentWriter::hasVideoInput() const
{
    return video.has_value();
}

bool SegmentWriter::hasAudioInput() const
{
    return audio;
}

void SegmentWriter::setExpectsMediaDataInRealTime(bool realTime)
{
    encoder->setExpectsMediaDataInRealTime(realTime);
}

bool SegmentWriter::startWriting()
{
    if (started || !openError.isEmpty()) return false;
    if (!video) {
        openError = QStringLiteral("no video input");
        return false;
    }
    started = true;
    file = encoder->openFile(filePath, *video, audio);
    return encoder->status(*file) == SegmentEncoder::Status::writing;
}

void SegmentWriter::startSession(const MediaTime& sourceTime)
{
    if (file) encoder->beginFile(file, sourceTime);
}

void SegmentWriter::endSession(const MediaTime& sourceTime)
{
    end = sourceTime;
}

bool SegmentWriter::isReadyForMoreMediaData() const
{
    return file && status() == Status::writing && !finished && encoder->isReadyForMoreMediaData();
}

bool SegmentWriter::isReadyForMoreAudioData() const
{
    return file && audio && status() == Status::writing && encoder->isReadyForMoreAudioData();
}

bool SegmentWriter::isKeyFrameDue(const MediaTime& pts) const
{
    return file && !finished && encoder->keyFrameDue(file, pts);
}

bool SegmentWriter::append(const VideoFrame& frame)
{
    return file && !finished && encoder->append(file, frame);
}

bool SegmentWriter::appendAudio(const AudioBuffer& buffer)
{
    return file && audio && status() == Status::writing && encoder->appendAudio(buffer);
}

void SegmentWriter::markAsFinished()
{
    if (finished) return;
    finished = true;
    if (file) encoder->endFile(file, end, soundGraceMs > 0);
}

SegmentWriter::Status SegmentWriter::finishWriting()
{
    markAsFinished();
    if (!file) {
        if (openError.isEmpty()) openError = QStringLiteral("writing never started");
        return Status::failed;
    }
    return encoder->finishFile(file, soundGraceMs) == SegmentEncoder::Status::completed ? Status::completed
                                                                                        : Status::failed;
}

SegmentWriter::Status SegmentWriter::status() const
{
    if (!openError.isEmpty()) return Status::failed;
    if (!file) return Status::unknown;
    switch (encoder->status(*file)) {
    case SegmentEncoder::Status::unknown:
        return Status::unknown;
    case SegmentEncoder::Status::writing:
        return Status::writing;
    case SegmentEncoder::Status::completed:
        return Status::completed;
    case SegmentEncoder::Status::failed:
        return Status::failed;
    }
    return Status::unknown;
}

QString SegmentWriter::error() const
{
    if (!openError.isEmpty()) return openError;
    return file ? encoder->error(*file) : QString();
}
