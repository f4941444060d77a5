#pragma once

#include <QWidget>

class QBoxLayout;
class QHBoxLayout;
class V3Text;

// One row of a settings card: the label, an optional help text in smaller type beneath it, an
// optional warning line under that, and the row's control on the right. Rows of one card are
// separated by a hairline above every row but the first.
class SetRow : public QWidget {
    Q_OBJECT
public:
    static constexpr int indentWidth = 20;
    static constexpr qreal dimmedOpacity = 0.55;

    SetRow(const QString& label, const QString& help, QWidget* parent = nullptr);

    QString label() const;
    QString help() const;
    void setHelp(const QString& help);
    // A line in the alert colour under the help; empty hides it.
    void setWarning(const QString& warning);
    QString warning() const;

    // The control on the right; the row takes it. Further widgets go after it.
    void addControl(QWidget* control);
    QHBoxLayout* controls() const { return controlRow; }

    // A row that only counts while the setting of the row above is on stands indented.
    void setIndented(bool indented);
    // The control under the texts instead of beside them, for a narrow screen.
    void setStacked(bool stacked);
    void setDividerAbove(bool divider);
    // Disabled, and drawn faded, while a preset or a missing device decides for it.
    void setDimmed(bool dimmed);
    bool isDimmed() const { return dimmed; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    V3Text* labelText;
    V3Text* helpText;
    V3Text* warningText;
    QHBoxLayout* controlRow;
    QBoxLayout* outer;
    bool divider = false;
    bool dimmed = false;
};
