#include "platform/x11/XcbImageGrabber.h"

#include "platform/x11/XcbSharedSegment.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <vector>

struct XcbImageGrabber::Segment {
    xcb_shm_seg_t id = 0;
    uchar* address = nullptr;
    size_t bytes = 0;
    std::shared_ptr<Pool> pool;
};

// Shared by the grabber and every image that is out: images may outlive the grabber.
struct XcbImageGrabber::Pool {
    std::mutex mutex;
    xcb_connection_t* connection = nullptr; // guarded by mutex; null once the grabber has gone
    std::vector<Segment*> all; // guarded by mutex; while the grabber lives
    std::vector<Segment*> idle; // guarded by mutex
};

XcbImageGrabber::XcbImageGrabber(xcb_connection_t* connection, bool useShm, int segmentLimit, WhenPoolIsFull whenFull)
    : connection(connection)
    , shmWanted(useShm)
    , segmentLimit(segmentLimit)
    , whenFull(whenFull)
    , pool(std::make_shared<Pool>())
{
    pool->connection = connection;
}

XcbImageGrabber::~XcbImageGrabber()
{
    std::lock_guard lock(pool->mutex);
    // The server lets go of every segment now; the memory of those still held by images goes
    // when the last of them is released.
    for (Segment* s : pool->all)
        xcb_shm_detach(connection, s->id);
    for (Segment* s : pool->idle) {
        XcbSharedSegment::unmap(s->address);
        delete s;
    }
    pool->idle.clear();
    pool->all.clear();
    pool->connection = nullptr;
}

XcbImageGrabber::Segment* XcbImageGrabber::makeSegment(size_t bytes)
{
    const auto shared = XcbSharedSegment::attach(connection, bytes);
    if (!shared) return nullptr;
    auto* segment = new Segment { shared->id, shared->address, bytes, pool };
    pool->all.push_back(segment);
    return segment;
}

XcbImageGrabber::Segment* XcbImageGrabber::takeSegment(size_t bytes)
{
    std::lock_guard lock(pool->mutex);
    while (!pool->idle.empty()) {
        Segment* s = pool->idle.back();
        pool->idle.pop_back();
        if (s->bytes >= bytes) return s;
        // Too small after a resize: let it go.
        xcb_shm_detach(connection, s->id);
        pool->all.erase(std::find(pool->all.begin(), pool->all.end(), s));
        XcbSharedSegment::unmap(s->address);
        delete s;
    }
    if (int(pool->all.size()) >= segmentLimit) return nullptr;
    Segment* s = makeSegment(bytes);
    // A server that cannot map our memory never will: no more tries.
    if (!s && pool->all.empty()) shmWanted = false;
    return s;
}

void XcbImageGrabber::returnSegment(void* raw)
{
    auto* segment = static_cast<Segment*>(raw);
    std::shared_ptr<Pool> pool = segment->pool;
    std::lock_guard lock(pool->mutex);
    if (pool->connection) {
        pool->idle.push_back(segment);
        return;
    }
    XcbSharedSegment::unmap(segment->address);
    segment->pool.reset();
    delete segment;
}

std::optional<QImage> XcbImageGrabber::grab(xcb_drawable_t drawable, const QRect& rect)
{
    const std::optional<Request> request = ask(drawable, rect);
    return request ? take(*request) : std::nullopt;
}

std::optional<XcbImageGrabber::Request> XcbImageGrabber::ask(xcb_drawable_t drawable, const QRect& rect)
{
    if (rect.isEmpty()) return std::nullopt;
    const size_t bytes = size_t(rect.width()) * size_t(rect.height()) * 4;
    Segment* segment = shmWanted ? takeSegment(bytes) : nullptr;
    if (!segment && shmWanted && whenFull == WhenPoolIsFull::skip) return std::nullopt;
    const auto x = int16_t(rect.x());
    const auto y = int16_t(rect.y());
    const auto width = uint16_t(rect.width());
    const auto height = uint16_t(rect.height());
    if (segment)
        return Request { xcb_shm_get_image(
                             connection, drawable, x, y, width, height, ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, segment->id, 0)
                             .sequence,
            rect, segment };
    return Request { xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, x, y, width, height, ~0u).sequence,
        rect, nullptr };
}

std::optional<QImage> XcbImageGrabber::take(const Request& request)
{
    const QRect& rect = request.rect;
    xcb_generic_error_t* rawError = nullptr;
    if (Segment* segment = request.segment) {
        XcbReply<xcb_shm_get_image_reply_t> reply(
            xcb_shm_get_image_reply(connection, xcb_shm_get_image_cookie_t { request.sequence }, &rawError));
        XcbReply<xcb_generic_error_t> error(rawError);
        if (!reply) {
            returnSegment(segment);
            return std::nullopt;
        }
        return QImage(segment->address, rect.width(), rect.height(), rect.width() * 4, QImage::Format_RGB32,
            &XcbImageGrabber::returnSegment, segment);
    }
    xcb_get_image_reply_t* reply
        = xcb_get_image_reply(connection, xcb_get_image_cookie_t { request.sequence }, &rawError);
    XcbReply<xcb_generic_error_t> error(rawError);
    if (!reply) return std::nullopt;
    if (size_t(xcb_get_image_data_length(reply)) < size_t(rect.width()) * size_t(rect.height()) * 4) {
        std::free(reply);
        return std::nullopt;
    }
    // The image keeps the reply and frees it with its last copy.
    return QImage(
        xcb_get_image_data(reply), rect.width(), rect.height(), rect.width() * 4, QImage::Format_RGB32,
        [](void* r) { std::free(r); }, reply);
}

void XcbImageGrabber::abandon(const Request& request)
{
    // The server may be writing into the segment still: it goes back to the pool once the answer
    // is in.
    take(request);
}
