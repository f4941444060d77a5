#include "ui/clips/ClipsScreen.h"

#include "app/AppSettings.h"
#include "app/hotkeys/HotkeyRecorder.h"
#include "app/session/SessionActions.h"
#include "app/session/SessionModels.h"
#include "journal/ClipThumbnailer.h"
#include "ui/clips/ClipCard.h"
#include "ui/clips/ClipGrid.h"
#include "ui/clips/TradesWithoutClipList.h"
#include "ui/kit/D1.h"
#include "ui/kit/D1NavTile.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Chip.h"
#include "ui/kit/V3Text.h"

#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QMenu>
#include <QPainter>
#include <QVBoxLayout>

namespace {

// The empty state's large symbol tile.
class _EmptyTile : public QWidget {
public:
    explicit _EmptyTile(QWidget* parent)
        : QWidget(parent)
    {
        setFixedSize(96, 96);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        D1NavTile::paint(p, rect(), QStringLiteral("film.stack"), D1::tilePurple, 0.5);
    }
};

} // namespace

ClipsScreen::ClipsScreen(const SessionModels& m, QWidget* parent)
    : QWidget(parent)
    , models(m)
    , clipsModel(new ClipsScreenModel(m, this))
{
    setAccessibleName(QStringLiteral("Clips"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);

    // The title with the count and the folder on its line, the subtitle under them.
    header = new QVBoxLayout;
    header->setContentsMargins(ClipGrid::margin, 26, ClipGrid::margin, 10);
    header->setSpacing(4);
    auto* titleRow = new QHBoxLayout;
    titleRow->addWidget(new V3Text(QStringLiteral("Clips"), 32, QFont::Bold, V3::fg, this));
    titleRow->addStretch();
    count = new V3Chip({}, V3::fgMute, V3::bgInset, false, this);
    titleRow->addWidget(count);
    titleRow->addSpacing(6);
    auto* trades = new V3Button(V3Button::Kind::ghost, {}, this);
    trades->setSymbol(QStringLiteral("square.and.arrow.down"));
    trades->setAccessibleName(QStringLiteral("Trades"));
    trades->setToolTip(QStringLiteral("Trades from your broker"));
    auto* tradesMenu = new QMenu(trades);
    importTrades = tradesMenu->addAction(QStringLiteral("Import trades…"), this, &ClipsScreen::chooseTradesFile);
    trades->setMenu(tradesMenu);
    titleRow->addWidget(trades);
    auto* folder = new V3Button(V3Button::Kind::ghost, {}, this);
    folder->setSymbol(QStringLiteral("folder"));
    folder->setAccessibleName(QStringLiteral("Open Folder"));
    folder->setToolTip(QStringLiteral("Open the save folder"));
    connect(folder, &QPushButton::clicked, clipsModel, &ClipsScreenModel::openSaveFolder);
    titleRow->addWidget(folder);
    header->addLayout(titleRow);
    header->addWidget(
        new V3Text(QStringLiteral("Every clip you've ever saved, in one place."), 13, QFont::Normal, V3::fgMute, this));
    looseTrades = new TradesWithoutClipList(this);
    header->addWidget(looseTrades);
    column->addLayout(header);

    emptyState = new QWidget(this);
    auto* empty = new QVBoxLayout(emptyState);
    empty->setContentsMargins(36, 40, 36, 36);
    empty->setSpacing(10);
    empty->addWidget(new _EmptyTile(emptyState), 0, Qt::AlignHCenter);
    auto* title = new V3Text(QStringLiteral("No clips yet"), 18, QFont::DemiBold, V3::fg, emptyState);
    title->setAlignment(Qt::AlignHCenter);
    empty->addWidget(title);
    emptyText = new V3Text({}, 13, QFont::Normal, V3::fgMute, emptyState);
    emptyText->setAlignment(Qt::AlignHCenter);
    emptyText->setMaximumWidth(460);
    // Centred by stretches rather than by alignment, so that the text gets the height it wraps to.
    auto* centred = new QHBoxLayout;
    centred->addStretch(1);
    centred->addWidget(emptyText, 4);
    centred->addStretch(1);
    empty->addLayout(centred);
    empty->addStretch();
    column->addWidget(emptyState, 1);

    cards = new ClipGrid([this](QWidget* parent) { return new ClipCard(clipsModel, parent); },
        [this](ClipCard* card, int item) { card->bind(clipsModel->clips().at(item)); }, this);
    column->addWidget(cards, 1);

    connect(clipsModel, &ClipsScreenModel::clipsChanged, this, &ClipsScreen::showListing);
    connect(clipsModel, &ClipsScreenModel::metaChanged, this, [this] {
        forEachCard(&ClipCard::refreshMeta);
        looseTrades->setTrades(clipsModel->tradesWithoutClip());
    });
    connect(clipsModel, &ClipsScreenModel::importFinished, this, [this] { importTrades->setEnabled(true); });
    connect(clipsModel, &ClipsScreenModel::hoveredChanged, this, [this] { forEachCard(&ClipCard::refreshHover); });
    connect(clipsModel, &ClipsScreenModel::editingChanged, this, [this] {
        cards->setTallItem(indexOf(clipsModel->expandedId()));
        forEachCard(&ClipCard::refreshEditing);
    });
    connect(clipsModel->thumbs(), &ClipThumbnailer::cacheChanged, this, [this](const QUrl& url) {
        for (ClipCard* card : cards->visibleCards())
            if (card->clip() == url) card->refreshThumbnail();
    });
    connect(cards, &ClipGrid::settled, this, &ClipsScreen::requestThumbnails);
    clipsModel->scanClips();
    looseTrades->setTrades(clipsModel->tradesWithoutClip());
}

void ClipsScreen::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    // As the grid does: a narrow window keeps less room at the sides.
    const int side = width() < 2 * ClipGrid::minimumColumnWidth ? ClipGrid::narrowMargin : ClipGrid::margin;
    header->setContentsMargins(side, 26, side, 10);
}

