#include "ui/kit/Appearance.h"

#include "ui/kit/V3.h"

#include <QGuiApplication>
#include <QWidget>

Appearance appearanceOf(const QPalette& palette)
{
    return palette.color(QPalette::Active, QPalette::Window).lightness() < 128 ? Appearance::dark : Appearance::light;
}

Appearance appearanceOf(const QWidget* widget)
{
    return appearanceOf(widget ? widget->palette() : QGuiApplication::palette());
}

QPalette kitPalette(Appearance appearance)
{
    auto c = [appearance](const DynamicColor& color) { return color.resolve(appearance); };
    const QColor onAccent(Qt::white);

    QPalette palette;
    for (const QPalette::ColorGroup group : { QPalette::Active, QPalette::Inactive, QPalette::Disabled }) {
        const bool disabled = group == QPalette::Disabled;
        const QColor text = disabled ? c(V3::fgDim) : c(V3::fg);
        palette.setColor(group, QPalette::Window, c(V3::bg));
        palette.setColor(group, QPalette::WindowText, text);
        palette.setColor(group, QPalette::Base, c(V3::bgInset));
        palette.setColor(group, QPalette::AlternateBase, c(V3::bgElev));
        palette.setColor(group, QPalette::Text, text);
        palette.setColor(group, QPalette::PlaceholderText, c(V3::fgFaint));
        palette.setColor(group, QPalette::Button, c(V3::bgElev));
        palette.setColor(group, QPalette::ButtonText, text);
        palette.setColor(group, QPalette::BrightText, onAccent);
        palette.setColor(group, QPalette::Light, c(V3::bgCard));
        palette.setColor(group, QPalette::Midlight, c(V3::lineSoft));
        palette.setColor(group, QPalette::Mid, c(V3::line));
        palette.setColor(group, QPalette::Dark, c(V3::bgInset));
        palette.setColor(group, QPalette::Shadow, QColor(0, 0, 0, appearance == Appearance::dark ? 160 : 60));
        palette.setColor(group, QPalette::Highlight, disabled ? c(V3::line) : c(V3::accent));
        palette.setColor(group, QPalette::HighlightedText, onAccent);
        palette.setColor(group, QPalette::Link, c(V3::accent));
        palette.setColor(group, QPalette::LinkVisited, c(V3::accent));
        palette.setColor(group, QPalette::ToolTipBase, c(V3::bgElev));
        palette.setColor(group, QPalette::ToolTipText, c(V3::fg));
    }
    return palette;
}
