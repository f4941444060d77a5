#include "ui/recorder/PermissionView.h"

#include "ui/kit/Symbols.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Text.h"

#include <QPainter>
#include <QVBoxLayout>

namespace {

// The lock on its badge.
class LockBadge : public QWidget {
public:
    explicit LockBadge(QWidget* parent)
        : QWidget(parent)
    {
        setFixedSize(96, 96);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(V3::lineSoft.resolve(this), 0.5));
        p.setBrush(V3::bgInset.resolve(this));
        p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 26, 26);
        Symbols::paint(p, QRectF(29, 29, 38, 38), QStringLiteral("lock.fill"), V3::fgMute.resolve(this));
    }
};

} // namespace

PermissionView::PermissionView(QWidget* parent)
    : QWidget(parent)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(36, 24, 36, 36);
    column->setSpacing(12);
    column->addStretch();
    column->addWidget(new LockBadge(this), 0, Qt::AlignHCenter);
    auto* title = new V3Text(QStringLiteral("Screen capture access required"), 18, QFont::DemiBold, V3::fg, this);
    title->setAlignment(Qt::AlignHCenter);
    column->addWidget(title);
    auto* text = new V3Text(QStringLiteral("Velotape needs your permission before it can capture displays or windows. "
                                           "Allow it once when your desktop asks to share the screen; you can take it "
                                           "back at any time."),
        13, QFont::Normal, V3::fgMute, this);
    text->setAlignment(Qt::AlignHCenter);
    text->setMaximumWidth(420);
    column->addWidget(text, 0, Qt::AlignHCenter);
    auto* button = new V3Button(V3Button::Kind::primary, QStringLiteral("Ask Again"), this);
    button->setSymbol(QStringLiteral("arrow.clockwise"));
    askAgain = button;
    column->addWidget(button, 0, Qt::AlignHCenter);
    column->addStretch();
}