template <class Fn> void ClipsScreen::forEachCard(Fn fn)
{
    for (ClipCard* card : cards->visibleCards())
        (card->*fn)();
}

bool ClipsScreen::showsEmptyState() const
{
    return emptyState->isVisibleTo(this);
}

QString ClipsScreen::countText() const
{
    return count->text();
}

int ClipsScreen::indexOf(const std::optional<QUrl>& clip) const
{
    if (!clip) return -1;
    const QList<ClipEntry>& clips = clipsModel->clips();
    for (qsizetype i = 0; i < clips.size(); ++i)
        if (clips[i].id == *clip) return int(i);
    return -1;
}

ClipCard* ClipsScreen::cardFor(const QUrl& clip)
{
    return cards->scrollTo(indexOf(clip));
}

void ClipsScreen::showListing()
{
    const qsizetype n = clipsModel->clips().size();
    count->setText(QStringLiteral("%1 clip%2").arg(n).arg(n == 1 ? QString() : QStringLiteral("s")));
    const HotkeyBinding binding = models.settings->saveHotkey();
    const QString hotkey = HotkeyRecorder::bindingText(
        binding.enabled && !binding.keyChar.isEmpty() ? binding : HotkeyBinding::defaultSave());
    emptyText->setText(
        QStringLiteral("Saved clips land in %1. Hit %2 while Velotape is recording to save your first one.")
            .arg(clipsModel->saveFolder(), hotkey));
    emptyState->setVisible(n == 0);
    cards->setVisible(n > 0);
    cards->setItems(int(n), indexOf(clipsModel->expandedId()));
}

void ClipsScreen::requestThumbnails()
{
    for (ClipCard* card : cards->visibleCards())
        if (card->wantsThumbnail()) clipsModel->thumbs()->startGenerate(card->clip());
    // A few screens' worth around the view keep their pictures for scrolling back.
    const auto [first, end] = cards->itemsNear(8);
    QList<QUrl> near;
    near.reserve(end - first);
    for (int i = first; i < end; ++i)
        near.push_back(clipsModel->clips().at(i).id);
    clipsModel->trimThumbnails(near);
}

void ClipsScreen::chooseTradesFile()
{
    const QString file = QFileDialog::getOpenFileName(this, QStringLiteral("Import trades"), QDir::homePath(),
        QStringLiteral("Trade history (*.csv *.txt *.tsv);;All files (*)"));
    if (file.isEmpty()) return;
    // One import at a time; the menu item comes back when it has finished.
    if (clipsModel->importTrades(file)) importTrades->setEnabled(false);
}
