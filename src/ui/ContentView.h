#pragma once

#include "app/session/SessionModels.h"
#include "ui/D1Screen.h"
#include "ui/kit/D1AmbientBackground.h"

class D1Sidebar;
class QHBoxLayout;
class QScrollArea;
class ToastView;

// The root of the window: the ambient backdrop, the sidebar on the left, the selected screen on the
// right, and the toast over everything. Switching screens destroys the one left behind with its
// local state; the models stay.
class ContentView : public D1AmbientBackground {
    Q_OBJECT
public:
    // The window's 480 by 360 less the menu bar above the content.
    static constexpr QSize minimumContentSize { 480, 320 };

    explicit ContentView(const SessionModels& m, QWidget* parent = nullptr);

    D1Screen screen() const { return current; }
    // The widget of the screen on show.
    QWidget* screenWidget() const { return shownScreen; }
    D1Sidebar* sidebar() const { return bar; }
    ToastView* toast() const { return toastView; }

    void showScreen(D1Screen screen);

signals:
    void screenChanged(D1Screen screen);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    QWidget* makeScreen(D1Screen screen);

    SessionModels models;
    D1Screen current = D1Screen::recorder;
    D1Sidebar* bar;
    QHBoxLayout* row;
    QScrollArea* screenArea;
    QWidget* shownScreen = nullptr;
    ToastView* toastView;
};
