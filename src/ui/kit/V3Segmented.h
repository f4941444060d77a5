#pragma once

#include <QWidget>

#include <vector>

class QAbstractButton;

// One plate holding a row of plain buttons, each 24 high, the selected one raised. Each item is a
// button of its own (an exclusive, checkable one: a radio button to assistive technology) named by
// its label, so that automation can press it. An item is chosen when its button becomes checked,
// however that happens: a click, Space, or assistive technology's toggle action. selectionChanged
// fires once for each change of the selection, whether by a press or by setSelection; a press on
// the selected item changes nothing.
//
// An item may carry a symbol, drawn before its label. Items with symbols let the row shrink below
// its natural width: an item too narrow for its label shows the symbol alone, with the label as its
// tooltip (and still its accessible name).
class V3Segmented : public QWidget {
    Q_OBJECT
public:
    struct Item {
        QString value;
        QString label;
        QString symbol = {};
    };

    static constexpr int segmentHeight = 24;
    static constexpr int platePadding = 2;
    static constexpr qreal plateRadius = 8;
    static constexpr qreal segmentRadius = 6;
    static constexpr qreal fontSize = 12;

    explicit V3Segmented(std::vector<Item> items, QWidget* parent = nullptr);

    QString selection() const { return selected; }
    // A value that no item has leaves no item raised.
    void setSelection(const QString& value);
    // The button of one item, or null.
    QAbstractButton* buttonFor(const QString& value) const;

signals:
    void selectionChanged(const QString& value);

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    std::vector<Item> items;
    std::vector<QAbstractButton*> buttons;
    QString selected;
    bool settingRow = false; // setSelection is checking the buttons itself
};
