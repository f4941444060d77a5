#include "recorder/SegmentEncoder.h"

#include "core/Guarded.h"
#include "media/AudioEncoder.h"
#include "media/FFmpegHandles.h"
#include "media/HevcEncoderChoice.h"
#include "media/VideoEncoder.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// A few pictures of slack absorb the encoder's hiccups: a key frame costs about three ordinary
// pictures under full motion, and over ten on a still, detailed screen where the others cost
// little, and the pictures that arrive meanwhile must wait for it rather than be lost. More would
// only hide an encoder that cannot keep up, and hold large pictures in memory: each waiting 1080p
// picture also holds one of the grabber's 8 MB shared-memory buffers. Sound waits
// behind the pictures in the same queue and must not be lost to a slow picture: its buffers are
// small (a few ms each from PulseAudio), so seconds of them fit in a few megabytes.
constexpr int videoCapacity = 6;
constexpr int audioCapacity = 2048;
constexpr int64_t videoTicks = 90000; // the files' picture time base
constexpr AVRational videoTimeBase { 1, int(videoTicks) };

int64_t toTicks(const MediaTime& t, int64_t scale)
{
    return t.convertScale(int32_t(scale)).value;
}

} // namespace

struct SegmentEncoder::Impl {
    struct Item {
        enum class Kind { open, video, audio, end, force, abandon } kind = Kind::video;
        std::shared_ptr<File> file;
        VideoFrame frame;
        AudioBuffer audio;
        bool key = false; // a video picture that is to be a key frame
    };
    // What the callers and the encoder's thread share: the work waiting for the thread. Every
    // file's shared progress (File::Shared) is under the same lock.
    struct Queue {
        std::deque<Item> items;
        int videoQueued = 0;
        int audioQueued = 0;
        bool stopping = false;
        bool realTime = true;
        bool hasRoom(bool video) const { return video ? videoQueued < videoCapacity : audioQueued < audioCapacity; }
    };
    using Locked = Guarded<Queue>::Locked;

    Guarded<Queue> queue;
    std::condition_variable wake; // the encoder's thread: work or an end
    std::condition_variable room; // producers of a paced encoder, and finishers
    std::thread thread;

    std::shared_ptr<HevcEncoderChoice> choice; // set before the thread starts

    // The encoder's thread only.
    std::vector<std::shared_ptr<File>> live; // files that may still receive packets, oldest first
    std::unique_ptr<HevcEncoderProbe::Encoder> videoEncoder;
    // Pictures sent to the video encoder whose packets have not come out yet: the encoder's time
    // of each, the file it belongs to and its time there. Packets keep their picture's time, so
    // each finds its file exactly, even at a boundary.
    struct Sent {
        int64_t encoderPts;
        std::weak_ptr<File> file;
        int64_t filePts;
    };
    std::deque<Sent> sentPictures;
    // The stream's number of the picture the video encoder took last (0: none, or not numbered):
    // the next one in the stream may be converted where it changed only.
    uint64_t lastSequence = 0;
    VideoSettings videoEncoderSettings;
    MediaTime videoZero; // capture time of the encoder's time zero
    std::unique_ptr<AudioEncoder> audioEncoder;
    MediaTime audioZero; // capture time of the sound stream's first sample
    MediaTime soundEncodedUntil; // capture time up to which the sound has left the encoder

    void run();
    void encodeVideo(const std::shared_ptr<File>& file, const VideoFrame& frame, bool key);
    void encodeAudio(const AudioBuffer& buffer);
    int writeVideoPacket(AVPacket* packet);
    int writeAudioPacket(AVPacket* packet);
    // The newest file with sound whose span holds `t`.
    std::shared_ptr<File> soundFileAt(const MediaTime& t);
    bool writeHeader(File& file);
    int writeHeld(File& file, int64_t duration);
    void tryComplete(const std::shared_ptr<File>& file);
    void complete(const std::shared_ptr<File>& file);
    void fail(File& file, const QString& text);
    void setStatus(File& file, Status status);
    bool push(Item item, bool video);
    // The file's status, read under the lock (the encoder's thread).
    Status statusOf(File& file);
    PacketSink videoSink()
    {
        return [this](AVPacket* p) { return writeVideoPacket(p); };
    }
    PacketSink audioSink()
    {
        return [this](AVPacket* p) { return writeAudioPacket(p); };
    }
};

