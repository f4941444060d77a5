#include "ui/settings/SetRow.h"

#include "ui/kit/V3.h"
#include "ui/kit/V3Text.h"

#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QPainter>
#include <QVBoxLayout>

SetRow::SetRow(const QString& label, const QString& help, QWidget* parent)
    : QWidget(parent)
{
    outer = new QBoxLayout(QBoxLayout::LeftToRight, this);
    outer->setContentsMargins(0, 10, 0, 10);
    outer->setSpacing(16);
    auto* texts = new QVBoxLayout;
    texts->setSpacing(3);
    labelText = new V3Text(label, 13, QFont::Medium, V3::fg, this);
    helpText = new V3Text(help, 11, QFont::Normal, V3::fgMute, this);
    helpText->setWordWrap(true);
    helpText->setVisible(!help.isEmpty());
    warningText = new V3Text({}, 11, QFont::Medium, V3::alert, this);
    warningText->setWordWrap(true);
    warningText->hide();
    texts->addWidget(labelText);
    texts->addWidget(helpText);
    texts->addWidget(warningText);
    outer->addLayout(texts, 1);
    controlRow = new QHBoxLayout;
    controlRow->setSpacing(8);
    outer->addLayout(controlRow);
}

void SetRow::setStacked(bool stacked)
{
    outer->setDirection(stacked ? QBoxLayout::TopToBottom : QBoxLayout::LeftToRight);
    outer->setSpacing(stacked ? 6 : 16);
    outer->setAlignment(controlRow, stacked ? Qt::AlignLeft : Qt::Alignment());
}

QString SetRow::label() const
{
    return labelText->text();
}

QString SetRow::help() const
{
    return helpText->text();
}

void SetRow::setHelp(const QString& help)
{
    helpText->setText(help);
    helpText->setVisible(!help.isEmpty());
}

void SetRow::setWarning(const QString& warning)
{
    warningText->setText(warning);
    warningText->setVisible(!warning.isEmpty());
}

QString SetRow::warning() const
{
    return warningText->text();
}

void SetRow::addControl(QWidget* control)
{
    control->setParent(this);
    controlRow->addWidget(control, 0, Qt::AlignVCenter);
    control->setAccessibleName(label());
}

void SetRow::setIndented(bool indented)
{
    outer->setContentsMargins(indented ? indentWidth : 0, 10, 0, 10);
}

void SetRow::setDividerAbove(bool value)
{
    divider = value;
    update();
}

void SetRow::setDimmed(bool value)
{
    dimmed = value;
    for (int i = 0; i < controlRow->count(); ++i)
        if (QWidget* control = controlRow->itemAt(i)->widget()) control->setEnabled(!value);
    if (value) {
        auto* fade = new QGraphicsOpacityEffect(this);
        fade->setOpacity(dimmedOpacity);
        setGraphicsEffect(fade);
    } else {
        setGraphicsEffect(nullptr);
    }
}

void SetRow::paintEvent(QPaintEvent*)
{
    if (!divider) return;
    QPainter p(this);
    p.setPen(QPen(V3::lineSoft.resolve(this), 1));
    p.drawLine(QPointF(0, 0.5), QPointF(width(), 0.5));
}
