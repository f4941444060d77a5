#pragma once

#include <QAbstractButton>
#include <QImage>
#include <QPixmap>

#include <functional>

// One row of the source picker, a button named by its title: a picture at the left (a source's
// thumbnail, or a small tile for an action), the title with a line under it, and at the right a
// check mark badge when the row is the selected source, or the action's symbol.
//
// A source row asks for its thumbnail the first time it is drawn without one (it has come into
// view), and again on each later draw until one has arrived.
class SourcePickerRow : public QAbstractButton {
    Q_OBJECT
public:
    struct Content {
        QString title;
        QString detail;
        QString detailSymbol; // before the detail line; empty for none
        bool elideDetailInMiddle = false;
        // A source row: the symbol on the stand-in picture. An action row: the symbol of its tile.
        QString symbol;
        bool isAction = false;
        QString trailingSymbol; // action rows
    };

    static constexpr int rowHeight = 78;
    static constexpr int thumbWidth = 104;
    static constexpr qreal thumbAspect = 1.6;
    static constexpr qreal thumbRadius = 7;
    static constexpr int badgeSize = 22;

    SourcePickerRow(Content content, QWidget* parent = nullptr);

    const QString& title() const { return content.title; }
    void setSelected(bool selected);
    bool isSelected() const { return selected; }
    void setThumbnail(const QImage& image);
    bool hasThumbnail() const { return !thumbnail.isNull(); }
    // Called when the row is drawn without a thumbnail.
    void setThumbnailRequest(std::function<void()> request) { requestThumbnail = std::move(request); }
    // Where the picture is drawn, in the row.
    QRectF thumbRect() const;

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    void paintThumbnail(QPainter& p, const QRectF& r);

    Content content;
    bool selected = false;
    QImage thumbnail;
    QPixmap scaledThumbnail; // the thumbnail cropped and scaled to the picture's size
    std::function<void()> requestThumbnail;
};