// Where a file's key frames fall: first in the file, every expectedFPS pictures, and, when pictures
// come slower than expected, on the picture after which the next one would be more than a second
// after the last key frame. Decided as pictures are handed in, in their order, so that a caller
// can see a key frame coming (keyFrameDue) before the encoder's thread gets to it.
namespace {
struct KeyCadence {
    int64_t lastPts = INT64_MIN; // in videoTicks from the file's start
    int64_t lastKeyPts = INT64_MIN;
    int framesSinceKey = 0;

    // Whether a picture at `offset` is taken at all: the muxer needs times that move forward.
    bool takes(int64_t offset) const { return offset >= 0 && offset > lastPts; }
    bool keyAt(int64_t offset, int fps) const
    {
        const int64_t interval = lastPts == INT64_MIN ? 0 : offset - lastPts;
        return lastKeyPts == INT64_MIN || framesSinceKey >= fps || offset - lastKeyPts + interval > videoTicks;
    }
    // Takes the picture at `offset` into the rhythm; true when it is a key frame.
    bool take(int64_t offset, int fps)
    {
        const bool key = keyAt(offset, fps);
        if (key) {
            lastKeyPts = offset;
            framesSinceKey = 0;
        }
        ++framesSinceKey;
        lastPts = offset;
        return key;
    }
};
} // namespace

struct SegmentEncoder::File {
    QString path;
    VideoSettings video;
    bool withAudio = false;

    // The file's progress as its callers and the encoder's thread both see it.
    struct Shared {
        Status status = Status::unknown;
        QString errorText;
        MediaTime start;
        MediaTime end; // invalid until the span ends
        bool ended = false; // no more pictures come
        bool awaitSound = true;
        bool forced = false; // complete now, with what sound there is
        KeyCadence keys; // of the pictures handed in so far
    };
    // Only with the encoder's lock held, which the caller shows by passing it.
    Shared& shared(Impl::Locked&) { return sharedState; }
    const Shared& shared(Impl::Locked&) const { return sharedState; }

    // The encoder's thread only (and openFile before any packet).
    MediaTime origin; // the span's start, copied from Shared when the thread takes the file on
    OutputFormatPtr muxer;
    AVStream* videoStream = nullptr;
    AVStream* audioStream = nullptr;
    bool headerWritten = false;
    PacketPtr heldVideo; // written once the next packet, or the end, tells its duration
    int64_t lastVideoPts = INT64_MIN; // in videoTicks from start
    int64_t lastVideoInterval = 0;
    bool endReached = false; // the thread has taken every picture queued before the end

private:
    Shared sharedState;
};

SegmentEncoder::SegmentEncoder(std::shared_ptr<HevcEncoderChoice> choice)
    : impl(std::make_shared<Impl>())
{
    impl->choice = choice ? std::move(choice) : HevcEncoderChoice::process();
    impl->thread = std::thread([i = impl.get()] { i->run(); });
}

SegmentEncoder::~SegmentEncoder()
{
    impl->queue.lock()->stopping = true;
    impl->wake.notify_all();
    impl->room.notify_all();
    if (impl->thread.joinable()) impl->thread.join();
    // What was not finished stays as it was: the ring removes such files.
    for (const auto& file : impl->live) {
        auto locked = impl->queue.lock();
        File::Shared& f = file->shared(locked);
        if (f.status == Status::writing || f.status == Status::unknown) {
            f.status = Status::failed;
            if (f.errorText.isEmpty()) f.errorText = QStringLiteral("abandoned");
        }
    }
    impl->room.notify_all();
}

void SegmentEncoder::setExpectsMediaDataInRealTime(bool realTime)
{
    impl->queue.lock()->realTime = realTime;
    impl->room.notify_all();
}

