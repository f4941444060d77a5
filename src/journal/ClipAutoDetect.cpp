#include "journal/ClipAutoDetect.h"

#include "journal/ClipFrameReader.h"
#include "media/FFmpegHandles.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace ClipAutoDetect {

namespace {

// Bytes of room after each row of a picture that swscale writes into.
constexpr int scalerSlack = 64;

// Decoded frames come at their full size: the crop needs the clip's own pixels.
const QSize fullSize(1 << 15, 1 << 15);

// The crop of the frame at `secondsFromEnd` before the end, as the clip has it; nothing when the
// clip is shorter than that, the frame can't be had or the crop lies outside it.
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
    const QImage cropped = frame->copy(*crop).convertToFormat(QImage::Format_Grayscale8);
    if (cropped.isNull()) return std::nullopt;
    return cropped;
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

namespace {

// Otsu: the threshold with the largest variance between the two classes of gray it makes.
int twoToneThreshold(const QImage& gray)
{
    std::array<double, 256> histogram {};
    for (int y = 0; y < gray.height(); ++y) {
        const uchar* row = gray.constScanLine(y);
        for (int x = 0; x < gray.width(); ++x)
            ++histogram[row[x]];
    }
    const double total = double(gray.width()) * gray.height();
    double sum = 0;
    for (int i = 0; i < 256; ++i)
        sum += i * histogram[size_t(i)];
    double below = 0, sumBelow = 0, best = -1;
    int threshold = 127;
    for (int t = 0; t < 256; ++t) {
        below += histogram[size_t(t)];
        if (below == 0) continue;
        const double above = total - below;
        if (above == 0) break;
        sumBelow += t * histogram[size_t(t)];
        const double meanBelow = sumBelow / below;
        const double meanAbove = (sum - sumBelow) / above;
        const double between = below * above * (meanBelow - meanAbove) * (meanBelow - meanAbove);
        if (between > best) {
            best = between;
            threshold = t;
        }
    }
    return threshold;
}

// Whether the ground is the dark tone: what the edge of the picture mostly shows.
bool hasDarkGround(const QImage& gray, int threshold)
{
    const int width = gray.width();
    const int height = gray.height();
    int darkEdge = 0, edge = 0;
    for (int x = 0; x < width; ++x) {
        darkEdge += (gray.constScanLine(0)[x] <= threshold) + (gray.constScanLine(height - 1)[x] <= threshold);
        edge += 2;
    }
    for (int y = 0; y < height; ++y) {
        darkEdge += (gray.constScanLine(y)[0] <= threshold) + (gray.constScanLine(y)[width - 1] <= threshold);
        edge += 2;
    }
    return 2 * darkEdge > edge;
}

} // namespace

QImage binariseForOCR(const QImage& image)
{
    const QImage gray = image.convertToFormat(QImage::Format_Grayscale8);
    const int width = gray.width();
    const int height = gray.height();
    if (width == 0 || height == 0) return gray;
    const int threshold = twoToneThreshold(gray);
    const bool darkGround = hasDarkGround(gray, threshold);
    constexpr int margin = binaryMargin;
    QImage out(width + 2 * margin, height + 2 * margin, QImage::Format_Grayscale8);
    out.fill(255);
    for (int y = 0; y < height; ++y) {
        const uchar* in = gray.constScanLine(y);
        uchar* row = out.scanLine(y + margin) + margin;
        for (int x = 0; x < width; ++x) {
            const bool dark = in[x] <= threshold;
            row[x] = dark != darkGround ? 0 : 255;
        }
    }
    return out;
}

QImage darkOnLightForOCR(const QImage& image)
{
    QImage gray = image.convertToFormat(QImage::Format_Grayscale8);
    if (gray.width() == 0 || gray.height() == 0) return gray;
    if (hasDarkGround(gray, twoToneThreshold(gray))) gray.invertPixels();
    QImage out(gray.width() + 2 * binaryMargin, gray.height() + 2 * binaryMargin, QImage::Format_Grayscale8);
    // The margin in the ground's own tone, as the edge shows it.
    out.fill(gray.constScanLine(0)[0]);
    for (int y = 0; y < gray.height(); ++y)
        std::memcpy(out.scanLine(y + binaryMargin) + binaryMargin, gray.constScanLine(y), size_t(gray.width()));
    return out;
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

Detection detect(const QString& clip, const QRectF& cropRect, const QSizeF& sourcePointSize,
    const QSizeF& recordedPixelSize, TextRecognizer& recognizer)
{
    if (!(sourcePointSize.width() > 0 && sourcePointSize.height() > 0 && recordedPixelSize.width() > 0
            && recordedPixelSize.height() > 0))
        return {};
    ClipFrameReader reader(clip);
    if (!reader.isOpen()) return {};
    // The frame being looked at, enlarged, and black on white, for the readings after the first.
    QImage enlarged;
    QImage binary;
    const PnLTextParser::Choice choice = PnLTextParser::choose(
        int(snapshotOffsets.size()),
        [&](int index) -> std::optional<QStringList> {
            const auto crop
                = snapshotCrop(reader, snapshotOffsets[size_t(index)], cropRect, sourcePointSize, recordedPixelSize);
            if (!crop) return std::nullopt;
            enlarged = upscaleForOCR(*crop);
            binary = binariseForOCR(enlarged);
            return readingOrder(recognizer.recognize(binary));
        },
        [&](int, const PnLTextParser::Candidate& candidate) {
            // The same picture, but a reader held to the characters of amounts: a thin minus that
            // the first took for a quote or a dash of its own is a minus here, or a dispute.
            if (!PnLTextParser::confirms(readingOrder(recognizer.recognizeAmount(binary)), candidate)) return false;
            // A small minus that touches the next glyph ("-€45.10" at 12 pixels) joins it in the
            // threshold and vanishes from both readings alike: a win is also read off the gray
            // picture, which keeps the seam, and a minus seen there makes it a dispute.
            if (candidate.value <= PnLTextParser::zeroTolerance) return true;
            return !PnLTextParser::contradicts(
                readingOrder(recognizer.recognizeAmount(darkOnLightForOCR(enlarged))), candidate);
        });
    return Detection { choice.result, choice.disputed };
}

QString ocrPreview(const QString& clip, const QRectF& cropRect, const QSizeF& sourcePointSize,
    const QSizeF& recordedPixelSize, TextRecognizer& recognizer)
{
    ClipFrameReader reader(clip);
    if (!reader.isOpen()) return {};
    const auto image = snapshotCrop(reader, snapshotOffsets.front(), cropRect, sourcePointSize, recordedPixelSize);
    if (!image) return {};
    QString text
        = readingOrder(recognizer.recognize(binariseForOCR(upscaleForOCR(*image)))).join(QStringLiteral(" \u00B7 "));
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
