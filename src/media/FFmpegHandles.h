#pragma once

// Owning handles for the FFmpeg objects the program uses: each is a std::unique_ptr whose deleter
// calls the matching free function, so that every early return releases what was made.

#include <QString>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/buffer.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <functional>
#include <memory>

struct CodecContextDeleter {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameDeleter {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketDeleter {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct SwsDeleter {
    void operator()(SwsContext* s) const { sws_freeContext(s); }
};
struct SwrDeleter {
    void operator()(SwrContext* s) const { swr_free(&s); }
};
struct AudioFifoDeleter {
    void operator()(AVAudioFifo* f) const { av_audio_fifo_free(f); }
};
struct BufferRefDeleter {
    void operator()(AVBufferRef* b) const { av_buffer_unref(&b); }
};
struct DictionaryDeleter {
    void operator()(AVDictionary* d) const { av_dict_free(&d); }
};
// A demuxer opened with avformat_open_input.
struct InputFormatDeleter {
    void operator()(AVFormatContext* f) const { avformat_close_input(&f); }
};
// A muxer from avformat_alloc_output_context2; closes its file too if one was opened.
struct OutputFormatDeleter {
    void operator()(AVFormatContext* f) const
    {
        if (!f) return;
        if (f->pb && !(f->oformat->flags & AVFMT_NOFILE)) avio_closep(&f->pb);
        avformat_free_context(f);
    }
};

using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using SwsContextPtr = std::unique_ptr<SwsContext, SwsDeleter>;
using SwrContextPtr = std::unique_ptr<SwrContext, SwrDeleter>;
using AudioFifoPtr = std::unique_ptr<AVAudioFifo, AudioFifoDeleter>;
using BufferRefPtr = std::unique_ptr<AVBufferRef, BufferRefDeleter>;
using DictionaryPtr = std::unique_ptr<AVDictionary, DictionaryDeleter>;
using InputFormatPtr = std::unique_ptr<AVFormatContext, InputFormatDeleter>;
using OutputFormatPtr = std::unique_ptr<AVFormatContext, OutputFormatDeleter>;

// The text of an FFmpeg error code, for logs and failure values.
QString avErrorText(int errnum);

// Opens `path` for demuxing, reading only the container's headers (no probing decode). Null on
// failure, with the reason in *error when given.
InputFormatPtr openInput(const QString& path, QString* error = nullptr);

// Where an encoder's packets go; a negative result stops the drain and is passed back.
using PacketSink = std::function<int(AVPacket* packet)>;

// Hands every packet the encoder has ready to `sink`, reusing `packet`. 0 when the encoder wants
// more input or has ended, otherwise the first error.
int drainEncoder(AVCodecContext* codec, AVPacket* packet, const PacketSink& sink);
