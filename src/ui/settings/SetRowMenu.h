#pragma once

#include "ui/settings/SetRow.h"

#include <vector>

class V3Button;
class V3Text;

// A row that picks one style from a menu (a check mark on the current one), with the style's
// explainer as help, and beside the button a place for a small live preview of the style under the
// title "Preview", with an optional caption.
class SetRowMenu : public SetRow {
    Q_OBJECT
public:
    struct Item {
        QString value;
        QString label;
        QString explainer;
    };

    SetRowMenu(const QString& label, std::vector<Item> items, QWidget* parent = nullptr);

    void setSelection(const QString& value);
    QString selection() const { return selected; }
    V3Button* button() const { return menuButton; }
    // Where the preview of the chosen style goes (empty until one is put there); its layout is a
    // column.
    QWidget* previewSlot() const { return slot; }
    void setCaption(const QString& caption);

signals:
    // The user chose an item.
    void selectionEdited(const QString& value);

private:
    std::vector<Item> items;
    QString selected;
    V3Button* menuButton;
    QWidget* slot;
    V3Text* caption;
};
