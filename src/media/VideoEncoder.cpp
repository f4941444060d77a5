#include "media/VideoEncoder.h"

#include <QPainter>

extern "C" {
#include <libavutil/hwcontext.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace {

// Main profile is 8-bit 4:2:0; hardware encoders prefer NV12 in memory.
AVPixelFormat softwareFormatFor(const QString& name)
{
    if (name == QLatin1String("libx265") || name == QLatin1String("hevc_nvenc")) return AV_PIX_FMT_YUV420P;
    return AV_PIX_FMT_NV12;
}

void setOption(AVCodecContext* c, const char* key, const char* value)
{
    // Options that one encoder lacks are no error: each gets the ones it knows.
    av_opt_set(c->priv_data, key, value, 0);
}

} // namespace

std::unique_ptr<VideoEncoder> VideoEncoder::open(const QString& name, const Settings& s, QString* error)
{
    auto fail = [&](const QString& why) {
        if (error) *error = why;
        return std::unique_ptr<VideoEncoder>();
    };
    const AVCodec* codec = avcodec_find_encoder_by_name(name.toUtf8().constData());
    if (!codec) return fail(QStringLiteral("no encoder %1").arg(name));

    std::unique_ptr<VideoEncoder> encoder(new VideoEncoder);
    encoder->codec.reset(avcodec_alloc_context3(codec));
    if (!encoder->codec) return fail(QStringLiteral("out of memory"));
    AVCodecContext* c = encoder->codec.get();
    encoder->softwareFormat = softwareFormatFor(name);

    const int fps = std::max(1, s.expectedFPS);
    c->width = s.width;
    c->height = s.height;
    c->time_base = s.timeBase;
    c->framerate = AVRational { fps, 1 };
    c->bit_rate = s.averageBitRate;
    c->gop_size = fps;
    c->max_b_frames = 0;
    c->has_b_frames = 0;
    c->profile = FF_PROFILE_HEVC_MAIN;
    c->pix_fmt = encoder->softwareFormat;
    c->color_primaries = AVCOL_PRI_BT709;
    c->color_trc = AVCOL_TRC_BT709;
    // The pictures are converted with BT.601's matrix (what libyuv converts with, and what
    // ffmpeg's own screen grabs use) and tagged so; primaries and transfer are the sRGB screen's.
    c->colorspace = AVCOL_SPC_SMPTE170M;
    c->color_range = AVCOL_RANGE_MPEG;
    if (s.globalHeader) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;

    if (name == QLatin1String("libx265")) {
        setOption(c, "preset", "ultrafast");
        // An always-on ring is not a file: no lookahead and no frame-level parallelism that holds
        // pictures back, so a packet leaves with its frame and a closing has nothing to drain.
        // The machine's cores still share each picture (wavefront rows).
        setOption(c, "tune", "zerolatency");
        setOption(c, "profile", "main");
        setOption(c, "forced-idr", "1");
        // repeat-headers keeps VPS/SPS/PPS in every key frame, so that a segment encoded at another
        // bit rate still decodes after the first segment's hvcC. No B-frames means no reordering.
        // For screens: the bit rate is a ceiling, not a level to fill. Each picture gets the
        // quality of CRF 23, capped by a buffer of one second at the bit rate, so a still desktop
        // with a window moving on it costs neither bits nor encoding time where nothing moved, where
        // a fixed average would spend both refining what did not change. The cheapest mode decision
        // (rd=1) takes about a sixth off each picture of a busy screen; adaptive quantisation
        // (aq-mode=0) would spend time and bits on flat areas that need neither.
        // bench/README.md has the figures.
        const int kbps = int(std::max<int64_t>(1, s.averageBitRate / 1000));
        const QByteArray params = QStringLiteral("keyint=%1:min-keyint=1:bframes=0:b-adapt=0:open-gop=0:"
                                                 "rc-lookahead=0:frame-threads=1:wpp=1:rd=1:aq-mode=0:crf=23:"
                                                 "vbv-maxrate=%2:vbv-bufsize=%2:repeat-headers=1:log-level=error")
                                      .arg(fps)
                                      .arg(kbps)
                                      .toUtf8();
        setOption(c, "x265-params", params.constData());
    } else {
        setOption(c, "profile", "main");
        setOption(c, "forced-idr", "1");
        setOption(c, "bf", "0");
        setOption(c, "repeat_pps", "1");
        setOption(c, "zerolatency", "1");
    }

    if (name == QLatin1String("hevc_vaapi")) {
        AVBufferRef* device = nullptr;
        int rc = av_hwdevice_ctx_create(&device, AV_HWDEVICE_TYPE_VAAPI, nullptr, nullptr, 0);
        if (rc < 0) return fail(QStringLiteral("no VAAPI device: %1").arg(avErrorText(rc)));
        encoder->hwDevice.reset(device);
        encoder->hwFrames.reset(av_hwframe_ctx_alloc(device));
        if (!encoder->hwFrames) return fail(QStringLiteral("out of memory"));
        auto* frames = reinterpret_cast<AVHWFramesContext*>(encoder->hwFrames->data);
        frames->format = AV_PIX_FMT_VAAPI;
        frames->sw_format = AV_PIX_FMT_NV12;
        frames->width = s.width;
        frames->height = s.height;
        frames->initial_pool_size = 16;
        rc = av_hwframe_ctx_init(encoder->hwFrames.get());
        if (rc < 0) return fail(QStringLiteral("VAAPI frames: %1").arg(avErrorText(rc)));
        c->pix_fmt = AV_PIX_FMT_VAAPI;
        c->hw_frames_ctx = av_buffer_ref(encoder->hwFrames.get());
    }

    const int rc = avcodec_open2(c, codec, nullptr);
    if (rc < 0) return fail(avErrorText(rc));

    encoder->packet.reset(av_packet_alloc());
    encoder->softwareFrame.reset(av_frame_alloc());
    FramePtr& f = encoder->softwareFrame;
    if (!f || !encoder->packet) return fail(QStringLiteral("out of memory"));
    f->format = encoder->softwareFormat;
    f->width = s.width;
    f->height = s.height;
    if (av_frame_get_buffer(f.get(), 0) < 0) return fail(QStringLiteral("out of memory"));
    return encoder;
}

