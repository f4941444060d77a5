#pragma once

#include <QWidget>

class QAbstractButton;

// What the preview card shows while nothing is captured: a drawing of a screen with its rolling
// strip of seconds, a heading, a line on what Velotape does, and the button that starts capturing
// the screen.
class EmptyHeroIllustration : public QWidget {
    Q_OBJECT
public:
    explicit EmptyHeroIllustration(QWidget* parent = nullptr);

    QAbstractButton* captureButton() const { return capture; }

private:
    QAbstractButton* capture;
};
