#pragma once

#include <QPushButton>

// A push button in one of the kit's four looks, painted by V3PrimaryButtonStyle,
// V3SecondaryButtonStyle, V3GhostButtonStyle or V3RecordButtonStyle. It takes keyboard focus by Tab
// only (as buttons on the desktop's toolkits do) and then shows a focus ring. Its accessible name is
// its text, or for a button with only a symbol, the symbol's meaning.
class V3Button : public QPushButton {
    Q_OBJECT
public:
    enum class Kind { primary, secondary, ghost, record };

    V3Button(Kind kind, const QString& text, QWidget* parent = nullptr);

    Kind kind() const { return look; }
    // A symbol name of the symbol table, drawn before the text; empty for none.
    void setSymbol(const QString& symbol);
    QString symbol() const { return glyph; }
    // The record look only: a recording runs, the button turns red with a stop square.
    void setLive(bool live);
    bool isLive() const { return live; }
    // Hides QPushButton::setText so that an icon-only button's accessible name follows.
    void setText(const QString& text);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    void updateAccessibleName();

    Kind look;
    QString glyph;
    bool live = false;
    bool namedBySymbol = false;
};
