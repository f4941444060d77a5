#include "ui/settings/SetRowFolder.h"

#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Text.h"

#include <QDir>
#include <QHBoxLayout>

SetRowFolder::SetRowFolder(const QString& label, QWidget* parent)
    : SetRow(label, {}, parent)
{
    pathText = new V3Text({}, 12, QFont::Normal, V3::fgMute);
    pathText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    pathText->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    pathText->setMinimumWidth(80);
    choose = new V3Button(V3Button::Kind::secondary, QStringLiteral("Choose…"));
    choose->setSymbol(QStringLiteral("folder"));
    addControl(pathText);
    addControl(choose);
    controls()->setStretch(0, 1);
    connect(choose, &QAbstractButton::clicked, this, &SetRowFolder::chooseRequested);
}

void SetRowFolder::setPath(const QString& path)
{
    folder = path;
    pathText->setToolTip(QDir::toNativeSeparators(path));
    showPath();
}

void SetRowFolder::resizeEvent(QResizeEvent* event)
{
    SetRow::resizeEvent(event);
    showPath();
}

// The home folder as "~", and a path too long for its room cut in the middle, where the least
// telling part of it is.
void SetRowFolder::showPath()
{
    QString shown = QDir::toNativeSeparators(folder);
    const QString home = QDir::toNativeSeparators(QDir::homePath());
    if (shown == home || shown.startsWith(home + QDir::separator())) shown = QLatin1Char('~') + shown.mid(home.size());
    pathText->setText(pathText->fontMetrics().elidedText(shown, Qt::ElideMiddle, std::max(60, pathText->width())));
}
