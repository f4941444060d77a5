#include "ui/kit/Symbols.h"

#include <QCache>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {

struct Entry {
    const char* symbol;
    const char* themeName; // freedesktop icon naming, "" when none fits
    const char* meaning;
};

// clang-format off
constexpr Entry table[] = {
    { "record.circle", "media-record", "Record" },
    { "film.stack", "video-x-generic", "Clips" },
    { "chart.line.uptrend.xyaxis", "office-chart-line", "Journal" },
    { "gearshape.fill", "preferences-system", "Settings" },
    { "info.circle", "help-about", "About" },
    { "lock.fill", "changes-prevent", "Locked" },
    { "lock.shield", "security-high", "Privacy" },
    { "arrow.up.right.square", "go-jump", "Open" },
    { "arrow.up.right", "go-next", "Go" },
    { "arrow.clockwise", "view-refresh", "Refresh" },
    { "dot.viewfinder", "", "Pick region" },
    { "rectangle.dashed", "select-rectangular", "Watch area" },
    { "rectangle.expand.diagonal", "view-fullscreen", "Size" },
    { "rectangle.inset.filled.on.rectangle", "video-display", "Preview" },
    { "plus", "list-add", "Add" },
    { "timer", "", "Frame rate" },
    { "clock", "preferences-system-time", "Buffer length" },
    { "magnifyingglass", "edit-find", "Filter" },
    { "display", "video-display", "Display" },
    { "macwindow", "preferences-system-windows", "Window" },
    { "checkmark", "object-select", "Selected" },
    { "checkmark.circle.fill", "emblem-ok", "Saved" },
    { "folder", "folder", "Open folder" },
    { "play.fill", "media-playback-start", "Play" },
    { "square.and.pencil", "document-edit", "Rename" },
    { "square.and.arrow.up", "document-send", "Share" },
    { "square.and.arrow.down", "document-save", "Output" },
    { "note.text", "text-x-generic", "Notes" },
    { "chevron.up", "pan-up", "Collapse" },
    { "chevron.down", "pan-down", "Expand" },
    { "chevron.left", "pan-start", "Previous" },
    { "chevron.right", "pan-end", "Next" },
    { "chevron.up.chevron.down", "", "Choose" },
    { "square.grid.2x2", "view-grid", "Overview" },
    { "chart.bar.xaxis", "office-chart-bar", "Stats" },
    { "wand.and.stars", "tools-wizard", "Simulations" },
    { "web.camera", "camera-web", "Camera" },
    { "video", "camera-video", "Camera on" },
    { "video.slash", "camera-disabled", "Camera off" },
    { "person.crop.circle.fill", "avatar-default", "Person" },
    { "keyboard", "input-keyboard", "Keyboard" },
    { "xmark", "window-close", "Clear" },
};
// clang-format on

const Entry* find(const QString& symbol)
{
    const auto* it = std::find_if(
        std::begin(table), std::end(table), [&](const Entry& e) { return symbol == QLatin1String(e.symbol); });
    return it == std::end(table) ? nullptr : it;
}

QString bundledPath(const QString& symbol)
{
    return QStringLiteral(":/kit/symbols/") + symbol + QStringLiteral(".svg");
}

// The theme's single-colour icon for the symbol, if it has one. hasThemeIcon asks for the exact
// name, unlike fromTheme, which would fall back to a shorter and unrelated one ("camera").
QString themeSymbolicName(const QString& symbol)
{
    const QString name = Symbols::themeName(symbol);
    if (name.isEmpty()) return {};
    const QString symbolic = name + QStringLiteral("-symbolic");
    return QIcon::hasThemeIcon(symbolic) ? symbolic : QString();
}

QImage render(const QString& symbol, int px, bool* fromTheme)
{
    if (const QString name = themeSymbolicName(symbol); !name.isEmpty()) {
        *fromTheme = true;
        return QIcon::fromTheme(name)
            .pixmap(QSize(px, px))
            .toImage()
            .convertToFormat(QImage::Format_ARGB32_Premultiplied);
    }
    *fromTheme = false;
    QSvgRenderer svg(bundledPath(symbol));
    if (!svg.isValid()) return {};
    QImage image(px, px, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    svg.render(&painter, QRectF(0, 0, px, px));
    return image;
}

// Recolours the drawing in place. The bundled drawings are black ink, and white over the ink cuts
// it away (the hole of the gear, the tick in the filled circle): what is left is alpha minus
// lightness. A theme's symbolic icon is coloured by its alpha alone.
void tint(QImage& image, const QColor& color, bool alphaOnly)
{
    const QRgb base = color.rgba();
    for (int y = 0; y < image.height(); ++y) {
        auto* row = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const QRgb px = row[x];
            int ink = qAlpha(px);
            if (!alphaOnly) ink -= (qRed(px) + qGreen(px) + qBlue(px)) / 3;
            const int alpha = std::clamp(ink, 0, 255) * qAlpha(base) / 255;
            row[x] = qPremultiply(qRgba(qRed(base), qGreen(base), qBlue(base), alpha));
        }
    }
}

} // namespace

namespace Symbols {

QString themeName(const QString& symbol)
{
    const Entry* e = find(symbol);
    return e ? QString::fromLatin1(e->themeName) : QString();
}

QString meaning(const QString& symbol)
{
    if (const Entry* e = find(symbol)) return QString::fromLatin1(e->meaning);
    // An unlisted symbol still reads as words: "xmark.circle" -> "Xmark circle".
    QString words = symbol;
    words.replace(QLatin1Char('.'), QLatin1Char(' '));
    if (!words.isEmpty()) words[0] = words[0].toUpper();
    return words;
}

QIcon icon(const QString& symbol)
{
    if (const QString name = themeSymbolicName(symbol); !name.isEmpty()) return QIcon::fromTheme(name);
    const QString path = bundledPath(symbol);
    return QFile::exists(path) ? QIcon(path) : QIcon();
}

void paint(QPainter& p, const QRectF& r, const QString& symbol, const QColor& tint)
{
    const qreal side = std::min(r.width(), r.height());
    if (side <= 0 || !find(symbol)) return;
    const qreal dpr = p.device() ? p.device()->devicePixelRatioF() : 1.0;
    const int px = std::max(1, int(std::ceil(side * dpr)));

    // Drawn often (every repaint of a list of rows), so the tinted images are kept.
    static QCache<QString, QImage> cache(256);
    const QString key = QStringLiteral("%1|%2|%3|%4").arg(symbol).arg(px).arg(tint.rgba()).arg(QIcon::themeName());
    const QRectF target(r.center().x() - side / 2, r.center().y() - side / 2, side, side);
    if (const QImage* cached = cache.object(key)) {
        p.drawImage(target, *cached);
        return;
    }
    bool fromTheme = false;
    QImage image = render(symbol, px, &fromTheme);
    if (image.isNull()) return;
    ::tint(image, tint, fromTheme);
    image.setDevicePixelRatio(dpr);
    p.drawImage(target, image);
    cache.insert(key, new QImage(image));
}

QStringList known()
{
    QStringList names;
    for (const Entry& e : table)
        names << QString::fromLatin1(e.symbol);
    return names;
}

} // namespace Symbols