VideoEncoder::~VideoEncoder() = default;

bool VideoEncoder::convertOverlay(const QImage& overlay, QPoint at, AVFrame* target)
{
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(target->format));
    if (!desc || (desc->flags & AV_PIX_FMT_FLAG_HWACCEL) || overlay.depth() != 32) return false;
    const int alignX = 1 << desc->log2_chroma_w;
    const int alignY = 1 << desc->log2_chroma_h;
    const QRect place(at, overlay.size());
    if (!QRect(0, 0, target->width, target->height).contains(place) || at.x() % alignX || at.y() % alignY
        || overlay.width() % alignX || overlay.height() % alignY)
        return false;
    const AVPixelFormat source = overlay.format() == QImage::Format_RGB32 ? AV_PIX_FMT_BGR0 : AV_PIX_FMT_BGRA;
    // Made again only when the overlay's size or format changes (the bubble resized): making one is
    // far dearer than the conversion itself.
    if (!overlayScaler || overlayScalerInput != overlay.size() || overlayScalerFormat != overlay.format()
        || overlayScalerTarget != target->format) {
        overlayScaler.reset(sws_getContext(overlay.width(), overlay.height(), source, overlay.width(), overlay.height(),
            static_cast<AVPixelFormat>(target->format), SWS_BILINEAR, nullptr, nullptr, nullptr));
        if (!overlayScaler) return false;
        const int* coefficients = sws_getCoefficients(SWS_CS_ITU601);
        sws_setColorspaceDetails(overlayScaler.get(), coefficients, 1, coefficients, 0, 0, 1 << 16, 1 << 16);
        overlayScalerInput = overlay.size();
        overlayScalerFormat = overlay.format();
        overlayScalerTarget = target->format;
    }
    // Converted on its own first: the scaler may write a little past the end of a line, which in
    // place would run over the picture beside the overlay. Then copied line by line into its place,
    // colour planes at their own resolution, a step of however many bytes one sample (or an
    // interleaved pair) takes there.
    if (!overlayFrame || overlayFrame->width != overlay.width() || overlayFrame->height != overlay.height()
        || overlayFrame->format != target->format) {
        overlayFrame.reset(av_frame_alloc());
        if (!overlayFrame) return false;
        overlayFrame->format = target->format;
        overlayFrame->width = overlay.width();
        overlayFrame->height = overlay.height();
        if (av_frame_get_buffer(overlayFrame.get(), 0) < 0) {
            overlayFrame.reset();
            return false;
        }
    }
    const uint8_t* src[1] = { overlay.constBits() };
    const int stride[1] = { static_cast<int>(overlay.bytesPerLine()) };
    sws_scale(overlayScaler.get(), src, stride, 0, overlay.height(), overlayFrame->data, overlayFrame->linesize);
    const int planeCount = av_pix_fmt_count_planes(static_cast<AVPixelFormat>(target->format));
    for (int p = 0; p < planeCount && p < 4; ++p) {
        int step = 0;
        for (int c = 0; c < desc->nb_components; ++c)
            if (desc->comp[c].plane == p) step = std::max(step, desc->comp[c].step);
        const bool colour = p == 1 || p == 2;
        const int shiftW = colour ? desc->log2_chroma_w : 0;
        const int shiftH = colour ? desc->log2_chroma_h : 0;
        uint8_t* to
            = target->data[p] + ptrdiff_t(at.y() >> shiftH) * target->linesize[p] + ptrdiff_t(at.x() >> shiftW) * step;
        av_image_copy_plane(to, target->linesize[p], overlayFrame->data[p], overlayFrame->linesize[p],
            (overlay.width() >> shiftW) * step, overlay.height() >> shiftH);
    }
    return true;
}

