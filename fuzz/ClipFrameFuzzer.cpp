// A damaged clip: the clips screen's thumbnailer reads its middle frame or gives nothing, in
// bounded time. A preview it gives is a picture within the preview size, with a finite length of
// at least the minimum.
#include "FuzzSupport.h"
#include "journal/ClipThumbnailer.h"

#include <QDir>
#include <QUrl>

#include <cmath>
#include <cstddef>
#include <cstdint>

extern "C" {
#include <libavutil/log.h>
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    av_log_set_level(AV_LOG_QUIET);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QString clip = QDir(FuzzSupport::scratch().path()).filePath(QStringLiteral("clip.mp4"));
    FuzzSupport::writeFile(clip, bytes);

    const std::optional<ClipThumbnailer::ClipPreview> preview = ClipThumbnailer::generate(QUrl::fromLocalFile(clip));
    if (!preview) return 0;
    const QSize picture = preview->image.size();
    FUZZ_CHECK(!preview->image.isNull(), QByteArray("a preview without a picture"));
    FUZZ_CHECK(
        picture.width() <= ClipThumbnailer::maxSize.width() && picture.height() <= ClipThumbnailer::maxSize.height(),
        QByteArray::number(picture.width()) + 'x' + QByteArray::number(picture.height()));
    FUZZ_CHECK(std::isfinite(preview->duration) && preview->duration >= ClipThumbnailer::minimumDuration,
        QByteArray::number(preview->duration));
    return 0;
}
