#include "ui/recorder/HeroPreviewCard.h"

#include "app/AppSettings.h"
#include "app/session/SessionActions.h"
#include "app/session/SessionModels.h"
#include "app/session/SourceMemory.h"
#include "capture/CaptureEngine.h"
#include "devices/CameraCapture.h"
#include "ui/kit/D1.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/Symbols.h"
#include "ui/recorder/CameraBubble.h"
#include "ui/recorder/CardColours.h"
#include "ui/recorder/EmptyHeroIllustration.h"
#include "ui/recorder/HudColumn.h"
#include "ui/recorder/OnChange.h"
#include "ui/recorder/PreviewSurface.h"

#include <QAbstractButton>
#include <QPainter>

#include <cmath>

HeroPreviewCard::HeroPreviewCard(const SessionModels& m, QWidget* parent)
    : QWidget(parent)
    , models(m)
    , engine(m.engine)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    picture = new PreviewSurface(models.monitor, models.sources, this);
    // Over the picture and under the badges.
    bubble = new CameraBubble(models.settings, picture);
    // The camera's newest picture. Until the first one the bubble says "Starting camera…"; a
    // camera that goes away while it runs says "Camera off" until it runs again.
    if (CameraCapture* camera = models.camera) {
        connect(camera, &CameraCapture::latestFrameChanged, bubble,
            [this, camera] { bubble->setFrame(camera->latestFrame()); });
        connect(camera, &CameraCapture::isRunningChanged, bubble, [this, camera] {
            if (camera->isRunning()) bubble->setCameraOn(true);
        });
        connect(camera, &CameraCapture::lost, bubble, [this] { bubble->setCameraOn(false); });
        if (camera->isRunning()) bubble->setFrame(camera->latestFrame());
    }
    huds = new HudColumn(models.recorder, models.engine, models.settings, models.monitor, this);
    illustration = new EmptyHeroIllustration(this);
    connect(illustration->captureButton(), &QAbstractButton::clicked, this, [this] { models.actions->startPreview(); });

    onChange(this, models.engine, &CaptureEngine::isStreaming, &CaptureEngine::isStreamingChanged, [this] {
        if (models.engine->isStreaming()) streamedSinceSelection = true;
        refresh();
    });
    onChange(this, models.engine, &CaptureEngine::selectedSource, &CaptureEngine::selectedSourceChanged, [this] {
        streamedSinceSelection = models.engine->isStreaming();
        refresh();
    });
    onChange(
        this, models.engine, &CaptureEngine::errorMessage, &CaptureEngine::errorMessageChanged, [this] { refresh(); });
    observe(models.engine, &CaptureEngine::latestPreview, &CaptureEngine::latestPreviewChanged)
        .dropFirst()
        .sink(this, [this](const QImage& image) {
            const bool resized = image.size() != picture->image().size();
            picture->setImage(image);
            if (resized) place();
            if (picture->isHidden()) refresh();
        });
    picture->setImage(models.engine->latestPreview());
    refresh();
}

HeroPreviewCard::~HeroPreviewCard()
{
    askForPreviewSize({});
}

bool HeroPreviewCard::showsEmptyState() const
{
    return !illustration->isHidden();
}

bool HeroPreviewCard::showsWaitingLine() const
{
    return waiting || starting;
}

QString HeroPreviewCard::waitingLine() const
{
    if (waiting) return QStringLiteral("Waiting for frames…");
    if (starting) return QStringLiteral("Preview starting…");
    return {};
}

bool HeroPreviewCard::previewIsExpected() const
{
    const CaptureEngine* capture = models.engine;
    const std::optional<CaptureSource> selected = capture->selectedSource();
    // A stream that failed waits for the user to try again, from the illustration's button.
    if (!selected || capture->errorMessage()) return false;
    if (streamedSinceSelection) return true;
    const std::optional<QString> saved = models.settings->savedSourceDescriptor();
    if (!saved) return false;
    const std::optional<CaptureSource> found = models.sources->findSource(*saved);
    return found && found->id() == selected->id();
}

QRectF HeroPreviewCard::cardRect() const
{
    return QRectF(rect()).adjusted(shadowMargin, shadowMargin / 2.0, -shadowMargin, -shadowMargin * 1.5);
}

QRect HeroPreviewCard::pictureArea() const
{
    return cardRect().toAlignedRect().adjusted(pictureInset, pictureInset, -pictureInset, -pictureInset);
}

QSize HeroPreviewCard::minimumSizeHint() const
{
    // Room for the empty illustration; a small window scrolls.
    return { 160 + 2 * shadowMargin, 300 + 2 * shadowMargin };
}

void HeroPreviewCard::refresh()
{
    const bool streaming = models.engine->isStreaming();
    const bool hasPicture = streaming && !picture->image().isNull();
    starting = !streaming && previewIsExpected();
    illustration->setVisible(!streaming && !starting);
    picture->setVisible(hasPicture);
    huds->setVisible(streaming);
    waiting = streaming && !hasPicture;
    place();
    update();
}

void HeroPreviewCard::place()
{
    const QRect area = pictureArea();
    illustration->setGeometry(area);
    huds->move(cardRect().toAlignedRect().topLeft() + QPoint(20, 20));
    huds->raise();
    const QImage& image = picture->image();
    if (image.isNull() || area.isEmpty()) return;
    // Made for this size, the picture is shown pixel for pixel; any other is fitted.
    const QSizeF made = QSizeF(image.size()) / devicePixelRatioF();
    const bool fitsAlready = made.width() <= area.width() && made.height() <= area.height()
        && (made.width() >= area.width() - 2 || made.height() >= area.height() - 2);
    const QSize shown = fitsAlready ? made.toSize() : made.scaled(QSizeF(area.size()), Qt::KeepAspectRatio).toSize();
    picture->setGeometry(QRect(
        QPoint(area.x() + (area.width() - shown.width()) / 2, area.y() + (area.height() - shown.height()) / 2), shown));
}

void HeroPreviewCard::askForPreviewSize(QSize size)
{
    if (engine) engine->setPreviewSize(size);
}

void HeroPreviewCard::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    if (isVisible()) askForPreviewSize(pictureArea().size() * devicePixelRatioF());
    place();
}

void HeroPreviewCard::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    askForPreviewSize(pictureArea().size() * devicePixelRatioF());
}

void HeroPreviewCard::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    askForPreviewSize({});
}

bool HeroPreviewCard::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QWidget::event(event);
}

void HeroPreviewCard::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF card = cardRect();
    KitPaint::softShadow(p, card, cornerRadius, QColor(0, 0, 0, 70), shadowMargin, 3);
    p.setPen(QPen(D1::heroCardStroke, 0.5));
    p.setBrush(D1::heroCardFill);
    p.drawRoundedRect(card.adjusted(0.25, 0.25, -0.25, -0.25), cornerRadius, cornerRadius);
    const QString line = waitingLine();
    if (line.isEmpty()) return;
    const QColor mute = CardColours::mutedText().dark;
    const QPointF centre = card.center();
    Symbols::paint(p, QRectF(centre.x() - 14, centre.y() - 30, 28, 28),
        QStringLiteral("rectangle.inset.filled.on.rectangle"), mute);
    p.setFont(KitPaint::font(12));
    p.setPen(mute);
    p.drawText(QRectF(card.left(), centre.y() + 6, card.width(), 20), Qt::AlignHCenter | Qt::AlignTop, line);
}
