#pragma once

#include <QWidget>

// The screen's heading: a large title over a line of text.
class HeaderArea : public QWidget {
    Q_OBJECT
public:
    HeaderArea(const QString& title, const QString& subtitle, QWidget* parent = nullptr);
};
