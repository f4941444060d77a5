#pragma once

#include "journal/ClipMeta.h"

#include <QWidget>

#include <functional>

class QAbstractButton;
class QLineEdit;

// A card's trade tags: the pills "W", "L" and "BE", the amount, and the unit. Every change goes
// through `apply` as a whole record; the bar shows what it is given and keeps only the amount's
// text while the user types.
class ClipTagBar : public QWidget {
    Q_OBJECT
public:
    static constexpr int height = 24;
    static constexpr int amountWidth = 56;

    ClipTagBar(std::function<void(const ClipMeta&)> apply, QWidget* parent = nullptr);

    // The record from outside (the store, a detection): the amount's text follows it, unless the
    // same record came back. For another clip's record the text always follows, so that what was
    // typed on one clip never shows on the next.
    void setMeta(const ClipMeta& meta, bool anotherClip = false);
    const ClipMeta& meta() const { return record; }

    QAbstractButton* pill(TradeOutcome outcome) const;
    QLineEdit* amountField() const { return amount; }
    QAbstractButton* unitButton() const { return unit; }

private:
    void commitPnL();
    void syncTextFromMeta();
    void showMeta();

    std::function<void(const ClipMeta&)> apply;
    ClipMeta record;
    bool hasRecord = false;
    QAbstractButton* pills[3];
    QLineEdit* amount;
    QAbstractButton* unit;
};
