#pragma once

#include <QImage>
#include <QWidget>

class AreaMonitor;
class SourceMemory;

// The live picture of the capture with the watched area drawn over it. The picture arrives already
// at this widget's size (the card tells the engine what it needs), so showing it is a plain copy;
// the widget is opaque, so a new picture repaints nothing beneath it.
class PreviewSurface : public QWidget {
    Q_OBJECT
public:
    explicit PreviewSurface(AreaMonitor* monitor, const SourceMemory* sources, QWidget* parent = nullptr);

    void setImage(const QImage& image);
    const QImage& image() const { return picture; }
    // Where the watched area is drawn, in this widget's coordinates; none when it isn't.
    std::optional<QRectF> watchedBox() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    AreaMonitor* monitor;
    const SourceMemory* sources;
    QImage picture;
};
