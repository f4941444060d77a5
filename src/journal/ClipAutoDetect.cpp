#include "journal/ClipAutoDetect.h"

#include "journal/ClipFrameReader.h"
#include "media/FFmpegHandles.h"

#include <algorithm>
#include <cmath>

namespace ClipAutoDetect {

namespace {

// Bytes of room after each row of a picture that swscale writes into.
constexpr int scalerSlack = 64;

// Decoded frames come at their full size: the crop needs the clip's own pixels.
const QSize fullSize(1 << 15, 1 << 15);

// The crop of the frame at `secondsFromEnd` before the end, enlarged for the recogniser; nothing
// when the clip is shorter than that, the frame can't be had or the crop lies outside it.
std::optional<QImage> snapshotCrop(ClipFrameReader& reader, double secondsFromEnd, const QRectF& cropRect,
    const QSizeF& sourcePointSize, const QSizeF& recordedPixelSize)
{
    const double duration = reader.duration();
    if (!(duration > 0)) return std::nullopt;
    const double time = duration - secondsFromEnd;
    if (time < 0) return std::nullopt;
    const auto frame = reader.frameAt(time, fullSize, frameTolerance);
    if (!frame) return std::nullopt;
    const auto crop = cropInImage(cropRect, sourcePointSize, recordedPixelSize, frame->size());
    if (!crop) return std::nullopt;
    const QImage cropped = frame->copy(*crop);
    if (cropped.isNull()) return std::nullopt;
    return upscaleForOCR(cropped);
}

} // namespace

std::optional<QRect> cropInImage(
    const QRectF& cropRect, const QSizeF& sourcePointSize, const QSizeF& recordedPixelSize, QSize imageSize)
{
    if (!(sourcePointSize.width() > 0 && sourcePointSize.height() > 0 && recordedPixelSize.width() > 0
            && recordedPixelSize.height() > 0))
        return std::nullopt;
    const double scaleX = recordedPixelSize.width() / sourcePointSize.width();
    const double scaleY = recordedPixelSize.height() / sourcePointSize.height();
    const double left = cropRect.x() * scaleX;
    const double top = cropRect.y() * scaleY;
    const double right = left + cropRect.width() * scaleX;
    const double bottom = top + cropRect.height() * scaleY;
    if (!std::isfinite(left) || !std::isfinite(top) || !std::isfinite(right) || !std::isfinite(bottom))
        return std::nullopt;
    // The smallest whole-pixel rectangle that holds the area, then only what the picture has of it.
    const double x0 = std::max(std::floor(std::min(left, right)), 0.0);
    const double y0 = std::max(std::floor(std::min(top, bottom)), 0.0);
    const double x1 = std::min(std::ceil(std::max(left, right)), double(imageSize.width()));
    const double y1 = std::min(std::ceil(std::max(top, bottom)), double(imageSize.height()));
    if (!(x1 - x0 > 4) || !(y1 - y0 > 4)) return std::nullopt;
    return QRect(int(x0), int(y0), int(x1 - x0), int(y1 - y0));
}

QImage upscaleForOCR(const QImage& image, int minHeight, int maxScale)
{
    // The recogniser reads gray; a gray picture is also a quarter of the pixels to resample.
    const QImage gray = image.convertToFormat(QImage::Format_Grayscale8);
    const int height = gray.height();
    if (height <= 0 || height >= minHeight) return gray;
    const int factor = (minHeight + height - 1) / height;
    const int scale = std::max(std::min(factor, maxScale), 1);
    if (scale == 1) return gray;
    const int outWidth = gray.width() * scale;
    const int outHeight = height * scale;
    SwsContextPtr scaler(sws_getContext(gray.width(), height, AV_PIX_FMT_GRAY8, outWidth, outHeight, AV_PIX_FMT_GRAY8,
        SWS_LANCZOS, nullptr, nullptr, nullptr));
    if (!scaler) return gray;
    // swscale's vector code may write a little past the end of a row and of the last one: it gets
    // a picture with room to spare on both, and the result is the part asked for.
    QImage out(outWidth + scalerSlack, outHeight + 2, QImage::Format_Grayscale8);
    if (out.isNull()) return gray;
    const uint8_t* source[4] = { gray.constBits(), nullptr, nullptr, nullptr };
    const int sourceStrides[4] = { int(gray.bytesPerLine()), 0, 0, 0 };
    uint8_t* destination[4] = { out.bits(), nullptr, nullptr, nullptr };
    const int destinationStrides[4] = { int(out.bytesPerLine()), 0, 0, 0 };
    if (sws_scale(scaler.get(), source, sourceStrides, 0, height, destination, destinationStrides) <= 0) return gray;
    return out.copy(0, 0, outWidth, outHeight);
}

QStringList readingOrder(QList<RecognizedLine> lines)
{
    // Higher rows first (the boxes' origin is at the bottom), then left to right within a row.
    std::stable_sort(lines.begin(), lines.end(), [](const RecognizedLine& a, const RecognizedLine& b) {
        const double midA = a.box.center().y();
        const double midB = b.box.center().y();
        if (std::fabs(midA - midB) > sameRowTolerance) return midA > midB;
        return a.box.left() < b.box.left();
    });
    QStringList texts;
    texts.reserve(lines.size());
    for (const RecognizedLine& line : lines)
        texts << line.text;
    return texts;
}

std::optional<Result> detect(const QString& clip, const QRectF& cropRect, const QSizeF& sourcePointSize,
    const QSizeF& recordedPixelSize, TextRecognizer& recognizer)
{
    if (!(sourcePointSize.width() > 0 && sourcePointSize.height() > 0 && recordedPixelSize.width() > 0
            && recordedPixelSize.height() > 0))
        return std::nullopt;
    ClipFrameReader reader(clip);
    if (!reader.isOpen()) return std::nullopt;
    return PnLTextParser::choose(int(snapshotOffsets.size()), [&](int index) -> std::optional<QStringList> {
        const auto image
            = snapshotCrop(reader, snapshotOffsets[size_t(index)], cropRect, sourcePointSize, recordedPixelSize);
        if (!image) return std::nullopt;
        return readingOrder(recognizer.recognize(*image));
    });
}

QString ocrPreview(const QString& clip, const QRectF& cropRect, const QSizeF& sourcePointSize,
    const QSizeF& recordedPixelSize, TextRecognizer& recognizer)
{
    ClipFrameReader reader(clip);
    if (!reader.isOpen()) return {};
    const auto image = snapshotCrop(reader, snapshotOffsets.front(), cropRect, sourcePointSize, recordedPixelSize);
    if (!image) return {};
    QString text = readingOrder(recognizer.recognize(*image)).join(QStringLiteral(" \u00B7 "));
    if (text.size() > previewMaxLength) text = text.left(previewMaxLength - 3) + QStringLiteral("\u2026");
    return text;
}

bool isTagged(const ClipMeta& meta)
{
    return meta.outcome != TradeOutcome::unset || meta.pnl.has_value();
}

ClipMeta withResult(ClipMeta meta, const Result& result)
{
    meta.outcome = result.outcome;
    meta.pnl = result.pnl;
    meta.tagOrigin = TagOrigin::detected;
    return meta;
}

QString summary(const Result& result)
{
    return (result.outcome == TradeOutcome::loss ? QStringLiteral("-") : QString())
        + QString::asprintf("%.2f", result.pnl) + QStringLiteral(" (") + label(result.outcome).toLower()
        + QStringLiteral(")");
}

} // namespace ClipAutoDetect