std::shared_ptr<SegmentEncoder::File> SegmentEncoder::openFile(
    const QString& path, const VideoSettings& video, bool withAudio)
{
    auto file = std::make_shared<File>();
    file->path = path;
    file->video = video;
    file->withAudio = withAudio;
    file->heldVideo.reset(av_packet_alloc());
    bool created = false;
    // Nobody else knows the file yet; the lock is taken all the same, since its state is only
    // reachable that way.
    auto failed = [&](const QString& text) {
        {
            auto locked = impl->queue.lock();
            file->shared(locked).status = Status::failed;
            file->shared(locked).errorText = text;
        }
        file->muxer.reset();
        if (created) QFile::remove(path);
        return file;
    };
    if (video.width < 2 || video.height < 2) return failed(QStringLiteral("no video input"));
    // Like the platform's writer, never write over a file that is already there. The file shows
    // the screen: it is made for the user alone before anything goes into it.
    const int fd
        = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
        return failed(errno == EEXIST ? QStringLiteral("a file already exists at ") + path
                                      : QString::fromLocal8Bit(std::strerror(errno)));
    ::close(fd);
    created = true;
    AVFormatContext* raw = nullptr;
    int rc = avformat_alloc_output_context2(&raw, nullptr, "mp4", path.toUtf8().constData());
    if (rc < 0) return failed(avErrorText(rc));
    file->muxer.reset(raw);
    rc = avio_open(&file->muxer->pb, path.toUtf8().constData(), AVIO_FLAG_WRITE);
    if (rc < 0) return failed(avErrorText(rc));
    auto locked = impl->queue.lock();
    file->shared(locked).status = Status::writing;
    return file;
}

void SegmentEncoder::beginFile(const std::shared_ptr<File>& file, const MediaTime& start)
{
    {
        auto locked = impl->queue.lock();
        File::Shared& f = file->shared(locked);
        if (f.status != Status::writing || f.start.isValid()) return;
        f.start = start;
        locked->items.push_back({ Impl::Item::Kind::open, file, {}, {} });
    }
    impl->wake.notify_one();
}

void SegmentEncoder::abandonFile(const std::shared_ptr<File>& file)
{
    {
        auto locked = impl->queue.lock();
        File::Shared& f = file->shared(locked);
        if (f.status != Status::writing) return;
        f.ended = true;
        locked->items.push_back({ Impl::Item::Kind::abandon, file, {}, {} });
    }
    impl->wake.notify_one();
}

bool SegmentEncoder::Impl::push(Item item, bool video)
{
    {
        auto locked = queue.lock();
        if (!locked->realTime) locked.wait(room, [&](const Queue& q) { return q.stopping || q.hasRoom(video); });
        if (locked->stopping || !locked->hasRoom(video)) return false;
        if (item.file) {
            File::Shared& f = item.file->shared(locked);
            if (f.status != Status::writing || f.ended || !f.start.isValid()) return false;
            if (item.kind == Item::Kind::video) {
                const int64_t offset = toTicks(item.frame.pts - f.start, videoTicks);
                if (f.keys.takes(offset)) item.key = f.keys.take(offset, std::max(1, item.file->video.expectedFPS));
            }
        }
        locked->items.push_back(std::move(item));
        (video ? locked->videoQueued : locked->audioQueued)++;
    }
    wake.notify_one();
    return true;
}

SegmentEncoder::Status SegmentEncoder::Impl::statusOf(File& file)
{
    auto locked = queue.lock();
    return file.shared(locked).status;
}

bool SegmentEncoder::isReadyForMoreMediaData() const
{
    auto locked = impl->queue.lock();
    if (!locked->realTime) locked.wait(impl->room, [](const Impl::Queue& q) { return q.stopping || q.hasRoom(true); });
    return !locked->stopping && locked->hasRoom(true);
}

bool SegmentEncoder::isReadyForMoreAudioData() const
{
    auto locked = impl->queue.lock();
    if (!locked->realTime) locked.wait(impl->room, [](const Impl::Queue& q) { return q.stopping || q.hasRoom(false); });
    return !locked->stopping && locked->hasRoom(false);
}

bool SegmentEncoder::keyFrameDue(const std::shared_ptr<File>& file, const MediaTime& pts) const
{
    if (!file || !pts.isNumeric()) return false;
    auto locked = impl->queue.lock();
    const File::Shared& f = file->shared(locked);
    if (f.status != Status::writing || f.ended || !f.start.isValid()) return false;
    const int64_t offset = toTicks(pts - f.start, videoTicks);
    return f.keys.takes(offset) && f.keys.keyAt(offset, std::max(1, file->video.expectedFPS));
}

