#pragma once

#include "capture/CaptureSource.h"
#include "core/KeyedJobs.h"

#include <QHash>
#include <QImage>
#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

class CaptureBackend;

// Pictures of capture sources for the source picker: a display or one window, grabbed once in the
// background and kept, keyed by the source's id, for as long as this object lives (a picture does
// not refresh while it stays). Nothing is written to disk.
//
// Main thread: startGrab, the cache and cacheChanged. The grab itself runs on a low-priority pool
// and carries only a GrabSpec, no capture object.
class SourceThumbnailer : public QObject {
    Q_OBJECT
public:
    // What a grab needs, as plain values.
    struct GrabSpec {
        enum class Kind { display, window };
        Kind kind = Kind::display;
        int width = 0; // display: its size
        int height = 0;
        uint32_t windowID = 0; // window
    };

    explicit SourceThumbnailer(std::shared_ptr<CaptureBackend> backend, QObject* parent = nullptr);

    // Returns at once. Grabs the source unless a grab for it runs; a failed grab caches nothing, so
    // the next request tries again.
    void startGrab(const CaptureSource& source);

    // The picture of a source id, null until one has arrived.
    QImage image(const QString& sourceId) const { return cache.value(sourceId); }
    bool isInFlight(const QString& sourceId) const { return jobs.isRunning(sourceId); }

    // A window source grabs its window; a display or region source the whole display's size.
    static GrabSpec grabSpec(const CaptureSource& source);
    // Blocking. A display is the rectangle of its size at the origin of global display space, a
    // window its own pixels without the frame the window manager adds. None on failure.
    static std::optional<QImage> grab(CaptureBackend& backend, const GrabSpec& spec);

signals:
    // A picture arrived for `sourceId`.
    void cacheChanged(const QString& sourceId);

private:
    std::shared_ptr<CaptureBackend> backend;
    QHash<QString, QImage> cache;
    KeyedJobs jobs;
};
