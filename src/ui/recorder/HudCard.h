#pragma once

#include "ui/kit/DynamicColor.h"

#include <QWidget>

// A state badge over the live preview: a coloured dot, a label and a monospaced detail
// ("● Recording 01:15.50 · 1920×1080") on a small dark plate, legible over any picture.
class HudCard : public QWidget {
    Q_OBJECT
public:
    explicit HudCard(QWidget* parent = nullptr);

    void setContent(const DynamicColor& dotColor, const QString& label, const QString& detail);
    QString label() const { return labelText; }
    QString detail() const { return detailText; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QFont labelFont() const;
    QFont detailFont() const;

    DynamicColor dot;
    QString labelText;
    QString detailText;
};
