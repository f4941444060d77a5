#pragma once

#include "ui/clips/ClipsScreenModel.h"

#include <QWidget>

class ClipNotesEditor;
class ClipSetupTags;
class ClipTagBar;
class QAbstractButton;
class QLineEdit;
class V3Button;

// One clip of the grid: its thumbnail with the length and, under the pointer, a play control; its
// name (or the rename field), when it was saved and how large it is; Rename and Share; the trade
// tags and the setup tags; and the journal panel. A card is a view of one listed clip at a time: the grid hands the
// cards in view their clip as the user scrolls, and a card reads everything else from the model.
class ClipCard : public QWidget {
    Q_OBJECT
public:
    static constexpr int inset = 10;

    ClipCard(ClipsScreenModel* model, QWidget* parent = nullptr);

    // The card's height at a width, with or without the journal panel open.
    static int heightFor(int width, bool expanded);

    // Shows `clip`, or, for the clip it shows already, its file's new size and date.
    void bind(const ClipsScreenModel::ClipEntry& clip);
    const QUrl& clip() const { return entry.id; }
    // The record, the rename field, the journal panel and the hover again from the model.
    void refreshMeta();
    void refreshEditing();
    void refreshHover();
    void refreshThumbnail();
    // Whether the card would show a thumbnail that is not in the cache yet.
    bool wantsThumbnail() const;

    // What a user sees and presses, for the interface's tests.
    QString name() const;
    QString detail() const;
    QAbstractButton* playControl() const { return play; }
    V3Button* renameButton() const { return rename; }
    V3Button* shareButton() const { return share; }
    QLineEdit* renameField() const { return renameEdit; }
    ClipTagBar* tagBar() const { return tags; }
    ClipSetupTags* setupTagRow() const { return setupTags; }
    QAbstractButton* journalToggle() const { return toggle; }
    ClipNotesEditor* notesEditor() const { return notes; }
    // The context menu's actions: "Open", "Show in File Manager", "Move to Trash".
    QList<QAction*> menuActions() const { return actions; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    bool event(QEvent* event) override;

private:
    void arrange();
    QRect thumbnailRect() const;
    QRect nameRect() const;
    QRect detailRect() const;

    ClipsScreenModel* model;
    ClipsScreenModel::ClipEntry entry;
    bool bound = false;
    QWidget* thumbnail;
    QAbstractButton* play;
    QLineEdit* renameEdit;
    V3Button* rename;
    V3Button* share;
    ClipTagBar* tags;
    ClipSetupTags* setupTags;
    QAbstractButton* toggle;
    ClipNotesEditor* notes = nullptr;
    QList<QAction*> actions;
};
