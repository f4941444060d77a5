#pragma once

#include <QWidget>

class QVBoxLayout;

// The common chrome of the journal's and the about screen's cards: the card colour, a hairline
// border and a rounded corner, around a column of content.
class HeroCard : public QWidget {
public:
    static constexpr qreal radius = 14;
    static constexpr int padding = 16;

    explicit HeroCard(QWidget* parent = nullptr);

    QVBoxLayout* column() const { return content; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QVBoxLayout* content;
};
