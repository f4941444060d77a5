#pragma once

#include "app/session/SessionModels.h"

#include <QPointer>
#include <QWidget>

class CameraBubble;
class CaptureEngine;
class EmptyHeroIllustration;
class HudColumn;
class PreviewSurface;

// The card of the live preview. While a stream runs it shows the picture of the capture, fitted
// into the card with its aspect kept, or a line while the first frames are awaited; the camera
// bubble and the badges stand over it. While the chosen source's stream is on its way (after a
// restart, say) it says so. While nothing is captured it shows the empty illustration with the
// button that starts capturing the screen.
//
// The card tells the engine the size it shows the picture at, so that each preview is scaled
// once, on the capture thread, to exactly that size; while the card is hidden or gone it asks for
// none.
class HeroPreviewCard : public QWidget {
    Q_OBJECT
public:
    static constexpr qreal cornerRadius = 22;
    // Room around the card for its shadow.
    static constexpr int shadowMargin = 10;
    // From the card's edge to the picture.
    static constexpr int pictureInset = 12;

    explicit HeroPreviewCard(const SessionModels& m, QWidget* parent = nullptr);
    ~HeroPreviewCard() override;

    bool showsEmptyState() const;
    bool showsWaitingLine() const;
    // The line shown without a picture: "Waiting for frames…", "Preview starting…", or empty.
    QString waitingLine() const;
    PreviewSurface* surface() const { return picture; }
    HudColumn* badges() const { return huds; }
    CameraBubble* cameraBubble() const { return bubble; }
    EmptyHeroIllustration* emptyState() const { return illustration; }
    QRectF cardRect() const;
    // Where the picture may lie, inside the card.
    QRect pictureArea() const;

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    bool event(QEvent* event) override;

private:
    void refresh();
    void place();
    void askForPreviewSize(QSize size);
    // Whether the selected source is one the user has been shown, or chose on an earlier run: its
    // stream is then on its way, where another source waits for the user's go.
    bool previewIsExpected() const;

    SessionModels models;
    QPointer<CaptureEngine> engine;
    PreviewSurface* picture;
    CameraBubble* bubble;
    HudColumn* huds;
    EmptyHeroIllustration* illustration;
    bool waiting = false;
    bool starting = false;
    bool streamedSinceSelection = false;
};
