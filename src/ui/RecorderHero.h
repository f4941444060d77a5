#pragma once

#include <QWidget>

class RecorderViewModel;
class V3Text;
class V3Button;

// The recorder screen as far as it stands: what is captured and what the ring is doing, the record
// button, and, with no stream, the empty state with the one action that starts one. The live
// preview, the source picker and the area monitor strip join it later.
class RecorderHero : public QWidget {
    Q_OBJECT
public:
    explicit RecorderHero(RecorderViewModel* vm, QWidget* parent = nullptr);

    // Whether the empty state is what shows (no stream running).
    bool showsEmptyState() const;

private:
    void refresh();

    RecorderViewModel* vm;
    V3Text* title;
    V3Text* subtitle;
    V3Text* status;
    QWidget* emptyState;
    QWidget* live;
    V3Button* recordButton;
    V3Button* startButton;
};