bool SegmentEncoder::append(const std::shared_ptr<File>& file, const VideoFrame& frame)
{
    if (!file || frame.image.isNull() || !frame.pts.isNumeric()) return false;
    return impl->push({ Impl::Item::Kind::video, file, frame, {} }, true);
}

bool SegmentEncoder::appendAudio(const AudioBuffer& buffer)
{
    if (buffer.frameCount() == 0 || !buffer.pts.isNumeric()) return false;
    return impl->push({ Impl::Item::Kind::audio, nullptr, {}, buffer }, false);
}

void SegmentEncoder::endFile(const std::shared_ptr<File>& file, const MediaTime& end, bool awaitSound)
{
    {
        auto locked = impl->queue.lock();
        File::Shared& f = file->shared(locked);
        if (f.ended) return;
        f.ended = true;
        f.end = end;
        f.awaitSound = awaitSound;
        locked->items.push_back({ Impl::Item::Kind::end, file, {}, {} });
    }
    impl->wake.notify_one();
}

SegmentEncoder::Status SegmentEncoder::finishFile(const std::shared_ptr<File>& file, int graceMs)
{
    auto locked = impl->queue.lock();
    File::Shared& f = file->shared(locked);
    auto done = [&f](const Impl::Queue&) { return f.status != Status::writing && f.status != Status::unknown; };
    if (!f.start.isValid() && f.status == Status::writing) {
        f.status = Status::failed;
        f.errorText = QStringLiteral("writing never started");
    }
    if (!f.ended) {
        f.ended = true;
        locked->items.push_back({ Impl::Item::Kind::end, file, {}, {} });
        impl->wake.notify_one();
    }
    if (!locked.waitFor(impl->room, std::chrono::milliseconds(graceMs), done)) {
        // The sound of its last moments did not come in time (a stalled or silent source).
        locked->items.push_back({ Impl::Item::Kind::force, file, {}, {} });
        impl->wake.notify_one();
        locked.wait(impl->room, [&](const Impl::Queue& q) { return done(q) || q.stopping; });
    }
    if (!done(*locked)) {
        f.status = Status::failed;
        f.errorText = QStringLiteral("abandoned");
    }
    return f.status;
}

SegmentEncoder::Status SegmentEncoder::status(const File& file) const
{
    auto locked = impl->queue.lock();
    return file.shared(locked).status;
}

QString SegmentEncoder::error(const File& file) const
{
    auto locked = impl->queue.lock();
    return file.shared(locked).errorText;
}

// ---- the encoder's thread ----

void SegmentEncoder::Impl::run()
{
    for (;;) {
        Item item;
        {
            auto locked = queue.lock();
            locked.wait(wake, [](const Queue& q) { return q.stopping || !q.items.empty(); });
            if (locked->stopping) return;
            item = std::move(locked->items.front());
            locked->items.pop_front();
            if (item.kind == Item::Kind::video) --locked->videoQueued;
            if (item.kind == Item::Kind::audio) --locked->audioQueued;
            if (item.kind == Item::Kind::open) item.file->origin = item.file->shared(locked).start;
        }
        room.notify_all();
        switch (item.kind) {
        case Item::Kind::video:
            encodeVideo(item.file, item.frame, item.key);
            break;
        case Item::Kind::audio:
            encodeAudio(item.audio);
            break;
        case Item::Kind::open:
            if (statusOf(*item.file) == Status::writing) live.push_back(item.file);
            break;
        case Item::Kind::end:
            item.file->endReached = true;
            tryComplete(item.file);
            break;
        case Item::Kind::abandon:
            if (statusOf(*item.file) == Status::writing) fail(*item.file, QStringLiteral("abandoned"));
            break;
        case Item::Kind::force: {
            auto locked = queue.lock();
            item.file->shared(locked).forced = true;
        }
            tryComplete(item.file);
            break;
        }
    }
}

void SegmentEncoder::Impl::fail(File& file, const QString& text)
{
    {
        auto locked = queue.lock();
        File::Shared& f = file.shared(locked);
        if (f.errorText.isEmpty()) f.errorText = text;
        f.status = Status::failed;
    }
    if (file.muxer) {
        if (file.muxer->pb) avio_closep(&file.muxer->pb);
        file.muxer.reset();
    }
    live.erase(std::remove_if(live.begin(), live.end(), [&](const auto& f) { return f.get() == &file; }), live.end());
    room.notify_all();
}

