#include "app/session/SourceMemory.h"

#include "app/AppSettings.h"
#include "app/session/SourceGeometry.h"
#include "capture/CaptureEngine.h"

#include <QLocale>

#include <cmath>

SourceMemory::SourceMemory(AppSettings& settings, CaptureEngine& engine)
    : settings(&settings)
    , engine(&engine)
{
}

ScreenLayout SourceMemory::screenLayout() const
{
    ScreenLayout layout;
    for (const CaptureDisplay& d : engine->availableDisplays())
        layout.screens.push_back({ d.displayID, QRectF(d.frame), 1.0, d.name });
    return layout;
}

void SourceMemory::saveSourceDescriptor(const std::optional<CaptureSource>& source)
{
    if (!source || source->kind() == CaptureSource::Kind::region) {
        settings->setSavedSourceDescriptor(std::nullopt); // a region forgets the saved source
        return;
    }
    if (source->kind() == CaptureSource::Kind::display) {
        settings->setSavedSourceDescriptor(SourceGeometry::displayDescriptor(source->capturedDisplay().displayID));
        return;
    }
    const CaptureWindow& w = source->capturedWindow();
    const QString bundle = w.owningApplication ? w.owningApplication->bundleIdentifier : QStringLiteral("unknown");
    settings->setSavedSourceDescriptor(SourceGeometry::windowDescriptor(bundle, w.title.value_or(QString())));
}

void SourceMemory::restoreSelectedSourceIfPossible()
{
    // When nothing matches, the descriptor stays stored, so the source comes back on a later launch.
    const std::optional<QString> descriptor = settings->savedSourceDescriptor();
    if (!descriptor) return;
    if (const auto source = findSource(*descriptor)) engine->setSelectedSource(source);
}

std::optional<CaptureSource> SourceMemory::findSource(const QString& descriptor) const
{
    if (descriptor.startsWith(QStringLiteral("display:"))) {
        const auto id = SourceGeometry::parseDisplayDescriptor(descriptor);
        if (!id) return std::nullopt;
        for (const CaptureDisplay& d : engine->availableDisplays())
            if (d.displayID == *id) return CaptureSource::display(d);
        return std::nullopt;
    }
    // A window is found by what it shows; a window without an owner or a title can't match.
    const auto window = SourceGeometry::parseWindowDescriptor(descriptor);
    if (!window) return std::nullopt;
    for (const CaptureWindow& w : engine->availableWindows()) {
        if (!w.owningApplication || !w.title) continue;
        if (w.owningApplication->bundleIdentifier == window->bundleIdentifier && *w.title == window->title)
            return CaptureSource::window(w);
    }
    return std::nullopt;
}

QSize SourceMemory::outputSize(const CaptureSource& source) const
{
    const ScreenLayout layout = screenLayout();
    double w = 0, h = 0;
    switch (source.kind()) {
    case CaptureSource::Kind::display: {
        const CaptureDisplay& d = source.capturedDisplay();
        if (const auto* screen = layout.screenForDisplay(d.displayID)) {
            const QRectF pixels = screen->backingRect(screen->frame);
            w = std::trunc(pixels.width());
            h = std::trunc(pixels.height());
        } else {
            w = d.width;
            h = d.height;
        }
        break;
    }
    case CaptureSource::Kind::window: {
        const QRectF frame = source.capturedWindow().frame;
        // The middle of the frame picks the screen whose scale applies; none at all means 2.0.
        const auto* screen = layout.screenContaining(frame.center());
        if (!screen) screen = layout.mainScreen();
        const double scale = screen ? screen->scale : 2.0;
        w = std::trunc(frame.width() * scale);
        h = std::trunc(frame.height() * scale);
        break;
    }
    case CaptureSource::Kind::region:
        w = source.pixelWidth();
        h = source.pixelHeight();
        break;
    }
    return SourceGeometry::scaledOutputSize(int(w), int(h), settings->qualityMode(), settings->resolution());
}

QSizeF SourceMemory::sourcePointSize() const
{
    const auto& source = engine->selectedSource();
    if (!source) return QSizeF(0, 0);
    switch (source->kind()) {
    case CaptureSource::Kind::display: {
        const CaptureDisplay& d = source->capturedDisplay();
        // The layout is a value: a screen found in it lives only as long as this copy.
        const ScreenLayout layout = screenLayout();
        if (const auto* screen = layout.screenForDisplay(d.displayID)) return screen->frame.size();
        return QSizeF(d.width, d.height);
    }
    case CaptureSource::Kind::window:
        return source->capturedWindow().frame.size();
    case CaptureSource::Kind::region:
        return source->localPointRect().size();
    }
    return QSizeF(0, 0);
}

QPointF SourceMemory::sourcePointOrigin() const
{
    const auto& source = engine->selectedSource();
    if (!source) return QPointF(0, 0);
    switch (source->kind()) {
    case CaptureSource::Kind::display:
        return QPointF(source->capturedDisplay().frame.topLeft());
    case CaptureSource::Kind::window:
        return source->capturedWindow().frame.topLeft();
    case CaptureSource::Kind::region:
        return source->localPointRect().topLeft() + QPointF(source->capturedDisplay().frame.topLeft());
    }
    return QPointF(0, 0);
}

std::optional<QString> SourceMemory::sourceLabelForFilename() const
{
    const auto& source = engine->selectedSource();
    if (!source) return std::nullopt;
    QString label;
    switch (source->kind()) {
    case CaptureSource::Kind::region:
        label = QStringLiteral("Region");
        break;
    case CaptureSource::Kind::window: {
        const auto& app = source->capturedWindow().owningApplication;
        label = app ? app->applicationName : QStringLiteral("Window");
        break;
    }
    case CaptureSource::Kind::display: {
        const CaptureDisplay& d = source->capturedDisplay();
        const ScreenLayout layout = screenLayout();
        const auto* screen = layout.screenForDisplay(d.displayID);
        label = screen ? screen->name : QStringLiteral("Display %1").arg(d.displayID);
        break;
    }
    }
    return SourceGeometry::sanitizeFilenameLabel(label);
}

QString SourceMemory::filename(const QString& label, const QDateTime& date)
{
    return label + QStringLiteral(", ") + QLocale().toString(date, QStringLiteral("MMM d, HH-mm-ss"))
        + QStringLiteral(".mp4");
}
