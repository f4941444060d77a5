#include "ui/SourcePickerButton.h"

#include "app/session/SessionActions.h"
#include "app/session/SessionModels.h"
#include "app/session/SourceMemory.h"
#include "capture/CaptureEngine.h"
#include "ui/SourcePickerContent.h"
#include "ui/SourcePickerPopover.h"

#include <QScreen>

SourcePickerButton::SourcePickerButton(const SessionModels& m, QWidget* parent)
    : V3Button(V3Button::Kind::secondary, QString(), parent)
    , models(m)
{
    connect(this, &QAbstractButton::clicked, this, [this] { setOpen(!isOpen()); });
    // The label follows the selection, and the display names with the listing.
    CaptureEngine* engine = models.engine;
    connect(engine, &CaptureEngine::selectedSourceChanged, this, &SourcePickerButton::showLabel);
    connect(engine, &CaptureEngine::availableDisplaysChanged, this, &SourcePickerButton::showLabel);
    showLabel();
}

void SourcePickerButton::showLabel()
{
    const std::optional<CaptureSource>& source = models.engine->selectedSource();
    setText(SourcePickerContent::labelForCurrentSource(source, models.sources->screenLayout()));
    setAccessibleName(text());
    if (!source)
        setSymbol(QString());
    else if (source->kind() == CaptureSource::Kind::window)
        setSymbol(QStringLiteral("macwindow"));
    else if (source->kind() == CaptureSource::Kind::region)
        setSymbol(QStringLiteral("dot.viewfinder"));
    else
        setSymbol(QStringLiteral("display"));
}

bool SourcePickerButton::isOpen() const
{
    return shown && shown->isVisible();
}

void SourcePickerButton::setOpen(bool open)
{
    if (open == isOpen()) return;
    if (!open) {
        shown->close();
        return;
    }
    shown = new SourcePickerPopover(
        models, [this] { setOpen(false); }, this);
    shown->setWindowFlags(Qt::Popup);
    shown->setAttribute(Qt::WA_DeleteOnClose);
    // However it closes (a choice, Escape, a click elsewhere), the button hears of it.
    connect(shown, &SourcePickerPopover::closed, this, [this] { emit openChanged(false); });
    shown->move(popoverPosition());
    shown->show();
    emit openChanged(true);
}

QPoint SourcePickerButton::popoverPosition() const
{
    QPoint at = mapToGlobal(QPoint(0, height() + 6));
    if (const QScreen* screen = this->screen()) {
        const QRect room = screen->availableGeometry();
        const QSize size = SourcePickerPopover::popoverSize;
        at.setX(std::clamp(at.x(), room.left(), std::max(room.left(), room.right() - size.width() + 1)));
        at.setY(std::clamp(at.y(), room.top(), std::max(room.top(), room.bottom() - size.height() + 1)));
    }
    return at;
}
