#include "recorder/SegmentWriter.h"

#include "media/AudioEncoder.h"
#include "media/FFmpegHandles.h"
#include "media/HevcEncoderProbe.h"
#include "media/VideoEncoder.h"

#include <QFileInfo>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace {

// A few frames of slack absorb the encoder's hiccups; more would only hide a writer that cannot
// keep up, and hold large pictures in memory.
constexpr int videoCapacity = 6;
constexpr int audioCapacity = 32;
constexpr AVRational videoTimeBase { 1, 90000 };

struct Item {
    bool isVideo = true;
    VideoFrame frame;
    AudioBuffer audio;
};

} // namespace

struct SegmentWriter::Impl {
    QString path;
    VideoSettings videoSettings;
    bool wantVideo = false;
    bool wantAudio = false;
    std::atomic<bool> realTime { true };
    std::atomic<Status> status { Status::unknown };

    mutable std::mutex mutex;
    std::condition_variable wake; // the writer thread: work or an end
    std::condition_variable room; // producers of a paced (not real-time) writer
    std::deque<Item> items; // guarded by mutex
    int videoQueued = 0; // guarded by mutex
    int audioQueued = 0; // guarded by mutex
    bool inputFinished = false; // guarded by mutex
    bool abandon = false; // guarded by mutex
    QString errorText; // guarded by mutex
    MediaTime sessionStart; // set before the thread reads it
    bool sessionStarted = false;
    MediaTime sessionEnd; // guarded by mutex; invalid: no end given
    std::thread thread;

    // The writer thread only (and startWriting before the thread starts).
    OutputFormatPtr muxer;
    std::unique_ptr<VideoEncoder> video;
    std::unique_ptr<AudioEncoder> audio;
    AVStream* videoStream = nullptr;
    AVStream* audioStream = nullptr;
    PacketPtr heldVideo; // written once the next packet tells its duration
    int64_t lastVideoPts = INT64_MIN;
    int64_t lastVideoInterval = 0;
    int64_t lastKeyPts = INT64_MIN;
    int framesSinceKey = 0;

    void fail(const QString& text)
    {
        {
            std::lock_guard lock(mutex);
            if (errorText.isEmpty()) errorText = text;
        }
        status = Status::failed;
        room.notify_all();
    }

    bool startWriting();
    void run();
    void encodeVideo(const VideoFrame& frame);
    void encodeAudio(const AudioBuffer& buffer);
    // Where the audio encoder's packets go: into the file, in the stream's time base.
    PacketSink audioSink()
    {
        return [this](AVPacket* p) {
            p->stream_index = audioStream->index;
            av_packet_rescale_ts(p, audio->context()->time_base, audioStream->time_base);
            return av_interleaved_write_frame(muxer.get(), p);
        };
    }
    int writeVideoPacket(AVPacket* packet);
    int writeHeldVideo(int64_t duration);
    bool finish();
};

bool SegmentWriter::Impl::startWriting()
{
    if (!wantVideo) {
        fail(QStringLiteral("no video input"));
        return false;
    }
    AVFormatContext* raw = nullptr;
    int rc = avformat_alloc_output_context2(&raw, nullptr, "mp4", path.toUtf8().constData());
    if (rc < 0) {
        fail(avErrorText(rc));
        return false;
    }
    muxer.reset(raw);

    VideoEncoder::Settings settings;
    settings.width = videoSettings.width;
    settings.height = videoSettings.height;
    settings.averageBitRate = videoSettings.averageBitRate;
    settings.expectedFPS = videoSettings.expectedFPS;
    settings.timeBase = videoTimeBase;
    settings.globalHeader = (muxer->oformat->flags & AVFMT_GLOBALHEADER) != 0;
    QString error;
    video = VideoEncoder::open(HevcEncoderProbe::chosen(), settings, &error);
    if (!video) {
        fail(QStringLiteral("video encoder: ") + error);
        return false;
    }
    videoStream = avformat_new_stream(muxer.get(), nullptr);
    if (!videoStream) {
        fail(QStringLiteral("out of memory"));
        return false;
    }
    avcodec_parameters_from_context(videoStream->codecpar, video->context());
    videoStream->time_base = videoTimeBase;
    videoStream->avg_frame_rate = AVRational { std::max(1, videoSettings.expectedFPS), 1 };

    if (wantAudio) {
        audio = AudioEncoder::open(&error);
        if (!audio) {
            fail(QStringLiteral("audio encoder: ") + error);
            return false;
        }
        audioStream = avformat_new_stream(muxer.get(), nullptr);
        if (!audioStream) {
            fail(QStringLiteral("out of memory"));
            return false;
        }
        avcodec_parameters_from_context(audioStream->codecpar, audio->context());
        audioStream->time_base = audio->context()->time_base;
    }

    rc = avio_open(&muxer->pb, path.toUtf8().constData(), AVIO_FLAG_WRITE);
    if (rc < 0) {
        fail(avErrorText(rc));
        return false;
    }
    rc = avformat_write_header(muxer.get(), nullptr);
    if (rc < 0) {
        fail(avErrorText(rc));
        return false;
    }
    heldVideo.reset(av_packet_alloc());
    status = Status::writing;
    thread = std::thread([this] { run(); });
    return true;
}

