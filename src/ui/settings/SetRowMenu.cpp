#include "ui/settings/SetRowMenu.h"

#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Text.h"

#include <QMenu>
#include <QPainter>
#include <QVBoxLayout>

namespace {

// The inset plate that a style's preview stands on.
class _PreviewStage : public QWidget {
public:
    using QWidget::QWidget;

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(V3::lineSoft.resolve(this), 0.5));
        p.setBrush(V3::bgInset.resolve(this));
        p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);
    }
};

} // namespace

SetRowMenu::SetRowMenu(const QString& label, std::vector<Item> entries, QWidget* parent)
    : SetRow(label, {}, parent)
    , items(std::move(entries))
{
    menuButton = new V3Button(V3Button::Kind::secondary, {});
    menuButton->setSymbol(QStringLiteral("chevron.up.chevron.down"));
    auto* menu = new QMenu(menuButton);
    for (const Item& item : items) {
        QAction* action = menu->addAction(item.label);
        action->setCheckable(true);
        action->setData(item.value);
        connect(action, &QAction::triggered, this, [this, value = item.value] {
            setSelection(value);
            emit selectionEdited(value);
        });
    }
    menuButton->setMenu(menu);

    auto* preview = new QWidget;
    auto* column = new QVBoxLayout(preview);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    column->addWidget(new V3Text(QStringLiteral("Preview"), 10, QFont::DemiBold, V3::fgFaint, preview));
    slot = new _PreviewStage(preview);
    slot->setObjectName(QStringLiteral("stylePreviewSlot"));
    auto* slotColumn = new QVBoxLayout(slot);
    slotColumn->setContentsMargins(0, 0, 0, 0);
    slot->setMinimumSize(120, 68);
    column->addWidget(slot);
    caption = new V3Text({}, 10, QFont::Normal, V3::fgFaint, preview);
    caption->hide();
    column->addWidget(caption);
    addControl(menuButton);
    addControl(preview);
}

void SetRowMenu::setSelection(const QString& value)
{
    selected = value;
    for (const Item& item : items) {
        if (item.value != value) continue;
        menuButton->setText(item.label);
        setHelp(item.explainer);
    }
    for (QAction* action : menuButton->menu()->actions())
        action->setChecked(action->data().toString() == value);
}

void SetRowMenu::setCaption(const QString& text)
{
    caption->setText(text);
    caption->setVisible(!text.isEmpty());
}
