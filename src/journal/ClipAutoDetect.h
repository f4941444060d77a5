#pragma once

#include "journal/ClipMeta.h"
#include "journal/PnLTextParser.h"
#include "platform/TextRecognizer.h"

#include <QImage>
#include <QList>
#include <QRect>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QStringList>

#include <array>
#include <optional>

// Reads the profit-and-loss figure of a saved clip off its last moments: decodes a frame near the
// end, crops it to the watched area, enlarges a small crop, has the recogniser read the lines and
// lets PnLTextParser pick the figure. Earlier frames are tried when a frame shows no figure, or only
// a zero, since the panel may have been covered or not yet updated at the very end.
//
// The crop is enlarged before it is made black and white (so that a minus one pixel thin becomes a
// bar several pixels thick instead of vanishing in the threshold), and always black text on white,
// whether the panel is dark or light. A figure is read twice before it counts: once as text, once
// with only the characters of amounts allowed, and a win once more off the gray picture, where a
// minus that the threshold joined to the next glyph still stands apart. When the readings disagree
// on the sign or the digits the clip gets no figure: a journal that silently books a loss as a win
// is worse than one that asks.
//
// Blocking and CPU-heavy: call it on a worker thread, with a recogniser of that thread. No state of
// its own; touches no file but the clip, which it only reads.
namespace ClipAutoDetect {

using Result = PnLTextParser::Result;

struct Detection {
    std::optional<Result> result;
    // The figure as first read, when the second reading of its frame disagreed: tag it by hand.
    std::optional<QString> disputed;
};

// Seconds before the clip's end, in the order they are tried.
constexpr std::array<double, 8> snapshotOffsets { 0.3, 0.6, 1.0, 1.5, 2.0, 3.0, 5.0, 8.0 };
// A frame this close to the asked time is taken as it is, before or after.
constexpr double frameTolerance = 0.2;
// A crop is enlarged until it is this tall, by a whole factor of at most maxScale: the recogniser
// misses digits a dozen pixels tall, and the bound keeps a thin crop from growing without limit.
constexpr int ocrMinHeight = 160;
constexpr int ocrMaxScale = 6;
// Lines whose middles lie closer than this (a fraction of the picture's height) count as one row.
constexpr double sameRowTolerance = 0.02;
// The preview of what the recogniser saw is cut to this many characters.
constexpr int previewMaxLength = 100;

// The figure on the clip's last frames inside `cropRect`, or nothing, or a dispute. `cropRect` is in
// the points of the recorded source (origin at its top left), whose size is `sourcePointSize`; the
// clip's pictures are `recordedPixelSize` large. Nothing when either size is empty or the clip
// can't be read.
Detection detect(const QString& clip, const QRectF& cropRect, const QSizeF& sourcePointSize,
    const QSizeF& recordedPixelSize, TextRecognizer& recognizer);

// Everything the recogniser reads in the same crop of the frame 0.3 s before the end, the lines
// joined with " · " and cut to previewMaxLength characters; empty when there is no such frame or
// crop. What the user is told when no figure was found.
QString ocrPreview(const QString& clip, const QRectF& cropRect, const QSizeF& sourcePointSize,
    const QSizeF& recordedPixelSize, TextRecognizer& recognizer);

// The pixels of an `imageSize` picture that show `cropRect`: scaled from source points to recorded
// pixels, widened to whole pixels, clipped to the picture. Nothing when a side would be 4 pixels or less.
std::optional<QRect> cropInImage(
    const QRectF& cropRect, const QSizeF& sourcePointSize, const QSizeF& recordedPixelSize, QSize imageSize);

// The picture enlarged by a whole factor (Lanczos) so that it is at least `minHeight` tall, but
// never by more than `maxScale`; a picture already tall enough comes back as it is. Gray.
QImage upscaleForOCR(const QImage& image, int minHeight = ocrMinHeight, int maxScale = ocrMaxScale);

// A gray picture made black and white by the threshold that best splits its two tones (Otsu's),
// with the text black on white whichever way round it came: the ground is the tone that holds
// most of the picture's edge. A white margin of binaryMargin pixels is added around it (text that
// touches the edge is read badly).
constexpr int binaryMargin = 12;
QImage binariseForOCR(const QImage& gray);
// The gray picture as it is, but dark text on a light ground whichever way round it came, with the
// same margin in the ground's tone: a reading without the threshold's losses and gains.
QImage darkOnLightForOCR(const QImage& gray);

// The lines' texts top to bottom, and left to right within a row.
QStringList readingOrder(QList<RecognizedLine> lines);

// A clip counts as tagged once it has an outcome or an amount; notes alone don't. A tagged clip
// keeps the user's values: the detector never writes over them.
bool isTagged(const ClipMeta& meta);
// `meta` with the result's outcome and amount, marked as detected so that the broker's figures may
// replace them; everything else (the unit, the notes) as it was.
ClipMeta withResult(ClipMeta meta, const Result& result);
// "-12.50 (loss)", "40.00 (win)", "0.00 (be)".
QString summary(const Result& result);

} // namespace ClipAutoDetect
