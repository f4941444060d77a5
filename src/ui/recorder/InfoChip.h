#pragma once

#include <QWidget>

// A fact of the capture beside its icon ("1920×1080", "30fps", "30s buffer"), in small monospaced
// type on a soft plate. Its accessible role is static text, named by its text.
class InfoChip : public QWidget {
    Q_OBJECT
public:
    InfoChip(const QString& icon, const QString& text, QWidget* parent = nullptr);

    void setText(const QString& text);
    QString text() const { return label; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    QFont textFont() const;

    QString icon;
    QString label;
};
