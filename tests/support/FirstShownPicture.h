#pragma once

#include <QColor>
#include <QSize>
#include <QString>

#include <optional>

// What a player shows first of a clip: the colour near the top-left corner of its first picture
// that the edit list does not hide, the clip's size and duration. None if it cannot be decoded.
struct FirstShownPicture {
    QColor colour;
    QSize size;
    double durationSeconds = 0;

    static std::optional<FirstShownPicture> read(const QString& path);
};

// The counter that the tests' painters show as a colour (16 levels a channel survive compression),
// and back.
QColor counterColour(int counter);
int counterFromColour(const QColor& colour);
