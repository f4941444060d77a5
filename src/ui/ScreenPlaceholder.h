#pragma once

#include <QString>
#include <QWidget>

// Stands in for a screen that is not built yet: its title, its symbol, and a sentence on what
// it will show, on a card of the kit.
class ScreenPlaceholder : public QWidget {
    Q_OBJECT
public:
    ScreenPlaceholder(const QString& title, const QString& symbol, const QString& promise, QWidget* parent = nullptr);

    // Where the card stands in the widget now.
    QRectF cardRect() const;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    static constexpr double tileSize = 56;
    static constexpr double textInset = 24;
    QFont bodyFont() const;

    QString title;
    QString symbol;
    QString promise;
};
