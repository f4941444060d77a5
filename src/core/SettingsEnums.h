#pragma once

#include <QString>

#include <array>
#include <optional>
#include <span>

// The enumerations of the user's settings, each with its raw values (the stored form), labels and
// explainers, iterable in declaration order. Raw strings are looked up exactly: an unknown string is
// no case at all, and the settings model then falls back to its default.

enum class Resolution { res720, res1080, res1440, res2160, native };
enum class FrameRate { fps24, fps30, fps60, fps120 };
enum class QualityMode { manual, discord, social, studio };
enum class CursorMode { show, hide };
enum class CameraShape { circle, roundedRect, rect };
enum class CameraFrameStyle {
    soft,
    polaroid,
    beveled,
    edge,
    outline,
    march,
    glass,
    bracket,
    tactical,
    pulse,
    wave,
    frame
};
enum class AreaSensitivity { low, medium, high };
enum class AreaOverlayStyle { outline, march, wave, glass, bracket, tactical, pulse, frame };

template <typename E> struct EnumCase {
    E value;
    const char* raw;
    const char* label;
    const char* explainer;
};

template <typename E> struct EnumTable;

template <> struct EnumTable<Resolution> {
    static constexpr std::array<EnumCase<Resolution>, 5> cases { {
        { Resolution::res720, "720p", "720p", "" },
        { Resolution::res1080, "1080p", "1080p", "" },
        { Resolution::res1440, "1440p", "1440p", "" },
        { Resolution::res2160, "4K", "4K", "" },
        { Resolution::native, "Native", "Native", "" },
    } };
};

// FrameRate's raw value is a number; its raw text here is that number written out.
template <> struct EnumTable<FrameRate> {
    static constexpr std::array<EnumCase<FrameRate>, 4> cases { {
        { FrameRate::fps24, "24", "24", "" },
        { FrameRate::fps30, "30", "30", "" },
        { FrameRate::fps60, "60", "60", "" },
        { FrameRate::fps120, "120", "120", "" },
    } };
};

template <> struct EnumTable<QualityMode> {
    static constexpr std::array<EnumCase<QualityMode>, 4> cases { {
        { QualityMode::manual, "manual", "Manual", "Full manual control." },
        { QualityMode::discord, "discord", "Discord", "Native res · heavy compression — tiny files for chat." },
        { QualityMode::social, "social", "Social", "Native res · medium compression — crisp for Shorts/Reels." },
        { QualityMode::studio, "studio", "Studio", "Native res · high bitrate — editor-friendly quality." },
    } };
};

template <> struct EnumTable<CursorMode> {
    static constexpr std::array<EnumCase<CursorMode>, 2> cases { {
        { CursorMode::show, "Show", "Show", "" },
        { CursorMode::hide, "Hide", "Hide", "" },
    } };
};

template <> struct EnumTable<CameraShape> {
    static constexpr std::array<EnumCase<CameraShape>, 3> cases { {
        { CameraShape::circle, "circle", "Circle", "" },
        { CameraShape::roundedRect, "roundedRect", "Rounded", "" },
        { CameraShape::rect, "rect", "Rectangle", "" },
    } };
};

template <> struct EnumTable<CameraFrameStyle> {
    static constexpr std::array<EnumCase<CameraFrameStyle>, 12> cases { {
        { CameraFrameStyle::soft, "soft", "Soft", "Thin white border with a warm drop shadow." },
        { CameraFrameStyle::polaroid, "polaroid", "Polaroid", "Thick white frame with a soft shadow." },
        { CameraFrameStyle::beveled, "beveled", "Beveled", "3D-relief highlight on top, shadow underneath." },
        { CameraFrameStyle::edge, "edge", "Edge", "Thin cyan-to-blue gradient border." },
        { CameraFrameStyle::outline, "outline", "Outline", "Plain rectangle stroke with a breathing cyan glow." },
        { CameraFrameStyle::march, "march", "March", "Marching-ants dashed border that scrolls clockwise." },
        { CameraFrameStyle::glass, "glass", "Glass", "Animated cyan breathing glow." },
        { CameraFrameStyle::bracket, "bracket", "Brackets", "Corner brackets with a breathing cyan halo." },
        { CameraFrameStyle::tactical, "tactical", "Tactical", "Sci-fi corners + scanline + accent dashes." },
        { CameraFrameStyle::pulse, "pulse", "Pulse", "Pulsing border with a secondary expanding ring." },
        { CameraFrameStyle::wave, "wave", "Wave", "Animated energy pulse travelling around the frame." },
        { CameraFrameStyle::frame, "frame", "Frame", "Twitch-style angular frame with a LIVE badge." },
    } };
};

