#include "ui/kit/V3Field.h"

#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"

#include <QEvent>
#include <QObject>
#include <QPalette>
#include <QWidget>

namespace {

void applyLook(QWidget* field)
{
    const Appearance a = appearanceOf(field->parentWidget());
    const QString sheet
        = QStringLiteral("%1 { color: %2; background: %3; border: 1px solid %4; border-radius: 6px; "
                         "padding: 2px 6px; selection-background-color: %5; }"
                         "%1:focus { border-color: %5; }")
              .arg(QLatin1String(field->metaObject()->className()), V3::fg.resolve(a).name(),
                  V3::bgInset.resolve(a).name(), V3::line.resolve(a).name(), V3::accent.resolve(a).name());
    if (field->styleSheet() != sheet) field->setStyleSheet(sheet);
    const QColor placeholder = V3::fgFaint.resolve(a);
    if (field->palette().color(QPalette::PlaceholderText) == placeholder) return;
    QPalette p = field->palette();
    p.setColor(QPalette::PlaceholderText, placeholder);
    field->setPalette(p);
}

// Applies the look again when the appearance changes.
class Follower : public QObject {
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (!applying && (event->type() == QEvent::ParentChange || KitPaint::isAppearanceChange(event))) {
            // Our own style sheet and palette send the same events.
            applying = true;
            applyLook(static_cast<QWidget*>(watched));
            applying = false;
        }
        return false;
    }

private:
    bool applying = false;
};

} // namespace

namespace V3Field {

void install(QWidget* field)
{
    field->setAttribute(Qt::WA_MacShowFocusRect, false);
    field->installEventFilter(new Follower(field));
    applyLook(field);
}

} // namespace V3Field
