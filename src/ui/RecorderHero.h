#pragma once

#include "app/session/SessionModels.h"

#include <QWidget>

class AreaMonitorStrip;
class BigRecordCTA;
class HeroPreviewCard;
class InfoChip;
class PermissionView;
class SourcePickerButton;

// The recorder screen, the one the user lives on: what is captured (the source button, which opens
// the source picker) and how, the live preview with its badges, the area monitor strip and the big
// record button; the empty illustration while no stream runs. It holds no state of its own:
// everything it shows comes from the session controller and the objects behind it, and every
// control calls one of their operations.
class RecorderHero : public QWidget {
    Q_OBJECT
public:
    explicit RecorderHero(const SessionModels& m, QWidget* parent = nullptr);

    // Whether the empty state is what shows (no stream running).
    bool showsEmptyState() const;

    HeroPreviewCard* previewCard() const { return card; }
    AreaMonitorStrip* areaStrip() const { return strip; }
    BigRecordCTA* recordButton() const { return cta; }

private:
    QWidget* makeChipsRow();
    void refreshChips();
    void refreshSource();
    void refreshPermission();

    SessionModels models;
    PermissionView* permission;
    QWidget* body;
    SourcePickerButton* sourceButton;
    InfoChip* sizeChip;
    InfoChip* rateChip;
    InfoChip* bufferChip;
    QWidget* pickRegion;
    HeroPreviewCard* card;
    AreaMonitorStrip* strip;
    BigRecordCTA* cta;
};
