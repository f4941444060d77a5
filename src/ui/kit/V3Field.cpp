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
    // The application's palette: while it changes, a parent's own may not have caught up yet.
    const Appearance a = appearanceOf(static_cast<const QWidget*>(nullptr));
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

// Applies the look again when the appearance changes. It watches the field's parent as well: a
// widget with a style sheet of its own is not always told that the application's palette changed.
class Follower : public QObject {
public:
    explicit Follower(QWidget* field)
        : QObject(field)
        , field(field)
    {
        field->installEventFilter(this);
        if (field->parentWidget()) field->parentWidget()->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (!applying && (event->type() == QEvent::ParentChange || KitPaint::isAppearanceChange(event))) {
            // Our own style sheet and palette send the same events.
            applying = true;
            applyLook(field);
            applying = false;
        }
        return false;
    }

private:
    QWidget* field;
    bool applying = false;
};

} // namespace

namespace V3Field {

void install(QWidget* field)
{
    field->setAttribute(Qt::WA_MacShowFocusRect, false);
    new Follower(field);
    applyLook(field);
}

} // namespace V3Field
