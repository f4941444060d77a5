#pragma once

#include "journal/ClipTrade.h"

#include <QList>
#include <QWidget>

class QVBoxLayout;
class V3Text;

// The imported trades that no clip saw, as lines under the clips screen's header: they count in the
// journal, but there is no video to show for them. The newest few are listed, the rest counted.
// Hidden while there are none.
class TradesWithoutClipList : public QWidget {
    Q_OBJECT
public:
    static constexpr int linesShown = 5;

    explicit TradesWithoutClipList(QWidget* parent = nullptr);

    // Newest first.
    void setTrades(const QList<ClipTrade>& trades);
    QStringList lines() const;

private:
    V3Text* heading;
    QVBoxLayout* column;
    QList<V3Text*> rows;
};
