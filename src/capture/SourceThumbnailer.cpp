#include "capture/SourceThumbnailer.h"

#include "platform/CaptureBackend.h"

SourceThumbnailer::SourceThumbnailer(std::shared_ptr<CaptureBackend> screen, QObject* parent)
    : QObject(parent)
    , backend(std::move(screen))
{
}

SourceThumbnailer::GrabSpec SourceThumbnailer::grabSpec(const CaptureSource& source)
{
    GrabSpec spec;
    if (source.kind() == CaptureSource::Kind::window) {
        spec.kind = GrabSpec::Kind::window;
        spec.windowID = source.capturedWindow().windowID;
    } else {
        spec.width = source.capturedDisplay().width;
        spec.height = source.capturedDisplay().height;
    }
    return spec;
}

std::optional<QImage> SourceThumbnailer::grab(CaptureBackend& backend, const GrabSpec& spec)
{
    if (spec.kind == GrabSpec::Kind::window) return backend.grabWindowRect(spec.windowID, std::nullopt);
    // Every display is taken at the origin of global space, whatever its place: a second display
    // shows what the first one shows there.
    return backend.grabRect(QRectF(0, 0, spec.width, spec.height));
}

void SourceThumbnailer::startGrab(const CaptureSource& source)
{
    if (!backend) return;
    const GrabSpec spec = grabSpec(source);
    jobs.start(
        source.id(), [screen = backend, spec] { return grab(*screen, spec); },
        [this, key = source.id()](std::optional<QImage> picture) {
            if (!picture || picture->isNull()) return;
            cache.insert(key, *picture);
            emit cacheChanged(key);
        });
}
