#pragma once

#include "media/FFmpegHandles.h"
#include "media/PictureConverter.h"

#include <QImage>
#include <QPoint>
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
    // PictureConverter). `overlay`, when there is one, covers the picture at `overlayAt` (32-bit too).
    // Returns 0 or a negative FFmpeg error.
    int send(const QImage& image, int64_t pts, bool forceKeyFrame, const PacketSink& sink,
        const std::vector<QRect>* changed = nullptr, const QImage& overlay = {}, QPoint overlayAt = {});
    // Ends the stream and hands over what the encoder still holds.
    int finish(const PacketSink& sink);

    AVCodecContext* context() const { return codec.get(); }

private:
    VideoEncoder() = default;
    // Converts `overlay` into its place in the converted `target`; false when the target's layout
    // does not allow it (a size that the encoder scales, a place off the colour planes' grid).
    bool convertOverlay(const QImage& overlay, QPoint at, AVFrame* target);

    CodecContextPtr codec;
    BufferRefPtr hwDevice;
    BufferRefPtr hwFrames;
    AVPixelFormat softwareFormat = AV_PIX_FMT_YUV420P;
    PictureConverter converter;
    SwsContextPtr overlayScaler;
    QSize overlayScalerInput;
    QImage::Format overlayScalerFormat = QImage::Format_Invalid;
    int overlayScalerTarget = -1;
    FramePtr overlayFrame;
    // Where the last picture's overlay went in the kept picture; empty: it had none.
    QRect lastOverlay;
    FramePtr softwareFrame;
    PacketPtr packet;
};
