#pragma once

#include <QString>
#include <QWidget>

#include <optional>

class QVariantAnimation;

// The toast: one small dark card at the bottom centre of the window, over everything. It moves up
// from the bottom edge and fades in when a text arrives, and back out when it goes, in 0.2 s. A new
// text while one shows replaces it in the same card. How long a text stays is the controller's
// business; this only shows what it is given.
//
// The widget covers its parent (which keeps its geometry in step) and lets every click through.
class ToastView : public QWidget {
    Q_OBJECT
public:
    static constexpr int bottomMargin = 24;
    static constexpr int animationMilliseconds = 200;

    explicit ToastView(QWidget* parent);

    void setText(const std::optional<QString>& text);
    const QString& text() const { return shown; }
    bool isShowing() const { return target > 0; }
    // The card's rectangle in this widget now (empty while fully gone).
    QRectF cardRect() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QRectF restingCardRect() const;

    QString shown;
    double progress = 0; // 0 gone, 1 in place
    double target = 0;
    QVariantAnimation* animation;
};