void SegmentWriter::Impl::run()
{
    for (;;) {
        Item item;
        {
            std::unique_lock lock(mutex);
            wake.wait(lock, [this] { return abandon || !items.empty() || inputFinished; });
            if (abandon) return;
            if (items.empty()) break; // finished and drained
            item = std::move(items.front());
            items.pop_front();
            (item.isVideo ? videoQueued : audioQueued)--;
        }
        room.notify_all();
        if (status != Status::writing) continue; // a failed writer only empties its queue
        if (item.isVideo)
            encodeVideo(item.frame);
        else
            encodeAudio(item.audio);
    }
    if (status == Status::writing && finish()) status = Status::completed;
    room.notify_all();
}

void SegmentWriter::Impl::encodeVideo(const VideoFrame& frame)
{
    const MediaTime offset = (frame.pts - sessionStart).convertScale(videoTimeBase.den);
    // Samples before the session's start are not part of the file; a time that does not move
    // forward cannot be muxed and would cost the whole segment, so that one frame goes instead.
    if (!offset.isNumeric() || offset.value < 0 || offset.value <= lastVideoPts) return;
    const int64_t pts = offset.value;
    const int fps = std::max(1, videoSettings.expectedFPS);
    // A key frame every expectedFPS frames, and, when frames come slower than expected, on the
    // frame after which the next one (at the present interval) would be more than a second after
    // the last key frame.
    const int64_t interval = lastVideoPts == INT64_MIN ? 0 : pts - lastVideoPts;
    const bool key
        = lastKeyPts == INT64_MIN || framesSinceKey >= fps || pts - lastKeyPts + interval > int64_t(videoTimeBase.den);
    if (key) {
        lastKeyPts = pts;
        framesSinceKey = 0;
    }
    ++framesSinceKey;
    if (interval > 0) lastVideoInterval = interval;
    lastVideoPts = pts;
    const int rc = video->send(frame.image, pts, key, [this](AVPacket* p) { return writeVideoPacket(p); });
    if (rc < 0) fail(QStringLiteral("video: ") + avErrorText(rc));
}

int SegmentWriter::Impl::writeVideoPacket(AVPacket* packet)
{
    // No reordering: packets leave the encoder in presentation order, so each one's duration is
    // known when the next arrives, and the file's last frame lasts as long as the one before.
    if (heldVideo->data) {
        const int rc = writeHeldVideo(packet->pts - heldVideo->pts);
        if (rc < 0) return rc;
    }
    av_packet_move_ref(heldVideo.get(), packet);
    return 0;
}

int SegmentWriter::Impl::writeHeldVideo(int64_t duration)
{
    heldVideo->duration = std::max<int64_t>(1, duration);
    heldVideo->stream_index = videoStream->index;
    av_packet_rescale_ts(heldVideo.get(), videoTimeBase, videoStream->time_base);
    const int rc = av_interleaved_write_frame(muxer.get(), heldVideo.get());
    av_packet_unref(heldVideo.get());
    return rc;
}

void SegmentWriter::Impl::encodeAudio(const AudioBuffer& buffer)
{
    const MediaTime offset = (buffer.pts - sessionStart).convertScale(AudioEncoder::sampleRate);
    if (!offset.isNumeric()) return;
    // Sound that starts after the segment does is silence until then, not a shorter track.
    int rc = audio->endPosition() < 0 && offset.value > 0 ? audio->padTo(offset.value, audioSink()) : 0;
    if (rc >= 0) rc = audio->send(buffer, offset.value, audioSink());
    if (rc < 0) fail(QStringLiteral("audio: ") + avErrorText(rc));
}

bool SegmentWriter::Impl::finish()
{
    int rc = video->finish([this](AVPacket* p) { return writeVideoPacket(p); });
    if (rc >= 0 && heldVideo->data) {
        MediaTime end;
        {
            std::lock_guard lock(mutex);
            end = sessionEnd;
        }
        const MediaTime endOffset = (end - sessionStart).convertScale(videoTimeBase.den);
        const int64_t fallback = videoTimeBase.den / std::max(1, videoSettings.expectedFPS);
        int64_t duration = lastVideoInterval > 0 ? lastVideoInterval : fallback;
        if (endOffset.isNumeric() && endOffset.value > heldVideo->pts) duration = endOffset.value - heldVideo->pts;
        rc = writeHeldVideo(duration);
    }
    if (rc >= 0 && audio) {
        // A source that stalled or never started leaves silence up to the segment's end: the
        // sound lasts as long as the picture.
        MediaTime end;
        {
            std::lock_guard lock(mutex);
            end = sessionEnd;
        }
        const MediaTime endOffset = (end - sessionStart).convertScale(AudioEncoder::sampleRate);
        if (endOffset.isNumeric()) rc = audio->padTo(endOffset.value, audioSink());
        if (rc >= 0) rc = audio->finish(audioSink());
    }
    if (rc >= 0) rc = av_write_trailer(muxer.get());
    if (rc >= 0) rc = avio_closep(&muxer->pb);
    if (rc < 0) {
        fail(avErrorText(rc));
        return false;
    }
    return true;
}

