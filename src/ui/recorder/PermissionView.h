#pragma once

#include <QWidget>

class QAbstractButton;

// What the recorder screen shows instead of its content when the desktop refused to let Velotape
// capture the screen: why it matters, and a button that asks again. Only desktops that ask for a
// permission can refuse one; an X server never does.
class PermissionView : public QWidget {
    Q_OBJECT
public:
    explicit PermissionView(QWidget* parent = nullptr);

    // Starts the capture again, which brings back the desktop's question.
    QAbstractButton* askAgainButton() const { return askAgain; }

private:
    QAbstractButton* askAgain;
};
