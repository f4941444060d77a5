#pragma once

#include "app/session/SessionModels.h"
#include "ui/SourcePickerContent.h"
#include "ui/SourcePickerRow.h"

#include <QWidget>

#include <functional>
#include <vector>

class QLineEdit;
class QVBoxLayout;
class SourceThumbnailer;
class V3Button;
class V3Segmented;

// What the always-on recorder keeps recording: a heading with a refresh button, tabs of displays
// and windows with a filter, the rows of the tab with their thumbnails, and a row for drawing a
// custom region. Choosing a row makes it the source at once and restarts the stream on it.
//
// Where the desktop's own dialog chooses what is shared (Wayland), there are no tabs: the one
// source it shares, and a row that has the desktop ask again.
//
// The sources are listed afresh whenever a popover is made, so a window opened since the last
// one can be picked. Its tab, filter and thumbnails live as long as it does.
//
// Main thread.
class SourcePickerPopover : public QWidget {
    Q_OBJECT
public:
    static constexpr QSize popoverSize { 440, 560 };

    // `dismiss` closes the popover; it runs before a chosen source's stream restarts.
    SourcePickerPopover(const SessionModels& m, std::function<void()> dismiss, QWidget* parent = nullptr);
    ~SourcePickerPopover() override;

    SourcePickerContent::Tab tab() const { return shownTab; }
    void setTab(SourcePickerContent::Tab tab);
    void setFilter(const QString& filter);
    // The rows of the tab on show, in the engine's order.
    const std::vector<SourcePickerRow*>& rows() const { return sourceRows; }
    // The row of a source id ("display-…", "window-…") on the tab on show, or null.
    SourcePickerRow* row(const QString& sourceId) const;
    SourcePickerRow* regionRow() const { return region; }
    // Null where the engine lists displays and windows itself.
    SourcePickerRow* askDesktopRow() const { return askDesktop; }
    SourceThumbnailer* thumbnailer() const { return thumbnails; }

signals:
    // The popover went off the screen, however it was closed.
    void closed();

protected:
    void hideEvent(QHideEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    bool event(QEvent* event) override;

private:
    class EmptyHint;

    // Rebuilds the rows of the tab on show from the engine's lists and the filter.
    void rebuildRows();
    // Marks the row of the selected source.
    void markSelection();
    SourcePickerRow* addSourceRow(const CaptureSource& source, SourcePickerRow::Content content);
    void choose(const CaptureSource& source);
    void pickRegion();
    void askDesktopAgain();

    SessionModels models;
    std::function<void()> dismiss;
    SourcePickerContent::Tab shownTab = SourcePickerContent::Tab::displays;
    QString filter;
    SourceThumbnailer* thumbnails;

    V3Button* refresh;
    V3Segmented* tabs;
    QLineEdit* filterField;
    QWidget* list;
    QVBoxLayout* listColumn;
    EmptyHint* emptyHint;
    SourcePickerRow* askDesktop = nullptr;
    SourcePickerRow* region;
    std::vector<SourcePickerRow*> sourceRows;
    std::vector<QString> rowIds;
};
