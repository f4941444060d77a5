#pragma once

#include <QObject>

class QAbstractButton;

// Return and Enter press the button it is made for, as Space does. The desktop's toolkits give
// those keys to a dialog's default button only, and this window has no dialogs: without it a
// keyboard user would find that only Space works. A child of the button; it lives as long as it.
class EnterPresses : public QObject {
    Q_OBJECT
public:
    explicit EnterPresses(QAbstractButton* button);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QAbstractButton* button;
};
