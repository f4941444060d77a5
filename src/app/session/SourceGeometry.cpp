#include "app/session/SourceGeometry.h"

#include <QStringList>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <cmath>

namespace SourceGeometry {

namespace {

int truncated(double v)
{
    return static_cast<int>(std::trunc(v));
}

// Upscales a small source by at most 1.5 towards `targetHeight`, then caps the longer edge.
void upscaleThenCap(double& w, double& h, double targetHeight, double longEdgeCap)
{
    if (h < targetHeight) {
        const double factor = std::min(targetHeight / h, 1.5);
        w = truncated(w * factor);
        h = truncated(h * factor);
    }
    const double longer = std::max(w, h);
    if (longer > longEdgeCap) {
        const double factor = longEdgeCap / longer;
        w = truncated(w * factor);
        h = truncated(h * factor);
    }
}

int evenAtLeastTwo(double v)
{
    int i = truncated(v);
    i -= i % 2;
    return std::max(i, 2);
}

} // namespace

QSize scaledOutputSize(int nativeWidth, int nativeHeight, QualityMode mode, Resolution resolution)
{
    double w = nativeWidth;
    double h = nativeHeight;
    switch (mode) {
    case QualityMode::discord:
        if (h > 1080) {
            w = truncated(1080.0 / h * w);
            h = 1080;
        }
        break;
    case QualityMode::social:
        upscaleThenCap(w, h, 1440, 2560);
        break;
    case QualityMode::studio:
        upscaleThenCap(w, h, 2160, 3840);
        break;
    case QualityMode::manual:
        if (const auto target = targetHeight(resolution); target && *target < h) {
            w = truncated(*target / h * w);
            h = *target;
        }
        break;
    }
    return QSize(evenAtLeastTwo(w), evenAtLeastTwo(h));
}

std::optional<uint32_t> parseUInt32(const QString& text)
{
    QStringView digits(text);
    if (digits.startsWith(u'+')) digits = digits.mid(1);
    if (digits.isEmpty()) return std::nullopt;
    uint64_t value = 0;
    for (QChar c : digits) {
        if (c < u'0' || c > u'9') return std::nullopt;
        value = value * 10 + (c.unicode() - u'0');
        if (value > UINT32_MAX) return std::nullopt;
    }
    return static_cast<uint32_t>(value);
}

QString displayDescriptor(uint32_t displayID)
{
    return QStringLiteral("display:") + QString::number(displayID);
}

std::optional<uint32_t> parseDisplayDescriptor(const QString& descriptor)
{
    static const QString prefix = QStringLiteral("display:");
    if (!descriptor.startsWith(prefix)) return std::nullopt;
    return parseUInt32(descriptor.mid(prefix.size()));
}

QString windowDescriptor(const QString& bundleIdentifier, const QString& title)
{
    return QStringLiteral("window:") + bundleIdentifier + QStringLiteral("@@") + title;
}

std::optional<WindowDescriptor> parseWindowDescriptor(const QString& descriptor)
{
    static const QString prefix = QStringLiteral("window:");
    if (!descriptor.startsWith(prefix)) return std::nullopt;
    const QString rest = descriptor.mid(prefix.size());
    const qsizetype at = rest.indexOf(QStringLiteral("@@"));
    if (at < 0) return std::nullopt;
    return WindowDescriptor { rest.left(at), rest.mid(at + 2) };
}

std::optional<RegionDescriptor> parseRegionDescriptor(const QString& descriptor)
{
    static const QString prefix = QStringLiteral("region:");
    if (!descriptor.startsWith(prefix)) return std::nullopt;
    const QStringList parts = descriptor.mid(prefix.size()).split(u':');
    if (parts.size() != 2) return std::nullopt;
    const auto display = parseUInt32(parts[0]);
    const QStringList numbers = parts[1].split(u',');
    if (!display || numbers.size() != 4) return std::nullopt;
    double v[4];
    for (int i = 0; i < 4; ++i) {
        bool ok = false;
        v[i] = numbers[i].trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(v[i])) return std::nullopt;
    }
    if (v[2] <= 0 || v[3] <= 0) return std::nullopt;
    return RegionDescriptor { *display, QRectF(v[0], v[1], v[2], v[3]) };
}

QString sanitizeFilenameLabel(const QString& label)
{
    QString out = label;
    out.replace(u'/', u'-');
    out.replace(u':', u'-');
    out = out.trimmed();
    // 48 characters as a person counts them: never split an emoji or an accented letter.
    QTextBoundaryFinder graphemes(QTextBoundaryFinder::Grapheme, out);
    int count = 0;
    while (graphemes.toNextBoundary() >= 0)
        if (++count == 48) return out.left(graphemes.position());
    return out;
}

} // namespace SourceGeometry
