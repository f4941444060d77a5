#include "ui/kit/KitAccessibility.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QWidget>

namespace {

QAccessibleInterface* factory(const QString& className, QObject* object)
{
    auto* widget = qobject_cast<QWidget*>(object);
    if (!widget) return nullptr;
    if (className == QLatin1String("V3Chip")) return new QAccessibleWidget(widget, QAccessible::StaticText);
    if (className == QLatin1String("V3Segmented")) return new QAccessibleWidget(widget, QAccessible::Grouping);
    return nullptr;
}

} // namespace

namespace KitAccessibility {

void install()
{
    static const bool installed = [] {
        QAccessible::installFactory(factory);
        return true;
    }();
    (void)installed;
}

} // namespace KitAccessibility