void SegmentEncoder::Impl::setStatus(File& file, Status status)
{
    {
        auto locked = queue.lock();
        file.shared(locked).status = status;
    }
    room.notify_all();
}

bool SegmentEncoder::Impl::writeHeader(File& file)
{
    if (file.headerWritten) return true;
    if (!file.muxer || !videoEncoder) return false;
    file.videoStream = avformat_new_stream(file.muxer.get(), nullptr);
    if (!file.videoStream) return false;
    avcodec_parameters_from_context(file.videoStream->codecpar, videoEncoder->context());
    file.videoStream->time_base = videoTimeBase;
    file.videoStream->avg_frame_rate = AVRational { std::max(1, file.video.expectedFPS), 1 };
    if (file.withAudio && audioEncoder) {
        file.audioStream = avformat_new_stream(file.muxer.get(), nullptr);
        if (!file.audioStream) return false;
        avcodec_parameters_from_context(file.audioStream->codecpar, audioEncoder->context());
        file.audioStream->time_base = audioEncoder->context()->time_base;
    }
    const int rc = avformat_write_header(file.muxer.get(), nullptr);
    if (rc < 0) {
        fail(file, avErrorText(rc));
        return false;
    }
    file.headerWritten = true;
    return true;
}

void SegmentEncoder::Impl::encodeVideo(const std::shared_ptr<File>& file, const VideoFrame& frame, bool key)
{
    if (statusOf(*file) != Status::writing) return;
    // The sound may need its encoder before the first picture makes the header.
    if (file->withAudio && !audioEncoder) {
        QString error;
        audioEncoder = AudioEncoder::open(&error);
        if (!audioEncoder) return fail(*file, QStringLiteral("audio encoder: ") + error);
    }
    if (!videoEncoder || !(videoEncoderSettings == file->video)) {
        // Another size or rate: the old encoder gives out what it holds, a new one starts.
        if (videoEncoder) videoEncoder->finish(videoSink());
        sentPictures.clear();
        lastSequence = 0;
        VideoEncoder::Settings settings;
        settings.width = file->video.width;
        settings.height = file->video.height;
        settings.averageBitRate = file->video.averageBitRate;
        settings.expectedFPS = file->video.expectedFPS;
        settings.timeBase = videoTimeBase;
        settings.globalHeader = true;
        QString error;
        // A hardware encoder that fails at this size gives way to libx265 here, before this
        // picture is sent: the file still starts with it, as a key frame.
        videoEncoder = choice->open(settings, &error);
        if (!videoEncoder) return fail(*file, QStringLiteral("video encoder: ") + error);
        videoEncoderSettings = file->video;
        videoZero = frame.pts;
    }
    if (!file->headerWritten && !writeHeader(*file)) return;

    const int64_t offset = toTicks(frame.pts - file->origin, videoTicks);
    // Before the file's start, or a time that does not move forward: it cannot be muxed, and that
    // one picture goes rather than the file (the key frame rhythm passed over it too).
    if (offset < 0 || offset <= file->lastVideoPts) return;
    const int64_t interval = file->lastVideoPts == INT64_MIN ? 0 : offset - file->lastVideoPts;
    if (interval > 0) file->lastVideoInterval = interval;
    file->lastVideoPts = offset;
    const int64_t pts = toTicks(frame.pts - videoZero, videoTicks);
    sentPictures.push_back({ pts, file, offset });
    // The same picture again (the ring starts a segment with the last one) changed nothing; the
    // stream's next one changed where it says; after a picture that did not come here, all of it.
    static const std::vector<QRect> nothing;
    const uint64_t sequence = frame.changes.sequence;
    const std::vector<QRect>* changed = nullptr;
    if (sequence != 0 && sequence == lastSequence)
        changed = &nothing;
    else if (sequence != 0 && lastSequence != 0 && sequence == lastSequence + 1 && frame.changes.known)
        changed = &frame.changes.rects;
    const int rc
        = videoEncoder->sendCovered(frame.image, frame.overlay, frame.overlayAt, pts, key, videoSink(), changed);
    lastSequence = sequence;
    if (rc < 0) {
        fail(*file, QStringLiteral("video: ") + avErrorText(rc));
        videoEncoder.reset(); // the next picture starts a fresh one
        sentPictures.clear();
        lastSequence = 0;
    }
}

