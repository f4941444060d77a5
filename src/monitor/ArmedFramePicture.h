#pragma once

#include "core/SettingsEnums.h"

#include <QImage>
#include <QRegion>

#include <optional>

// What an armed frame's window shows: the frame over what lies beneath it, brought from one moment
// to the next by repainting only where the picture changes. Sixty pictures a second of the whole
// band would cost more than the budget of a frame that stands for hours.
class ArmedFramePicture {
public:
    // A picture of `size`; `watched` in its coordinates. `under` is what lies beneath the frame, the
    // same size; a null image leaves it transparent, for a compositing manager to blend. The picture
    // is painted in `canvas` when one is given (ARGB32 premultiplied, `size`; memory the screen reads
    // from, say), else in an image of its own.
    ArmedFramePicture(QSize size, const QRectF& watched, AreaOverlayStyle style, QImage under = {}, QImage canvas = {});

    // Where the picture at `seconds` differs from the present one: the whole band before the first.
    QRegion changesAt(double seconds) const;
    // Brings `region` of the picture to `seconds` (what `changesAt` gave for that moment).
    void paint(double seconds, const QRegion& region);
    // Whether painting the picture at `seconds` draws what stands still again, across the whole
    // band, rather than only moving lights.
    bool redrawsStillAt(double seconds) const;
    // When the picture next changes after `seconds`, for a display showing one picture every
    // `interval` seconds: the next picture for moving lights, else the next step of what stands still.
    double nextChange(double seconds, double interval) const;

    const QImage& image() const { return picture; }
    // The only pixels the frame ever paints.
    const QRegion& band() const { return frameBand; }

private:
    // Copies `region` of `from` (or clears it, for a null image) into `to`.
    static void copy(const QImage& from, QImage& to, const QRegion& region);

    QRectF watched;
    AreaOverlayStyle style;
    QImage under;
    // What stands still over what lies beneath, as of `stillAt`; the lights are drawn on it.
    QImage still;
    QImage picture;
    QRegion frameBand;
    std::optional<double> stillAt;
    std::optional<double> shown;
};
