#pragma once

#include "capture/FrameScaler.h"
#include "core/Guarded.h"
#include "platform/CaptureBackend.h"

#include <QImage>
#include <QPoint>
#include <QRect>
#include <QSize>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>

struct pw_buffer;
struct pw_thread_loop;
struct pw_context;
struct pw_core;
struct pw_stream;
struct spa_buffer;
struct spa_pod;
struct spa_source;

// One screen stream read from a PipeWire node that the desktop portal shared, on a PipeWire
// thread loop of its own.
//
// Shared memory (MemFd, MemPtr) or a DMA-BUF in the linear layout, in BGRx, BGRA, RGBx or RGBA: the
// DMA-BUF formats are offered first, with the one modifier the processor can read (LINEAR), and the
// shared memory formats after them as the fallback. A DMA-BUF's plane is mapped once, when PipeWire
// lends the stream the buffer, and each read is bracketed by the kernel's DMA-BUF sync calls; the
// pictures are always read by the processor, never imported into a GPU. Whatever the desktop sends is
// turned into the BGRX pictures of the frame path on this thread, cropped to the region the
// buffer's crop metadata names, fitted into the output size and handed to the StreamOutput, as the
// X11 stream does; a region (the configuration's sourceRect) is a crop of that picture. A chunk stride of 0 means width
// x 4. The desktop sends a buffer only when the screen changed, so a still screen costs nothing here. Buffers that come
// closer together than the configuration's frame interval are not delivered at once: the newest waits for the
// interval's end, so the last picture of a burst is never lost.
//
// With the cursor sent beside the pictures (the session's cursor mode "metadata"), each buffer may
// carry the cursor's place and, when it changed, its bitmap; the cursor is drawn into the pictures
// handed on when the configuration shows it, at its place within the region. A buffer that brings
// only a cursor move (no picture: a chunk of size 0, or one marked corrupted) hands on the last
// picture again with the cursor at its new place, its changes the old and the new cursor's
// rectangles. The pictures for single grabs never carry the cursor.
class PipeWireCaptureStream : public CaptureStream {
public:
    // Called on the PipeWire thread with each picture at the stream's own size, before fitting.
    using PictureSink = std::function<void(const QImage&)>;
    // The cursor's shape, kept for a session beyond any one of its streams: a desktop sends the
    // bitmap when the shape changes, and need not send it again to a new reader of the same node.
    struct CursorShape {
        QImage bitmap; // premultiplied ARGB; null: nothing to draw
        QPoint hotspot; // within the bitmap
    };
    using CursorMemory = Guarded<CursorShape>;

    // Any thread but a stream's own. Connects through `fd` (a PipeWire socket from the portal;
    // taken over, closed with the stream) to `nodeId`. Fails at once if PipeWire does not answer
    // on it; a node that goes away later ends the stream through the output.
    // `cursorMemory`: the session sends the cursor beside the pictures, and its last shape is kept
    // there; null when it does not.
    static CaptureBackend::StreamStart start(int fd, uint32_t nodeId, const StreamConfiguration& configuration,
        std::shared_ptr<CursorMemory> cursorMemory, std::shared_ptr<const StreamOutput> output,
        PictureSink pictures = {});
    ~PipeWireCaptureStream() override;

    // The reason the stream ends with when the PipeWire server goes away (it may come back).
    static const QString serverLostReason;

    // Any thread but its own PipeWire thread. Disconnects and stops the thread loop; no callback
    // runs after it returns.
    void stop() override;
    // Any thread. The stream has ended outside PipeWire (the desktop closed the session): reported
    // once through the output, and no frame is delivered after it.
    void end(const QString& reason);

private:
    PipeWireCaptureStream() = default;

    // All of these run on the PipeWire thread.
    void stateChanged(int state, const char* error);
    void formatChanged(const spa_pod* format);
    void process();
    void addBuffer(pw_buffer* buffer);
    void removeBuffer(pw_buffer* buffer);
    void coreError(uint32_t id, int result, const char* message);
    // Whether the buffer's cursor metadata changed what a shown cursor looks like or where it is.
    bool readCursor(const spa_buffer* buffer);
    // The buffer's picture becomes `clean`; false if it has none that can be read.
    bool takePicture(const pw_buffer* buffer);
    struct Plane {
        const uchar* bits = nullptr; // null: nothing to read
        size_t length = 0; // from `bits` on
    };
    // The buffer's first plane as the processor reads it.
    Plane plane(const pw_buffer* buffer) const;
    void deliverPending();
    void deliver(int64_t at);
    // DMA-BUFs came that cannot be read here (no memory behind them, or none that maps): the
    // formats are offered again without them, once, so that the desktop sends shared memory.
    void refuseDmaBufs();

    StreamConfiguration configuration;
    std::shared_ptr<const StreamOutput> output;
    PictureSink pictures;
    pw_thread_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_stream* stream = nullptr;
    spa_source* frameTimer = nullptr;
    struct Listeners;
    std::unique_ptr<Listeners> listeners;
    // A DMA-BUF plane mapped for reading, for as long as PipeWire lends the stream its buffer.
    bool dmaBufsRefused = false; // PipeWire thread
    struct PlaneMapping {
        PlaneMapping(int fd, size_t length);
        PlaneMapping(const PlaneMapping&) = delete;
        PlaneMapping& operator=(const PlaneMapping&) = delete;
        ~PlaneMapping();
        void* base = nullptr; // null if the file could not be mapped, for the reason in `error`
        size_t length = 0;
        int error = 0;
    };

    // Owned by the PipeWire thread once it runs.
    std::map<const pw_buffer*, PlaneMapping> mappings; // the DMA-BUFs PipeWire lent us, mapped
    QSize size;
    uint32_t format = 0;
    bool dmaBuf = false; // the format carries a modifier: the buffers are DMA-BUFs
    bool syncRefused = false; // a DMA-BUF sync call failed once (said once in the log)
    bool streamed = false;
    std::shared_ptr<CursorMemory> cursorMemory;
    FrameScaler scaler;
    int64_t lastDelivered = 0;
    QImage clean; // the newest picture at the stream's size, without the cursor
    bool pictureChanged = false; // since the last frame handed on
    bool owed = false; // something to hand on: a new picture, or a shown cursor that changed
    bool timerArmed = false;
    struct Cursor : CursorShape {
        bool visible = false;
        QPoint position; // of the hotspot, in the picture as the desktop cropped it
    } cursor;
    QRect deliveredCursor; // where the last frame handed on shows the cursor, before fitting
    uint64_t framesDelivered = 0;
    std::atomic<bool> ended { false };
    std::atomic<bool> stopped { false };
};
