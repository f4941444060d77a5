#pragma once

#include "capture/CaptureSource.h"
#include "core/ScreenLayout.h"

#include <QDateTime>
#include <QPointF>
#include <QSize>
#include <QSizeF>
#include <QString>

#include <optional>

class AppSettings;
class CaptureEngine;

// What the selected capture source is remembered as between launches, how large it records and
// what its clips are called. Reads the settings and the sources the engine listed; no stream has
// to run. The descriptor texts and the scaling arithmetic themselves are SourceGeometry's.
//
// Main thread.
class SourceMemory {
public:
    SourceMemory(AppSettings& settings, CaptureEngine& engine);

    // Stores the descriptor of a display or a window; a region, or no source, forgets the saved one.
    void saveSourceDescriptor(const std::optional<CaptureSource>& source);
    // Selects the saved source when it is listed now. When nothing matches, the descriptor stays
    // stored, so the source comes back on a later launch.
    void restoreSelectedSourceIfPossible();
    // The listed display or window that a saved descriptor names, if there is one now.
    std::optional<CaptureSource> findSource(const QString& descriptor) const;

    // The selected source's name for a clip's file name; none without a source.
    std::optional<QString> sourceLabelForFilename() const;
    // The recorded picture's size in pixels, for the quality mode and resolution of the settings.
    QSize outputSize(const CaptureSource& source) const;
    QSizeF sourcePointSize() const;
    // Global display space.
    QPointF sourcePointOrigin() const;
    // The screens, as the displays the engine listed (X11 points are pixels: scale 1).
    ScreenLayout screenLayout() const;

    // "Label, MMM d, HH-mm-ss.mp4" in the user's locale and time zone.
    static QString filename(const QString& label, const QDateTime& date);

private:
    AppSettings* settings;
    CaptureEngine* engine;
};
