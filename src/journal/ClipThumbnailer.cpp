#include "journal/ClipThumbnailer.h"

#include "journal/ClipFrameReader.h"

#include <algorithm>

ClipThumbnailer::ClipThumbnailer(QObject* parent)
    : ClipThumbnailer(&ClipThumbnailer::generate, parent)
{
}

ClipThumbnailer::ClipThumbnailer(Generator generate, QObject* parent)
    : QObject(parent)
    , generator(std::move(generate))
{
}

void ClipThumbnailer::startGenerate(const QUrl& url)
{
    jobs.start(
        url.toString(), [make = generator, url] { return make(url); },
        [this, url](std::optional<ClipPreview> made) {
            if (!made) return;
            cache.insert(url, *made);
            emit cacheChanged(url);
        });
}

void ClipThumbnailer::prune(const QSet<QUrl>& keeping)
{
    for (auto it = cache.begin(); it != cache.end();)
        it = keeping.contains(it.key()) ? std::next(it) : cache.erase(it);
}

std::optional<ClipThumbnailer::ClipPreview> ClipThumbnailer::preview(const QUrl& url) const
{
    const auto it = cache.constFind(url);
    if (it == cache.constEnd()) return std::nullopt;
    return *it;
}

std::optional<ClipThumbnailer::ClipPreview> ClipThumbnailer::generate(const QUrl& url)
{
    ClipFrameReader reader(url.toLocalFile());
    if (!reader.isOpen()) return std::nullopt;
    const double duration = std::max(reader.duration(), minimumDuration);
    std::optional<QImage> image = reader.frameAt(duration * 0.5, maxSize, frameTolerance);
    if (!image) return std::nullopt;
    return ClipPreview { *image, duration };
}
