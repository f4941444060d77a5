#pragma once

#include "journal/ClipMeta.h"

#include <QWidget>

#include <functional>
#include <optional>

class QLineEdit;
class QPlainTextEdit;
class QVariantAnimation;
class V3Button;

// A card's journal panel: the instrument, what happened and what to do differently. The fields are
// filled from the record when the panel opens and written back by "Save" only, which flashes a
// check mark.
class ClipNotesEditor : public QWidget {
    Q_OBJECT
public:
    static constexpr int panelHeight = 256;
    static constexpr int flashMilliseconds = 1400;

    ClipNotesEditor(const ClipMeta& meta, std::optional<QString> parsedTicker,
        std::function<void(const ClipMeta&)> onSave, QWidget* parent = nullptr);

    // The record that "Save" writes into; the fields keep what the user typed.
    void setMeta(const ClipMeta& meta) { record = meta; }

    QLineEdit* instrumentField() const { return instrument; }
    QPlainTextEdit* notesField() const { return notes; }
    QPlainTextEdit* mistakesField() const { return mistakes; }
    V3Button* saveButton() const { return save; }
    bool isFlashing() const { return savedFlash; }

private:
    void hydrate(const std::optional<QString>& parsedTicker);
    void saveRecord();

    ClipMeta record;
    std::function<void(const ClipMeta&)> onSave;
    QLineEdit* instrument;
    QPlainTextEdit* notes;
    QPlainTextEdit* mistakes;
    V3Button* save;
    QWidget* savedMark;
    QVariantAnimation* flash;
    bool savedFlash = false;
};
