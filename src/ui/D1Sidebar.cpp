#include "ui/D1Sidebar.h"

#include "ui/NavRow.h"
#include "ui/kit/AppLogoMarkLite.h"
#include "ui/kit/D1.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Text.h"

#include <QCoreApplication>
#include <QPainter>
#include <QVBoxLayout>
#include <QVersionNumber>

namespace {

// The mark, a drawing only.
class LogoMark : public QWidget {
public:
    explicit LogoMark(QWidget* parent)
        : QWidget(parent)
    {
        setFixedSize(22, 22);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        AppLogoMarkLite::paint(p, QRectF(rect()));
    }
};

QString versionLine()
{
    const QVersionNumber v = QVersionNumber::fromString(QCoreApplication::applicationVersion());
    return QStringLiteral("Velotape · %1.%2").arg(v.majorVersion()).arg(v.minorVersion());
}

} // namespace

D1Sidebar::D1Sidebar(QWidget* parent)
    : QWidget(parent)
{
    setFixedWidth(fixedWidth);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
    setAccessibleName(QStringLiteral("Sidebar"));

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(14, 18, 14, 14);
    column->setSpacing(4);

    auto* header = new QHBoxLayout;
    header->setContentsMargins(6, 0, 0, 14);
    header->setSpacing(8);
    header->addWidget(new LogoMark(this));
    header->addWidget(new V3Text(QStringLiteral("Velotape"), 16, QFont::DemiBold, V3::fg, this));
    header->addStretch();
    column->addLayout(header);

    for (D1Screen screen : allScreens) {
        auto* row = new NavRow(screen, this);
        row->setSelected(screen == current);
        connect(row, &NavRow::clicked, this, [this, screen] { setSelected(screen); });
        rows.push_back(row);
        column->addWidget(row);
    }
    column->addStretch();
    auto* foot = new V3Text(versionLine(), 10, QFont::Normal, V3::fgDim, this);
    column->addWidget(foot);
    column->setAlignment(foot, Qt::AlignLeft);
}

void D1Sidebar::setSelected(D1Screen screen)
{
    if (screen == current) return;
    current = screen;
    for (NavRow* row : rows)
        row->setSelected(row->screen() == screen);
    emit selectedChanged(screen);
}

NavRow* D1Sidebar::row(D1Screen screen) const
{
    for (NavRow* row : rows)
        if (row->screen() == screen) return row;
    return nullptr;
}

void D1Sidebar::paintEvent(QPaintEvent*)
{
    // A plate a shade above the backdrop, with a hairline on the side that meets the screen.
    QPainter p(this);
    QColor plate = V3::bgElev.resolve(this);
    plate.setAlphaF(0.55);
    p.fillRect(rect(), plate);
    p.setPen(QPen(D1::sidebarStroke, 1));
    p.drawLine(QPointF(fixedWidth - 0.5, 0), QPointF(fixedWidth - 0.5, height()));
}