std::shared_ptr<SegmentEncoder::File> SegmentEncoder::Impl::soundFileAt(const MediaTime& t)
{
    std::shared_ptr<File> found;
    for (const auto& file : live) {
        if (!file->withAudio) continue;
        const MediaTime start = file->origin;
        MediaTime end;
        {
            auto locked = queue.lock();
            end = file->shared(locked).end;
        }
        // A span holds its end too: the last picture may be at the very moment it ended. At a
        // boundary the newer file, which starts there, takes it.
        if (t < start) continue;
        if (end.isNumeric() && t > end) continue;
        found = file; // the newest that holds it
    }
    return found;
}

int SegmentEncoder::Impl::writeVideoPacket(AVPacket* packet)
{
    while (!sentPictures.empty() && sentPictures.front().encoderPts < packet->pts)
        sentPictures.pop_front(); // pictures the encoder gave no packet for
    if (sentPictures.empty() || sentPictures.front().encoderPts != packet->pts) return 0;
    const Sent sent = sentPictures.front();
    sentPictures.pop_front();
    const std::shared_ptr<File> file = sent.file.lock();
    if (!file || !file->headerWritten || statusOf(*file) != Status::writing) return 0; // gone with its file
    File& f = *file;
    const int64_t pts = sent.filePts;
    packet->pts = packet->dts = pts;
    // No reordering: packets leave in presentation order, so each one's duration is known when
    // the next arrives.
    if (f.heldVideo->data) {
        const int rc = writeHeld(f, pts - f.heldVideo->pts);
        if (rc < 0) {
            fail(f, avErrorText(rc));
            return 0; // one file failing does not stop the encoder
        }
    }
    av_packet_move_ref(f.heldVideo.get(), packet);
    return 0;
}

int SegmentEncoder::Impl::writeHeld(File& file, int64_t duration)
{
    file.heldVideo->duration = std::max<int64_t>(1, duration);
    file.heldVideo->stream_index = file.videoStream->index;
    av_packet_rescale_ts(file.heldVideo.get(), videoTimeBase, file.videoStream->time_base);
    const int rc = av_interleaved_write_frame(file.muxer.get(), file.heldVideo.get());
    av_packet_unref(file.heldVideo.get());
    return rc;
}

void SegmentEncoder::Impl::encodeAudio(const AudioBuffer& buffer)
{
    if (!audioEncoder) return; // no file has wanted sound yet
    if (!audioZero.isValid()) {
        // The sound's stream starts with the first file that has sound; what comes before is gone.
        std::shared_ptr<File> first;
        for (const auto& file : live)
            if (file->withAudio && file->headerWritten) {
                first = file;
                break;
            }
        if (!first || buffer.end() <= first->origin) return;
        audioZero = first->origin;
    }
    int64_t position = toTicks(buffer.pts - audioZero, AudioEncoder::sampleRate);
    if (audioEncoder->endPosition() >= 0 && position - audioEncoder->endPosition() > AudioEncoder::sampleRate) {
        // Sound that was off for a while (no file wanted it, or no source ran): a new stream from
        // here rather than all that silence.
        audioEncoder->finish(audioSink());
        QString error;
        audioEncoder = AudioEncoder::open(&error);
        if (!audioEncoder) return;
        audioZero = buffer.pts;
        position = 0;
    }
    int rc = 0;
    // Sound that starts after the stream does is silence until then.
    if (audioEncoder->endPosition() < 0 && position > 0) rc = audioEncoder->padTo(position, audioSink());
    if (rc >= 0) rc = audioEncoder->send(buffer, position, audioSink());
    if (rc < 0) {
        for (const auto& file : std::vector<std::shared_ptr<File>>(live))
            if (file->withAudio) fail(*file, QStringLiteral("audio: ") + avErrorText(rc));
        audioEncoder.reset();
        audioZero = MediaTime::invalid();
        return;
    }
    for (const auto& file : std::vector<std::shared_ptr<File>>(live))
        tryComplete(file);
}

