#include "ui/recorder/EmptyHeroIllustration.h"

#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Text.h"
#include "ui/recorder/CardColours.h"

#include <QHBoxLayout>
#include <QPainter>
#include <QVBoxLayout>

namespace {

// A screen with a picture on it above a strip of seconds, the newest one red.
class Drawing : public QWidget {
public:
    explicit Drawing(QWidget* parent)
        : QWidget(parent)
    {
        setFixedSize(150, 104);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        // The card is dark in both appearances: its drawing takes the dark colours.
        const QColor line = V3::line.resolve(Appearance::dark);
        const QColor inset = V3::bgInset.resolve(Appearance::dark);
        const QRectF screen(15, 4, 120, 70);
        p.setPen(QPen(line, 1.5));
        p.setBrush(inset);
        p.drawRoundedRect(screen, 8, 8);
        QColor accent = V3::accent.resolve(Appearance::dark);
        p.setPen(QPen(accent, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.setBrush(Qt::NoBrush);
        const QPointF chart[] = { { 27, 60 }, { 47, 48 }, { 63, 54 }, { 83, 30 }, { 101, 40 }, { 123, 18 } };
        p.drawPolyline(chart, int(std::size(chart)));
        p.setPen(Qt::NoPen);
        for (int i = 0; i < 6; ++i) {
            const QRectF second(15 + i * 21, 84, 15, 12);
            p.setBrush(i == 5 ? V3::rec.resolve(Appearance::dark) : inset);
            p.drawRoundedRect(second, 3, 3);
        }
    }
};

} // namespace

EmptyHeroIllustration::EmptyHeroIllustration(QWidget* parent)
    : QWidget(parent)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(8, 16, 8, 16);
    column->setSpacing(8);
    column->addStretch();
    column->addWidget(new Drawing(this), 0, Qt::AlignHCenter);
    column->addSpacing(8);
    auto* heading
        = new V3Text(QStringLiteral("Pick a source to start"), 18, QFont::DemiBold, CardColours::text(), this);
    heading->setAlignment(Qt::AlignHCenter);
    column->addWidget(heading);
    auto* text = new V3Text(QStringLiteral("Choose a display or a window with the source picker above, or capture "
                                           "the whole screen now. Velotape keeps the last few seconds rolling so you "
                                           "never miss what just happened."),
        13, QFont::Normal, CardColours::mutedText(), this);
    text->setAlignment(Qt::AlignHCenter);
    text->setMaximumWidth(420);
    // Centred by stretches, not by alignment: an aligned label gets its one-line width and is cut.
    auto* textRow = new QHBoxLayout;
    textRow->addStretch();
    textRow->addWidget(text, 1);
    textRow->addStretch();
    column->addLayout(textRow);
    column->addSpacing(6);
    auto* button = new V3Button(V3Button::Kind::primary, QStringLiteral("Capture the screen"), this);
    button->setSymbol(QStringLiteral("record.circle"));
    capture = button;
    column->addWidget(button, 0, Qt::AlignHCenter);
    column->addStretch();
}
