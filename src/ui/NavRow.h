#pragma once

#include "ui/D1Screen.h"

#include <QAbstractButton>

// One sidebar row: a full-width button with the destination's tile and label. The selected row
// has a highlight behind it and its label in the primary colour; the others are muted.
class NavRow : public QAbstractButton {
    Q_OBJECT
public:
    explicit NavRow(D1Screen screen, QWidget* parent = nullptr);

    D1Screen screen() const { return destination; }
    void setSelected(bool selected);
    bool isSelected() const { return selected; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    D1Screen destination;
    NavRowContent content;
    bool selected = false;
    bool hovered = false;
};