int VideoEncoder::send(const QImage& image, int64_t pts, bool forceKeyFrame, const PacketSink& sink,
    const std::vector<QRect>* changed, const QImage& overlay, QPoint overlayAt)
{
    if (image.isNull() || image.depth() != 32) return AVERROR(EINVAL);
    // The kept picture still holds the last overlay where it was: what lay under it comes back from
    // this picture, whatever the stream says changed.
    std::vector<QRect> changedAndUncovered;
    if (changed && !lastOverlay.isEmpty()) {
        changedAndUncovered = *changed;
        changedAndUncovered.push_back(lastOverlay);
        changed = &changedAndUncovered;
    }
    int rc = converter.convert(image, softwareFrame.get(), changed);
    if (rc < 0) return rc;
    lastOverlay = QRect();
    if (!overlay.isNull()) {
        if (!convertOverlay(overlay, overlayAt, softwareFrame.get())) {
            // A layout the overlay can't go into directly: draw it into a copy of the picture instead.
            QImage covered = image.convertToFormat(QImage::Format_RGB32);
            QPainter painter(&covered);
            painter.setCompositionMode(QPainter::CompositionMode_Source);
            painter.drawImage(overlayAt, overlay);
            painter.end();
            rc = converter.convert(covered, softwareFrame.get());
            if (rc < 0) return rc;
        }
        lastOverlay = QRect(overlayAt, overlay.size());
    }
    AVFrame* input = softwareFrame.get();
    FramePtr hwFrame;
    if (hwFrames) {
        hwFrame.reset(av_frame_alloc());
        if (!hwFrame) return AVERROR(ENOMEM);
        rc = av_hwframe_get_buffer(hwFrames.get(), hwFrame.get(), 0);
        if (rc < 0) return rc;
        rc = av_hwframe_transfer_data(hwFrame.get(), softwareFrame.get(), 0);
        if (rc < 0) return rc;
        input = hwFrame.get();
    }
    input->pts = pts;
    input->pict_type = forceKeyFrame ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    rc = avcodec_send_frame(codec.get(), input);
    if (rc < 0) return rc;
    return drainEncoder(codec.get(), packet.get(), sink);
}

int VideoEncoder::finish(const PacketSink& sink)
{
    const int rc = avcodec_send_frame(codec.get(), nullptr);
    if (rc < 0) return rc;
    return drainEncoder(codec.get(), packet.get(), sink);
}
