#pragma once

#include "app/session/SessionModels.h"
#include "ui/clips/ClipsScreenModel.h"

#include <QWidget>

class ClipCard;
class ClipGrid;
class QAction;
class TradesWithoutClipList;
class QVBoxLayout;
class V3Chip;
class V3Text;

// The clips screen: every clip of the save folder as a card in a grid that scrolls, under a header
// with the count, a menu of the broker's trades ("Import trades…") and a button that opens the
// folder, and the imported trades that no clip saw as lines; "No clips yet" instead of the grid while the
// folder holds none. Coming up, it lists the folder; it lists it again after a save, a rename or a
// trash. Thumbnails are decoded only for the cards in view, once scrolling rests.
class ClipsScreen : public QWidget {
    Q_OBJECT
public:
    using ClipEntry = ClipsScreenModel::ClipEntry;

    explicit ClipsScreen(const SessionModels& m, QWidget* parent = nullptr);

    ClipsScreenModel* model() const { return clipsModel; }
    ClipGrid* grid() const { return cards; }
    bool showsEmptyState() const;
    QString countText() const;
    // The card of a listed clip, scrolled into view; null for a clip not listed.
    ClipCard* cardFor(const QUrl& clip);
    // The header menu's "Import trades…", which asks for the file.
    QAction* importAction() const { return importTrades; }
    TradesWithoutClipList* tradesWithoutClip() const { return looseTrades; }

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void showListing();
    void requestThumbnails();
    void chooseTradesFile();
    int indexOf(const std::optional<QUrl>& clip) const;
    template <class Fn> void forEachCard(Fn fn);

    SessionModels models;
    ClipsScreenModel* clipsModel;
    QVBoxLayout* header;
    V3Chip* count;
    QWidget* emptyState;
    V3Text* emptyText;
    ClipGrid* cards;
    QAction* importTrades;
    TradesWithoutClipList* looseTrades;
};
