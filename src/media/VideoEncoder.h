#pragma once

#include "media/FFmpegHandles.h"
#include "media/PictureConverter.h"

#include <QImage>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

// One HEVC encoder fed with 32-bit BGRA pictures: converts them (PictureConverter: libyuv, or
// libswscale scaled to the encoder's size when they differ) into what the encoder takes, uploading to the device for
// hardware encoders that work on device frames. Not thread-safe: one owner thread.
class VideoEncoder {
public:
    // Receives every packet the encoder gives, in the encoder's time base; a negative result stops
    // the encoding with that error.

    struct Settings {
        int width = 1920;
        int height = 1080;
        int64_t averageBitRate = 20000000;
        int expectedFPS = 60;
        AVRational timeBase { 1, 90000 };
        // The container needs the parameter sets out of band too (MP4's hvcC).
        bool globalHeader = true;
    };

    // Opens encoder `name` ("hevc_vaapi", "hevc_nvenc", "hevc_qsv" or "libx265") with Main profile,
    // no B-frames or reordering, a key frame every expectedFPS frames, and parameter sets repeated in
    // band so that files with different bit rates join. Null with *error on failure.
    static std::unique_ptr<VideoEncoder> open(const QString& name, const Settings& settings, QString* error);
    ~VideoEncoder();

    // Encodes `image` at `pts` (in Settings::timeBase); `forceKeyFrame` asks for a key frame here.
    // `changed`, when given: the only pixels that differ from the picture sent before (see
    // PictureConverter). Returns 0 or a negative FFmpeg error.
    int send(const QImage& image, int64_t pts, bool forceKeyFrame, const PacketSink& sink,
        const std::vector<QRect>* changed = nullptr);
    // Ends the stream and hands over what the encoder still holds.
    int finish(const PacketSink& sink);

    AVCodecContext* context() const { return codec.get(); }

private:
    VideoEncoder() = default;

    CodecContextPtr codec;
    BufferRefPtr hwDevice;
    BufferRefPtr hwFrames;
    AVPixelFormat softwareFormat = AV_PIX_FMT_YUV420P;
    PictureConverter converter;
    FramePtr softwareFrame;
    PacketPtr packet;
};