int SegmentEncoder::Impl::writeAudioPacket(AVPacket* packet)
{
    const MediaTime t = audioZero + MediaTime(packet->pts, AudioEncoder::sampleRate);
    const MediaTime packetEnd = t + MediaTime(std::max<int64_t>(packet->duration, 0), AudioEncoder::sampleRate);
    if (!soundEncodedUntil.isValid() || packetEnd > soundEncodedUntil) soundEncodedUntil = packetEnd;
    std::shared_ptr<File> file = soundFileAt(t);
    if (!file) {
        // The encoder's priming comes just before the first file's start: it belongs to it.
        for (const auto& f : live)
            if (f->withAudio && t < f->origin && (f->origin - t).seconds() < 0.1) {
                file = f;
                break;
            }
    }
    if (!file || !file->headerWritten || !file->audioStream) return 0;
    File& f = *file;
    const int64_t offset = toTicks(f.origin - audioZero, AudioEncoder::sampleRate);
    packet->pts -= offset;
    packet->dts -= offset;
    packet->stream_index = f.audioStream->index;
    av_packet_rescale_ts(packet, audioEncoder->context()->time_base, f.audioStream->time_base);
    const int rc = av_interleaved_write_frame(f.muxer.get(), packet);
    if (rc < 0) fail(f, avErrorText(rc));
    return 0;
}

void SegmentEncoder::Impl::tryComplete(const std::shared_ptr<File>& file)
{
    bool ended = false, awaitSound = true, forced = false;
    Status status = Status::unknown;
    MediaTime end;
    {
        auto locked = queue.lock();
        const File::Shared& f = file->shared(locked);
        ended = f.ended;
        awaitSound = f.awaitSound;
        forced = f.forced;
        end = f.end;
        status = f.status;
    }
    if (!ended || !file->endReached || status != Status::writing) return;
    const bool soundIn = !file->withAudio || !audioEncoder || !awaitSound || !end.isNumeric()
        || (soundEncodedUntil.isValid() && !(soundEncodedUntil < end));
    if (!soundIn && !forced) return;
    complete(file);
}

void SegmentEncoder::Impl::complete(const std::shared_ptr<File>& file)
{
    File& f = *file;
    MediaTime end;
    {
        auto locked = queue.lock();
        end = f.shared(locked).end;
    }
    if (f.withAudio && audioEncoder && audioZero.isValid() && !end.isNumeric()) {
        // A file with no end in time (a writer on its own): everything the sound encoder holds
        // belongs to it. The next file that wants sound starts a new stream.
        audioEncoder->finish(audioSink());
        audioEncoder.reset();
        audioZero = MediaTime::invalid();
    } else if (f.withAudio && audioEncoder && audioZero.isValid() && end.isNumeric()
        && (!soundEncodedUntil.isValid() || soundEncodedUntil < end)) {
        // The source stalled or is silent: silence up to the end, and past it as far as the last
        // packet reaches. Sound that comes later for those moments loses what overlaps.
        const int64_t endPosition = toTicks(end - audioZero, AudioEncoder::sampleRate);
        audioEncoder->padTo(endPosition + 2 * audioEncoder->context()->frame_size, audioSink());
    }
    if (!f.headerWritten && !writeHeader(f)) {
        if (statusOf(f) == Status::writing) fail(f, QStringLiteral("no picture was written"));
        return;
    }
    int rc = 0;
    if (f.heldVideo->data) {
        const int64_t endOffset = end.isNumeric() ? toTicks(end - f.origin, videoTicks) : INT64_MIN;
        const int64_t fallback = videoTicks / std::max(1, f.video.expectedFPS);
        int64_t duration = f.lastVideoInterval > 0 ? f.lastVideoInterval : fallback;
        if (endOffset > f.heldVideo->pts) duration = endOffset - f.heldVideo->pts;
        rc = writeHeld(f, duration);
    }
    if (rc >= 0) rc = av_write_trailer(f.muxer.get());
    if (rc >= 0) rc = avio_closep(&f.muxer->pb);
    if (rc < 0) return fail(f, avErrorText(rc));
    f.muxer.reset();
    live.erase(std::remove(live.begin(), live.end(), file), live.end());
    setStatus(f, Status::completed);
}
