#include "ui/AboutHero.h"

#include "ui/HeroCard.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Text.h"

#include <QCoreApplication>
#include <QVBoxLayout>

namespace {

// Who helps depends on who built this copy: a packager names their address or tracker when building;
// a build without one says where to turn instead of showing an address nobody reads.
QString supportLine()
{
    const QString evidence = QStringLiteral("what you did, the output of \"velotape status\" and the lines Velotape "
                                            "printed on its standard error");
#ifdef VELOTAPE_SUPPORT_CONTACT
    return QStringLiteral("Support: %1. Include %2.").arg(QStringLiteral(VELOTAPE_SUPPORT_CONTACT), evidence);
#else
    return QStringLiteral("Support: this build names no contact of its own; report problems to whoever provided "
                          "your copy (your distribution, or the project you built it from), with %1.")
        .arg(evidence);
#endif
}

} // namespace

AboutHero::AboutHero(QWidget* parent)
    : QWidget(parent)
{
    setAccessibleName(QStringLiteral("About"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(28, 22, 28, 28);
    column->setSpacing(10);
    column->addWidget(new V3Text(QStringLiteral("About"), 22, QFont::DemiBold, V3::fg, this));
    column->addWidget(new V3Text(QStringLiteral("What's running, what it's doing, and where to get help."), 13,
        QFont::Normal, V3::fgMute, this));
    column->addSpacing(8);

    auto* card = new HeroCard(this);
    QString version = QCoreApplication::applicationVersion();
    if (version.isEmpty()) version = QStringLiteral("1.0");
    card->column()->addWidget(
        new V3Text(QStringLiteral("Velotape · %1").arg(version), 15, QFont::DemiBold, V3::fg, card));
    card->column()->addWidget(new V3Text(QStringLiteral("Rolling pre-record buffer + on-demand MP4 saves, with an "
                                                        "area-monitor auto-recorder. Built with Qt, FFmpeg, X11, "
                                                        "PipeWire and PulseAudio."),
        13, QFont::Normal, V3::fgMute, card));
    column->addWidget(card);

    column->addWidget(new V3Text(QStringLiteral("If recording fails on Wayland, check that xdg-desktop-portal and "
                                                "PipeWire run; on X11, that the X server answers."),
        12, QFont::Normal, V3::fgMute, this));
    column->addWidget(new V3Text(supportLine(), 12, QFont::Normal, V3::fgMute, this));
    column->addStretch();
}
