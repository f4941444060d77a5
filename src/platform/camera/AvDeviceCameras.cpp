#include "platform/camera/AvDeviceCameras.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavutil/imgutils.h>
}

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

namespace {

void registerDevices()
{
    static std::once_flag once;
    std::call_once(once, [] { avdevice_register_all(); });
}

const AVInputFormat* v4l2Format()
{
    registerDevices();
    return av_find_input_format("video4linux2");
}

struct DeviceListDeleter {
    void operator()(AVDeviceInfoList* list) const { avdevice_free_list_devices(&list); }
};

// One open camera: demuxes and decodes on its own thread and hands each picture on as BGRA.
class AvDeviceStream : public CameraStream {
public:
    AvDeviceStream(InputFormatPtr input, CodecContextPtr decoder, int streamIndex, bool paced,
        CameraBackend::PictureSink onPicture, CameraBackend::LostSink onLost)
        : input(std::move(input))
        , decoder(std::move(decoder))
        , streamIndex(streamIndex)
        , paced(paced)
        , onPicture(std::move(onPicture))
        , onLost(std::move(onLost))
    {
        this->input->interrupt_callback = { &AvDeviceStream::interrupted, this };
        reader = std::thread([this] { run(); });
    }

    ~AvDeviceStream() override
    {
        {
            std::lock_guard hold(lock);
            stopping = true;
        }
        wake.notify_all();
        reader.join();
    }

private:
    static int interrupted(void* self) { return static_cast<AvDeviceStream*>(self)->stopping.load() ? 1 : 0; }

    void run()
    {
        PacketPtr packet(av_packet_alloc());
        FramePtr frame(av_frame_alloc());
        if (!packet || !frame) return onLost(QStringLiteral("out of memory"));
        const AVRational timeBase = input->streams[streamIndex]->time_base;
        std::optional<int64_t> firstPts;
        const auto started = std::chrono::steady_clock::now();
        while (!stopping) {
            const int rc = av_read_frame(input.get(), packet.get());
            if (stopping) return;
            if (rc < 0) {
                return onLost(rc == AVERROR_EOF ? QStringLiteral("it stopped sending pictures") : avErrorText(rc));
            }
            if (packet->stream_index != streamIndex) {
                av_packet_unref(packet.get());
                continue;
            }
            // A generated source makes its pictures as fast as it is read: hold each until its time.
            if (paced && packet->pts != AV_NOPTS_VALUE) {
                if (!firstPts) firstPts = packet->pts;
                const auto due = started
                    + std::chrono::microseconds(av_rescale_q(packet->pts - *firstPts, timeBase, { 1, 1000000 }));
                std::unique_lock hold(lock);
                if (wake.wait_until(hold, due, [this] { return stopping.load(); })) return;
            }
            int sent = avcodec_send_packet(decoder.get(), packet.get());
            av_packet_unref(packet.get());
            if (sent < 0 && sent != AVERROR(EAGAIN)) continue; // a damaged picture; the next one may do
            while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
                QImage picture = toImage(frame.get());
                av_frame_unref(frame.get());
                if (!picture.isNull()) onPicture(std::move(picture));
            }
        }
    }

    QImage toImage(const AVFrame* f)
    {
        if (f->width < 1 || f->height < 1) return {};
        scaler.reset(sws_getCachedContext(scaler.release(), f->width, f->height, AVPixelFormat(f->format), f->width,
            f->height, AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr));
        if (!scaler) return {};
        QImage image(f->width, f->height, QImage::Format_RGB32);
        if (image.isNull()) return {};
        uint8_t* dst[4] = { image.bits(), nullptr, nullptr, nullptr };
        const int dstStride[4] = { int(image.bytesPerLine()), 0, 0, 0 };
        sws_scale(scaler.get(), f->data, f->linesize, 0, f->height, dst, dstStride);
        return image;
    }

    InputFormatPtr input;
    CodecContextPtr decoder;
    int streamIndex;
    bool paced;
    CameraBackend::PictureSink onPicture;
    CameraBackend::LostSink onLost;
    SwsContextPtr scaler;
    std::mutex lock;
    std::condition_variable wake;
    std::atomic<bool> stopping { false };
    // Last member: started once everything above is in place.
    std::thread reader;
};

} // namespace

AvDeviceCameras::AvDeviceCameras(QByteArray testCameraGraph)
    : testGraph(std::move(testCameraGraph))
{
}

CameraBackend::Listing AvDeviceCameras::listDevices()
{
    Listing listing;
    if (!testGraph.isEmpty()) listing.devices.push_back({ testCameraID, testCameraName });
    const AVInputFormat* format = v4l2Format();
    if (!format) return listing;
    AVDeviceInfoList* raw = nullptr;
    const int rc = avdevice_list_input_sources(format, nullptr, nullptr, &raw);
    std::unique_ptr<AVDeviceInfoList, DeviceListDeleter> list(raw);
    // No /dev/video* at all is an empty list, not a failure.
    if (rc < 0 && rc != AVERROR(ENOENT)) {
        listing.error = avErrorText(rc);
        return listing;
    }
    if (!list) return listing;
    for (int i = 0; i < list->nb_devices; ++i) {
        const AVDeviceInfo* info = list->devices[i];
        const QString path = QString::fromUtf8(info->device_name);
        QString name = QString::fromUtf8(info->device_description).trimmed();
        if (name.isEmpty()) name = path;
        // Two cameras of one model carry one card name: the path tells them apart.
        for (const CameraDevice& other : listing.devices)
            if (other.name == name) name += QStringLiteral(" (%1)").arg(path);
        listing.devices.push_back({ path, name });
    }
    return listing;
}

CameraBackend::Opened AvDeviceCameras::open(const QString& uniqueID, PictureSink onPicture, LostSink onLost)
{
    registerDevices();
    const bool test = uniqueID == testCameraID;
    if (test && testGraph.isEmpty()) return { nullptr, Failure::other, QStringLiteral("there is no test camera") };
    const AVInputFormat* format = test ? av_find_input_format("lavfi") : v4l2Format();
    if (!format) return { nullptr, Failure::other, QStringLiteral("this FFmpeg has no camera input") };

    AVFormatContext* raw = nullptr;
    const QByteArray url = test ? testGraph : uniqueID.toUtf8();
    int rc = avformat_open_input(&raw, url.constData(), format, nullptr);
    InputFormatPtr input(raw);
    if (rc < 0) {
        const bool busy = rc == AVERROR(EBUSY);
        return { nullptr, busy ? Failure::busy : Failure::other, avErrorText(rc) };
    }
    const int streamIndex = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (streamIndex < 0) return { nullptr, Failure::other, QStringLiteral("it gives no pictures") };
    const AVCodecParameters* parameters = input->streams[streamIndex]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    if (!codec) return { nullptr, Failure::other, QStringLiteral("its picture format can't be read") };
    CodecContextPtr decoder(avcodec_alloc_context3(codec));
    if (!decoder) return { nullptr, Failure::other, QStringLiteral("out of memory") };
    rc = avcodec_parameters_to_context(decoder.get(), parameters);
    if (rc >= 0) rc = avcodec_open2(decoder.get(), codec, nullptr);
    if (rc < 0) return { nullptr, Failure::other, avErrorText(rc) };
    auto stream = std::make_unique<AvDeviceStream>(
        std::move(input), std::move(decoder), streamIndex, test, std::move(onPicture), std::move(onLost));
    return { std::move(stream), Failure::none, {} };
}
