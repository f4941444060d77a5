#pragma once

#include "ui/kit/D1.h"

#include <QAbstractButton>

// One row of the settings screen's column of groups: the group's tile, its title, and a chevron on
// every row but the current one. Compact, it shows the tile alone (a narrow window).
class PremiumSettingsNavRow : public QAbstractButton {
    Q_OBJECT
public:
    PremiumSettingsNavRow(
        const QString& title, const QString& symbol, const TileColors& tile, QWidget* parent = nullptr);

    void setCurrent(bool current);
    bool isCurrent() const { return current; }
    void setCompact(bool compact);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString symbol;
    TileColors tile;
    bool current = false;
    bool compact = false;
};
