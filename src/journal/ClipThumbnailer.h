#pragma once

#include "core/KeyedJobs.h"

#include <QHash>
#include <QImage>
#include <QObject>
#include <QSet>
#include <QSize>
#include <QUrl>

#include <functional>
#include <optional>

// Preview pictures of saved clips for the clips screen: a frame from the middle of each clip and
// its length, made in the background and kept until `prune` drops them. Nothing is written to disk.
//
// Main thread: startGenerate, prune, the cache and cacheChanged. Decoding runs on a low-priority
// pool and carries only the file's location.
class ClipThumbnailer : public QObject {
    Q_OBJECT
public:
    struct ClipPreview {
        QImage image; // at its own pixel size, at most maxSize
        double duration = minimumDuration; // seconds
    };
    // Makes the preview of one clip; blocking, called on the pool.
    using Generator = std::function<std::optional<ClipPreview>(const QUrl& url)>;

    static constexpr QSize maxSize { 640, 400 };
    static constexpr double minimumDuration = 0.1;
    // How far from the middle the frame may lie, which spares decoding to the exact time.
    static constexpr double frameTolerance = 0.4;

    explicit ClipThumbnailer(QObject* parent = nullptr);
    // With another way of making previews (a test's, wrapped around `generate`).
    explicit ClipThumbnailer(Generator generator, QObject* parent = nullptr);

    // Returns at once. Makes the clip's preview unless a job for it runs; a clip that can't be
    // decoded caches nothing, so the next request tries again.
    void startGenerate(const QUrl& url);
    // Drops every preview whose clip is not in `keeping`. Running jobs go on, and may add an entry
    // that the next prune drops.
    void prune(const QSet<QUrl>& keeping);

    std::optional<ClipPreview> preview(const QUrl& url) const;
    qsizetype cachedCount() const { return cache.size(); }
    bool isInFlight(const QUrl& url) const { return jobs.isRunning(url.toString()); }

    // Blocking. The frame in the middle of the clip, and its length (at least minimumDuration).
    // None for a file that isn't an intact MP4 with video.
    static std::optional<ClipPreview> generate(const QUrl& url);

signals:
    // A preview arrived for `url`.
    void cacheChanged(const QUrl& url);

private:
    Generator generator;
    QHash<QUrl, ClipPreview> cache;
    KeyedJobs jobs;
};
