#pragma once

#include "core/SettingsEnums.h"

#include <QRectF>
#include <QSize>
#include <QString>

#include <cstdint>
#include <optional>

// The pure arithmetic of sources: the recorded size for a quality mode, the saved-source descriptor
// texts, and the label a clip's file name starts with.
namespace SourceGeometry {

// Scales a native pixel size by the mode (every step truncates towards zero), then makes both sides
// even and at least 2, which the encoder needs.
QSize scaledOutputSize(int nativeWidth, int nativeHeight, QualityMode mode, Resolution resolution);

// An unsigned 32-bit decimal: a leading "+" is accepted; empty text, any other non-digit and
// overflow are not.
std::optional<uint32_t> parseUInt32(const QString& text);

// "display:ID"
QString displayDescriptor(uint32_t displayID);
std::optional<uint32_t> parseDisplayDescriptor(const QString& descriptor);

// "window:BUNDLE@@TITLE". Split at the first "@@": a title may hold "@@", a bundle identifier may not.
struct WindowDescriptor {
    QString bundleIdentifier;
    QString title;
};
QString windowDescriptor(const QString& bundleIdentifier, const QString& title);
std::optional<WindowDescriptor> parseWindowDescriptor(const QString& descriptor);

// "region:DISPLAYID:X,Y,W,H", a rectangle in points relative to the display's top left. Only the
// command line names regions; they are never saved.
struct RegionDescriptor {
    uint32_t displayID = 0;
    QRectF localPointRect;
};
std::optional<RegionDescriptor> parseRegionDescriptor(const QString& descriptor);

// "/" and ":" become "-", white space is trimmed, and at most 48 characters are kept.
QString sanitizeFilenameLabel(const QString& label);

} // namespace SourceGeometry
