#include "ui/clips/ClipNotesEditor.h"

#include "ui/kit/Symbols.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Field.h"
#include "ui/kit/V3Text.h"

#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPainter>
#include <QPlainTextEdit>
#include <QTimer>
#include <QVBoxLayout>
#include <QVariantAnimation>

namespace {

// The check mark that answers "Save".
class _SavedMark : public QWidget {
public:
    explicit _SavedMark(QWidget* parent)
        : QWidget(parent)
    {
        setFixedSize(18, 18);
        setAccessibleName(QStringLiteral("Saved"));
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        Symbols::paint(p, rect(), QStringLiteral("checkmark.circle.fill"), V3::match.resolve(this));
    }
};

QPlainTextEdit* multiLine(const QString& prompt, QWidget* parent)
{
    auto* editor = new QPlainTextEdit(parent);
    editor->setPlaceholderText(prompt);
    editor->setAccessibleName(prompt);
    editor->setMinimumHeight(64);
    editor->setFixedHeight(64);
    editor->setTabChangesFocus(true);
    V3Field::install(editor);
    return editor;
}

} // namespace

ClipNotesEditor::ClipNotesEditor(const ClipMeta& meta, std::optional<QString> parsedTicker,
    std::function<void(const ClipMeta&)> save_, QWidget* parent)
    : QWidget(parent)
    , record(meta)
    , onSave(std::move(save_))
{
    setFixedHeight(panelHeight);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);

    auto* instrumentRow = new QHBoxLayout;
    instrumentRow->addWidget(new V3Text(QStringLiteral("Instrument"), 11, QFont::DemiBold, V3::fgMute, this));
    instrument = new QLineEdit(this);
    instrument->setPlaceholderText(QStringLiteral("ES, NQ, BTC…"));
    instrument->setAccessibleName(QStringLiteral("Instrument"));
    instrument->setFixedSize(120, 24);
    V3Field::install(instrument);
    instrumentRow->addWidget(instrument);
    instrumentRow->addStretch();
    column->addLayout(instrumentRow);
    column->addSpacing(4);

    column->addWidget(new V3Text(QStringLiteral("Notes"), 11, QFont::DemiBold, V3::fgMute, this));
    notes = multiLine(QStringLiteral("What happened on this trade?"), this);
    column->addWidget(notes);
    column->addSpacing(4);
    column->addWidget(new V3Text(QStringLiteral("Mistakes / lessons"), 11, QFont::DemiBold, V3::fgMute, this));
    mistakes = multiLine(QStringLiteral("What would you do differently?"), this);
    column->addWidget(mistakes);
    column->addSpacing(4);

    auto* saveRow = new QHBoxLayout;
    saveRow->addStretch();
    savedMark = new _SavedMark(this);
    auto* fade = new QGraphicsOpacityEffect(savedMark);
    fade->setOpacity(0);
    savedMark->setGraphicsEffect(fade);
    saveRow->addWidget(savedMark);
    save = new V3Button(V3Button::Kind::secondary, QStringLiteral("Save"), this);
    saveRow->addWidget(save);
    column->addLayout(saveRow);
    column->addStretch();

    flash = new QVariantAnimation(this);
    flash->setDuration(150);
    flash->setEasingCurve(QEasingCurve::OutCubic);
    connect(flash, &QVariantAnimation::valueChanged, this, [fade](const QVariant& v) { fade->setOpacity(v.toReal()); });
    connect(save, &QPushButton::clicked, this, &ClipNotesEditor::saveRecord);
    hydrate(parsedTicker);
}

void ClipNotesEditor::hydrate(const std::optional<QString>& parsedTicker)
{
    notes->setPlainText(record.notes);
    mistakes->setPlainText(record.mistakes);
    instrument->setText(record.ticker.value_or(parsedTicker.value_or(QString())));
}

void ClipNotesEditor::saveRecord()
{
    ClipMeta next = record;
    next.notes = notes->toPlainText();
    next.mistakes = mistakes->toPlainText();
    // Typed as it is, spaces and all; a field of only spaces means no instrument.
    const QString typed = instrument->text();
    next.ticker = typed.trimmed().isEmpty() ? std::nullopt : std::optional<QString>(typed);
    record = next;
    onSave(next);
    savedFlash = true;
    flash->stop();
    flash->setStartValue(0.0);
    flash->setEndValue(1.0);
    flash->start();
    QTimer::singleShot(flashMilliseconds, this, [this] {
        savedFlash = false;
        flash->stop();
        flash->setStartValue(1.0);
        flash->setEndValue(0.0);
        flash->start();
    });
}
