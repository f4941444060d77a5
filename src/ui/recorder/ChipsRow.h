#pragma once

#include <QWidget>

#include <vector>

// The row under the header: the source button, the chips and "Pick region", each at its own size,
// left to right, going on to a second line when the window is too narrow for one.
class ChipsRow : public QWidget {
    Q_OBJECT
public:
    static constexpr int spacing = 10;

    explicit ChipsRow(QWidget* parent = nullptr);

    void addWidget(QWidget* widget);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

protected:
    void resizeEvent(QResizeEvent* event) override;
    bool event(QEvent* event) override;

private:
    // Places the shown widgets in `width` (or only measures); the height they take.
    int arrange(int width, bool place) const;

    std::vector<QWidget*> items;
};
