#include "ui/RecorderHero.h"

#include "app/AppSettings.h"
#include "app/session/AreaCommands.h"
#include "app/session/SessionActions.h"
#include "app/session/SessionModels.h"
#include "capture/CaptureEngine.h"
#include "ui/SourcePickerButton.h"
#include "ui/SourcePickerPopover.h" // the button's header needs it whole
#include "ui/kit/V3Button.h"
#include "ui/recorder/AreaMonitorStrip.h"
#include "ui/recorder/BigRecordCTA.h"
#include "ui/recorder/ChipsRow.h"
#include "ui/recorder/HeaderArea.h"
#include "ui/recorder/HeroPreviewCard.h"
#include "ui/recorder/InfoChip.h"
#include "ui/recorder/OnChange.h"
#include "ui/recorder/PermissionError.h"
#include "ui/recorder/PermissionView.h"

#include <QAbstractButton>
#include <QHBoxLayout>
#include <QVBoxLayout>

#include <cmath>

RecorderHero::RecorderHero(const SessionModels& m, QWidget* parent)
    : QWidget(parent)
    , models(m)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(new HeaderArea(QStringLiteral("Recorder"),
        QStringLiteral("Catch the last 30 seconds of your screen — always already recording."), this));

    permission = new PermissionView(this);
    connect(permission->askAgainButton(), &QAbstractButton::clicked, this, [this] { models.actions->startPreview(); });
    column->addWidget(permission, 1);

    body = new QWidget(this);
    auto* content = new QVBoxLayout(body);
    content->setContentsMargins(0, 0, 0, 0);
    content->setSpacing(0);
    content->addWidget(makeChipsRow());
    card = new HeroPreviewCard(models, body);
    auto* cardRow = new QHBoxLayout;
    // The card's shadow takes part of the screen's margin.
    const int side = 36 - HeroPreviewCard::shadowMargin;
    cardRow->setContentsMargins(side, 16 - HeroPreviewCard::shadowMargin / 2, side, 0);
    cardRow->addWidget(card);
    content->addLayout(cardRow, 1);
    strip = new AreaMonitorStrip(models.monitor, models.areas, models.actions, body);
    // On a narrow window the rows are cut at the right rather than widening the screen.
    strip->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    auto* stripRow = new QHBoxLayout;
    // The card's shadow room below it is the gap above the strip.
    stripRow->setContentsMargins(36, 0, 36, 0);
    stripRow->addWidget(strip);
    content->addLayout(stripRow);
    cta = new BigRecordCTA(models.recorder, models.engine, models.actions, body);
    auto* ctaRow = new QHBoxLayout;
    ctaRow->setContentsMargins(0, 8, 0, 16);
    ctaRow->addWidget(cta);
    content->addLayout(ctaRow);
    column->addWidget(body, 1);

    CaptureEngine* engine = models.engine;
    AppSettings* settings = models.settings;
    auto chips = [this] { refreshChips(); };
    onChange(this, engine, &CaptureEngine::outputWidth, &CaptureEngine::outputWidthChanged, chips);
    onChange(this, engine, &CaptureEngine::outputHeight, &CaptureEngine::outputHeightChanged, chips);
    onChange(this, settings, &AppSettings::frameRate, &AppSettings::frameRateChanged, chips);
    onChange(this, settings, &AppSettings::bufferSeconds, &AppSettings::bufferSecondsChanged, chips);
    onChange(this, engine, &CaptureEngine::selectedSource, &CaptureEngine::selectedSourceChanged,
        [this] { refreshSource(); });
    onChange(this, engine, &CaptureEngine::errorMessage, &CaptureEngine::errorMessageChanged,
        [this] { refreshPermission(); });
    refreshChips();
    refreshSource();
    refreshPermission();
}

QWidget* RecorderHero::makeChipsRow()
{
    auto* margins = new QWidget(body);
    auto* padded = new QHBoxLayout(margins);
    padded->setContentsMargins(36, 4, 36, 0);
    auto* row = new ChipsRow(margins);
    padded->addWidget(row);
    sourceButton = new SourcePickerButton(models, row);
    row->addWidget(sourceButton);
    sizeChip = new InfoChip(QStringLiteral("rectangle.expand.diagonal"), {}, row);
    rateChip = new InfoChip(QStringLiteral("timer"), {}, row);
    bufferChip = new InfoChip(QStringLiteral("clock"), {}, row);
    row->addWidget(sizeChip);
    row->addWidget(rateChip);
    row->addWidget(bufferChip);
    auto* pick = new V3Button(V3Button::Kind::ghost, QStringLiteral("Pick region"), row);
    pick->setSymbol(QStringLiteral("dot.viewfinder"));
    connect(pick, &QAbstractButton::clicked, models.areas, &AreaCommands::pickRecordingRegion);
    pickRegion = pick;
    row->addWidget(pickRegion);
    return margins;
}

bool RecorderHero::showsEmptyState() const
{
    return card->showsEmptyState();
}

void RecorderHero::refreshChips()
{
    const CaptureEngine* engine = models.engine;
    sizeChip->setText(engine->outputWidth() < 1
            ? QStringLiteral("—")
            : QStringLiteral("%1×%2").arg(engine->outputWidth()).arg(engine->outputHeight()));
    rateChip->setText(QString::number(framesPerSecond(models.settings->frameRate())) + QStringLiteral("fps"));
    bufferChip->setText(
        QString::number(std::floor(models.settings->bufferSeconds()), 'f', 0) + QStringLiteral("s buffer"));
}

void RecorderHero::refreshSource()
{
    const bool selected = models.engine->selectedSource().has_value();
    pickRegion->setVisible(selected);
    strip->setVisible(selected);
}

void RecorderHero::refreshPermission()
{
    // Only a desktop that asks for a permission can have refused one.
    const bool refused
        = models.engine->backend()->asksCapturePermission() && permissionError(models.engine->errorMessage());
    permission->setVisible(refused);
    body->setVisible(!refused);
}