template <> struct EnumTable<AreaSensitivity> {
    static constexpr std::array<EnumCase<AreaSensitivity>, 3> cases { {
        { AreaSensitivity::low, "low", "Low", "" },
        { AreaSensitivity::medium, "medium", "Medium", "" },
        { AreaSensitivity::high, "high", "High", "" },
    } };
};

template <> struct EnumTable<AreaOverlayStyle> {
    static constexpr std::array<EnumCase<AreaOverlayStyle>, 8> cases { {
        { AreaOverlayStyle::outline, "outline", "Outline", "Plain rectangle stroke with a breathing cyan glow." },
        { AreaOverlayStyle::march, "march", "March", "Marching-ants dashed border that scrolls clockwise." },
        { AreaOverlayStyle::wave, "wave", "Wave", "A bright cyan wave that travels around the frame." },
        { AreaOverlayStyle::glass, "glass", "Glass", "Soft cyan glass frame with a shimmer sweep." },
        { AreaOverlayStyle::bracket, "bracket", "Brackets", "Corner brackets with a breathing cyan halo." },
        { AreaOverlayStyle::tactical, "tactical", "Tactical", "Sci-fi corners + scanline + ARMED pill." },
        { AreaOverlayStyle::pulse, "pulse", "Pulse", "Breathing cyan border with a secondary halo." },
        { AreaOverlayStyle::frame, "frame", "Frame", "Bold angular frame with a LIVE indicator pill." },
    } };
};

// Every case in declaration order.
template <typename E> constexpr auto allCases()
{
    std::array<E, EnumTable<E>::cases.size()> out {};
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = EnumTable<E>::cases[i].value;
    return out;
}

template <typename E> constexpr const EnumCase<E>& enumCase(E value)
{
    for (const auto& c : EnumTable<E>::cases)
        if (c.value == value) return c;
    return EnumTable<E>::cases[0];
}

// The stored form, which is also the case's `id`.
template <typename E> QString rawValue(E value)
{
    return QString::fromUtf8(enumCase(value).raw);
}
template <typename E> QString label(E value)
{
    return QString::fromUtf8(enumCase(value).label);
}
template <typename E> QString explainer(E value)
{
    return QString::fromUtf8(enumCase(value).explainer);
}

// Exact lookup by raw value; anything else is no case.
template <typename E> std::optional<E> fromRawValue(const QString& raw)
{
    for (const auto& c : EnumTable<E>::cases)
        if (raw == QString::fromUtf8(c.raw)) return c.value;
    return std::nullopt;
}

// Frames per second of a FrameRate.
int framesPerSecond(FrameRate rate);
// The stored integer rule: 24, 30 and 120 are themselves, every other number is fps60.
FrameRate frameRateFromStoredInteger(long long stored);

// Target height of a Resolution in manual mode; none for native (the source's own size).
std::optional<int> targetHeight(Resolution resolution);

// What a quality preset forces; none for manual.
struct QualityPreset {
    Resolution resolution;
    FrameRate frameRate;
    double bitrateMbps;
};
std::optional<QualityPreset> qualityPreset(QualityMode mode);

// The overlay's width over height, and the corner radius as a fraction of the shorter side.
double cameraAspect(CameraShape shape);
double cameraCornerFraction(CameraShape shape);
