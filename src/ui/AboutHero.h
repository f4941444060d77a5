#pragma once

#include <QWidget>

// What the program is, its version, and where to get help when recording fails.
class AboutHero : public QWidget {
public:
    explicit AboutHero(QWidget* parent = nullptr);
};