SegmentWriter::SegmentWriter(QString path)
    : filePath(std::move(path))
    , impl(std::make_unique<Impl>())
{
    impl->path = filePath;
    // Like the platform's writer, never write over a file that is already there.
    if (QFileInfo(filePath).isFile()) impl->fail(QStringLiteral("a file already exists at ") + filePath);
}

SegmentWriter::~SegmentWriter()
{
    {
        std::lock_guard lock(impl->mutex);
        impl->abandon = true;
    }
    impl->wake.notify_all();
    impl->room.notify_all();
    if (impl->thread.joinable()) impl->thread.join();
}

bool SegmentWriter::addVideoInput(const VideoSettings& settings)
{
    if (impl->status != Status::unknown || impl->wantVideo) return false;
    if (settings.width < 2 || settings.height < 2) return false;
    impl->videoSettings = settings;
    impl->wantVideo = true;
    return true;
}

bool SegmentWriter::addAudioInput()
{
    if (impl->status != Status::unknown || impl->wantAudio) return false;
    impl->wantAudio = true;
    return true;
}

bool SegmentWriter::hasVideoInput() const
{
    return impl->wantVideo;
}
bool SegmentWriter::hasAudioInput() const
{
    return impl->wantAudio;
}
void SegmentWriter::setExpectsMediaDataInRealTime(bool realTime)
{
    impl->realTime = realTime;
}

bool SegmentWriter::startWriting()
{
    if (impl->status != Status::unknown) return false;
    return impl->startWriting();
}

void SegmentWriter::startSession(const MediaTime& sourceTime)
{
    std::lock_guard lock(impl->mutex);
    if (impl->sessionStarted) return;
    impl->sessionStart = sourceTime;
    impl->sessionStarted = true;
}

void SegmentWriter::endSession(const MediaTime& sourceTime)
{
    std::lock_guard lock(impl->mutex);
    impl->sessionEnd = sourceTime;
}

namespace {

bool hasRoom(bool isVideo, int videoQueued, int audioQueued)
{
    return isVideo ? videoQueued < videoCapacity : audioQueued < audioCapacity;
}

} // namespace

bool SegmentWriter::isReadyForMoreMediaData() const
{
    std::unique_lock lock(impl->mutex);
    if (!impl->realTime)
        impl->room.wait(lock, [this] {
            return impl->status != Status::writing || impl->inputFinished || impl->abandon
                || hasRoom(true, impl->videoQueued, impl->audioQueued);
        });
    return impl->status == Status::writing && !impl->inputFinished && impl->sessionStarted
        && hasRoom(true, impl->videoQueued, impl->audioQueued);
}

bool SegmentWriter::isReadyForMoreAudioData() const
{
    std::unique_lock lock(impl->mutex);
    if (!impl->audio) return false;
    if (!impl->realTime)
        impl->room.wait(lock, [this] {
            return impl->status != Status::writing || impl->inputFinished || impl->abandon
                || hasRoom(false, impl->videoQueued, impl->audioQueued);
        });
    return impl->status == Status::writing && !impl->inputFinished && impl->sessionStarted
        && hasRoom(false, impl->videoQueued, impl->audioQueued);
}

bool SegmentWriter::append(const VideoFrame& frame)
{
    {
        std::lock_guard lock(impl->mutex);
        if (impl->status != Status::writing || impl->inputFinished || !impl->sessionStarted
            || !hasRoom(true, impl->videoQueued, impl->audioQueued) || frame.image.isNull())
            return false;
        impl->items.push_back(Item { true, frame, {} });
        ++impl->videoQueued;
    }
    impl->wake.notify_one();
    return true;
}

bool SegmentWriter::appendAudio(const AudioBuffer& buffer)
{
    {
        std::lock_guard lock(impl->mutex);
        if (!impl->audio || impl->status != Status::writing || impl->inputFinished || !impl->sessionStarted
            || !hasRoom(false, impl->videoQueued, impl->audioQueued))
            return false;
        impl->items.push_back(Item { false, {}, buffer });
        ++impl->audioQueued;
    }
    impl->wake.notify_one();
    return true;
}

void SegmentWriter::markAsFinished()
{
    {
        std::lock_guard lock(impl->mutex);
        impl->inputFinished = true;
    }
    impl->wake.notify_all();
    impl->room.notify_all();
}

SegmentWriter::Status SegmentWriter::finishWriting()
{
    markAsFinished();
    if (impl->thread.joinable()) impl->thread.join();
    if (impl->status == Status::unknown || impl->status == Status::writing)
        impl->fail(QStringLiteral("writing never started"));
    return impl->status;
}

SegmentWriter::Status SegmentWriter::status() const
{
    return impl->status;
}

QString SegmentWriter::error() const
{
    std::lock_guard lock(impl->mutex);
    return impl->errorText;
}
