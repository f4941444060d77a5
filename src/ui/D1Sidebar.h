#pragma once

#include "ui/D1Screen.h"

#include <QWidget>

#include <vector>

class NavRow;

// The window's fixed 240-wide sidebar: the mark and the name at the top, a row for each
// destination, the version at the foot. Pressing a row selects its destination.
class D1Sidebar : public QWidget {
    Q_OBJECT
public:
    static constexpr int fixedWidth = 240;

    explicit D1Sidebar(QWidget* parent = nullptr);

    D1Screen selected() const { return current; }
    void setSelected(D1Screen screen);
    NavRow* row(D1Screen screen) const;

signals:
    void selectedChanged(D1Screen screen);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    D1Screen current = D1Screen::recorder;
    std::vector<NavRow*> rows;
};
