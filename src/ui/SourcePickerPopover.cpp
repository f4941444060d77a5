#include "ui/SourcePickerPopover.h"

#include "app/session/AreaCommands.h"
#include "app/session/SessionActions.h"
#include "app/session/SessionModels.h"
#include "app/session/SourceMemory.h"
#include "capture/CaptureEngine.h"
#include "capture/SourceThumbnailer.h"
#include "ui/kit/D1AmbientBackground.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/Symbols.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Segmented.h"
#include "ui/kit/V3Text.h"

#include <QAction>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollArea>
#include <QVBoxLayout>

using SourcePickerContent::Tab;

// What an empty tab shows: its symbol over one line.
class SourcePickerPopover::EmptyHint : public QWidget {
public:
    explicit EmptyHint(QWidget* parent)
        : QWidget(parent)
    {
        setMinimumHeight(120);
    }

    void showHint(const QString& symbol, const QString& text)
    {
        glyph = symbol;
        line = text;
        setAccessibleName(text);
        setVisible(true);
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QColor colour = V3::fgFaint.resolve(this);
        const QRectF icon(width() / 2.0 - 14, height() / 2.0 - 30, 28, 28);
        Symbols::paint(p, icon, glyph, colour);
        p.setFont(KitPaint::font(12, QFont::Medium));
        p.setPen(colour);
        p.drawText(QRectF(0, icon.bottom() + 10, width(), 20), Qt::AlignHCenter | Qt::AlignTop, line);
    }

private:
    QString glyph;
    QString line;
};

namespace {

constexpr int margin = 18;

// A hairline across the popover.
class Divider : public QWidget {
public:
    explicit Divider(QWidget* parent)
        : QWidget(parent)
    {
        setFixedHeight(1);
    }

protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(rect(), V3::lineSoft.resolve(this)); }
};

} // namespace

SourcePickerPopover::SourcePickerPopover(const SessionModels& m, std::function<void()> close, QWidget* parent)
    : QWidget(parent)
    , models(m)
    , dismiss(std::move(close))
    , thumbnails(new SourceThumbnailer(m.engine->backend(), this))
{
    setFixedSize(popoverSize);
    setAccessibleName(QStringLiteral("Source"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(margin, margin, margin, 12);
    column->setSpacing(0);

    // The heading, and the refresh button at the right.
    auto* header = new QHBoxLayout;
    header->setSpacing(12);
    auto* headings = new QVBoxLayout;
    headings->setSpacing(3);
    headings->addWidget(new V3Text(QStringLiteral("Source"), 18, QFont::DemiBold, V3::fg, this));
    headings->addWidget(new V3Text(QStringLiteral("Pick what Velotape should keep recording in the background."), 12,
        QFont::Normal, V3::fgMute, this));
    header->addLayout(headings, 1);
    refresh = new V3Button(V3Button::Kind::ghost, QString(), this);
    refresh->setSymbol(QStringLiteral("arrow.clockwise"));
    refresh->setFixedSize(28, 28);
    refresh->setToolTip(QStringLiteral("Refresh sources"));
    refresh->setAccessibleName(QStringLiteral("Refresh sources"));
    connect(refresh, &QAbstractButton::clicked, this, [this] { models.engine->refreshAvailableContent(); });
    header->addWidget(refresh, 0, Qt::AlignTop);
    column->addLayout(header);
    column->addSpacing(14);

    // The tabs and the filter, the same on both tabs.
    auto* controls = new QHBoxLayout;
    controls->setContentsMargins(0, 6, 0, 6);
    controls->setSpacing(10);
    tabs = new V3Segmented(
        { { SourcePickerContent::rawValue(Tab::displays), SourcePickerContent::title(Tab::displays) },
            { SourcePickerContent::rawValue(Tab::windows), SourcePickerContent::title(Tab::windows) } },
        this);
    tabs->setSelection(SourcePickerContent::rawValue(shownTab));
    connect(tabs, &V3Segmented::selectionChanged, this, [this](const QString& value) {
        if (const auto chosen = SourcePickerContent::tabFromRawValue(value)) setTab(*chosen);
    });
    controls->addWidget(tabs);
    filterField = new QLineEdit(this);
    filterField->setPlaceholderText(QStringLiteral("Filter…"));
    filterField->setAccessibleName(QStringLiteral("Filter"));
    filterField->setClearButtonEnabled(true);
    filterField->addAction(Symbols::icon(QStringLiteral("magnifyingglass")), QLineEdit::LeadingPosition);
    filterField->setFixedHeight(V3Segmented::segmentHeight + 2 * V3Segmented::platePadding);
    connect(filterField, &QLineEdit::textChanged, this, &SourcePickerPopover::setFilter);
    controls->addWidget(filterField, 1);
    column->addLayout(controls);
    column->addSpacing(6);
    const bool desktopChooses = models.engine->sourceChosenByDesktop();
    tabs->setVisible(!desktopChooses);
    filterField->setVisible(!desktopChooses);

    // The rows of the tab, scrolling.
    auto* scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setAutoFillBackground(false);
    scroll->viewport()->setAutoFillBackground(false);
    list = new QWidget;
    listColumn = new QVBoxLayout(list);
    listColumn->setContentsMargins(0, 0, 0, 0);
    listColumn->setSpacing(4);
    emptyHint = new EmptyHint(list);
    listColumn->addWidget(emptyHint);
    listColumn->addStretch();
    scroll->setWidget(list);
    // The backdrop shows through the list (setWidget turns the filling on).
    list->setAutoFillBackground(false);
    column->addWidget(scroll, 1);

    // The custom region, under a divider on both tabs.
    column->addSpacing(8);
    column->addWidget(new Divider(this));
    column->addSpacing(8);
    if (desktopChooses) {
        askDesktop
            = new SourcePickerRow({ .title = QStringLiteral("Screen or window (your desktop asks)"),
                                      .detail = QStringLiteral("Your desktop's own dialog chooses what to share."),
                                      .detailSymbol = {},
                                      .elideDetailInMiddle = false,
                                      .symbol = QStringLiteral("rectangle.inset.filled.on.rectangle"),
                                      .isAction = true,
                                      .trailingSymbol = QStringLiteral("arrow.up.right") },
                this);
        connect(askDesktop, &QAbstractButton::clicked, this, &SourcePickerPopover::askDesktopAgain);
        column->addWidget(askDesktop);
        column->addSpacing(4);
    }
    region = new SourcePickerRow(
        { .title = QStringLiteral("Select custom region"),
            .detail = QStringLiteral("Drag any rectangle on screen — even just a corner of a chart."),
            .detailSymbol = {},
            .elideDetailInMiddle = false,
            .symbol = QStringLiteral("dot.viewfinder"),
            .isAction = true,
            .trailingSymbol = QStringLiteral("arrow.up.right") },
        this);
    connect(region, &QAbstractButton::clicked, this, &SourcePickerPopover::pickRegion);
    column->addWidget(region);

    CaptureEngine* engine = models.engine;
    connect(engine, &CaptureEngine::availableDisplaysChanged, this, &SourcePickerPopover::rebuildRows);
    connect(engine, &CaptureEngine::availableWindowsChanged, this, &SourcePickerPopover::rebuildRows);
    connect(engine, &CaptureEngine::selectedSourceChanged, this, &SourcePickerPopover::markSelection);
    connect(thumbnails, &SourceThumbnailer::cacheChanged, this, [this](const QString& id) {
        if (SourcePickerRow* shown = row(id)) shown->setThumbnail(thumbnails->image(id));
    });
    rebuildRows();
    // What was listed before may be out of date: a window opened since then must be pickable.
    engine->refreshAvailableContent();
}

SourcePickerPopover::~SourcePickerPopover() = default;

void SourcePickerPopover::setTab(Tab tab)
{
    tabs->setSelection(SourcePickerContent::rawValue(tab));
    if (tab == shownTab) return;
    shownTab = tab;
    rebuildRows();
}

void SourcePickerPopover::setFilter(const QString& text)
{
    if (filterField->text() != text) filterField->setText(text); // comes back here
    if (text == filter) return;
    filter = text;
    rebuildRows();
}

SourcePickerRow* SourcePickerPopover::row(const QString& sourceId) const
{
    for (size_t i = 0; i < rowIds.size(); ++i)
        if (rowIds[i] == sourceId) return sourceRows[i];
    return nullptr;
}

void SourcePickerPopover::rebuildRows()
{
    for (SourcePickerRow* old : sourceRows)
        delete old;
    sourceRows.clear();
    rowIds.clear();

    const CaptureEngine* engine = models.engine;
    if (shownTab == Tab::displays) {
        const ScreenLayout screens = models.sources->screenLayout();
        for (const CaptureDisplay& display :
            SourcePickerContent::displayItems(engine->availableDisplays(), filter, screens))
            addSourceRow(CaptureSource::display(display),
                { .title = SourcePickerContent::displayName(display, screens),
                    .detail = QStringLiteral("%1 × %2").arg(display.width).arg(display.height),
                    .detailSymbol = QStringLiteral("rectangle.expand.diagonal"),
                    .elideDetailInMiddle = false,
                    .symbol = QStringLiteral("display"),
                    .isAction = false,
                    .trailingSymbol = {} });
    } else {
        for (const CaptureWindow& window : SourcePickerContent::windowItems(engine->availableWindows(), filter))
            addSourceRow(CaptureSource::window(window),
                { .title = SourcePickerContent::windowTitle(window),
                    .detail = SourcePickerContent::applicationName(window),
                    .detailSymbol = {},
                    .elideDetailInMiddle = true,
                    .symbol = QStringLiteral("macwindow"),
                    .isAction = false,
                    .trailingSymbol = {} });
    }
    if (sourceRows.empty()) {
        if (shownTab == Tab::displays)
            emptyHint->showHint(QStringLiteral("display"), QStringLiteral("No displays found"));
        else
            emptyHint->showHint(QStringLiteral("macwindow"), QStringLiteral("No windows match the filter"));
    } else {
        emptyHint->hide();
    }
    markSelection();
}

SourcePickerRow* SourcePickerPopover::addSourceRow(const CaptureSource& source, SourcePickerRow::Content content)
{
    auto* shown = new SourcePickerRow(std::move(content), list);
    // Before the stretch at the end.
    listColumn->insertWidget(listColumn->count() - 1, shown);
    shown->setThumbnail(thumbnails->image(source.id()));
    shown->setThumbnailRequest([this, source] { thumbnails->startGrab(source); });
    connect(shown, &QAbstractButton::clicked, this, [this, source] { choose(source); });
    sourceRows.push_back(shown);
    rowIds.push_back(source.id());
    return shown;
}

void SourcePickerPopover::markSelection()
{
    const std::optional<CaptureSource>& selected = models.engine->selectedSource();
    for (size_t i = 0; i < sourceRows.size(); ++i)
        sourceRows[i]->setSelected(selected && selected->id() == rowIds[i]);
}

void SourcePickerPopover::choose(const CaptureSource& source)
{
    // The button and the badge change at once; the stream restarts on a later turn of the loop,
    // when the popover is gone. The same source again goes through the whole restart too.
    models.engine->setSelectedSource(source);
    QMetaObject::invokeMethod(
        this, [actions = models.actions] { actions->restartStream(); }, Qt::QueuedConnection);
    if (dismiss) dismiss();
}

void SourcePickerPopover::askDesktopAgain()
{
    // The popover is gone by the time the desktop asks: the call is the engine's business.
    if (dismiss) dismiss();
    QMetaObject::invokeMethod(
        models.engine, [actions = models.actions] { actions->askDesktopForSource(); }, Qt::QueuedConnection);
}

void SourcePickerPopover::pickRegion()
{
    if (dismiss) dismiss();
    QMetaObject::invokeMethod(models.areas, &AreaCommands::pickRecordingRegion, Qt::QueuedConnection);
}

void SourcePickerPopover::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    emit closed();
}

void SourcePickerPopover::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    D1AmbientBackground::paint(p, rect(), V3::bg.resolve(this));
    p.setPen(QPen(V3::line.resolve(this), 1));
    p.setBrush(Qt::NoBrush);
    p.drawRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5));
}

void SourcePickerPopover::mousePressEvent(QMouseEvent* event)
{
    // A press on the button that opened the popover closes it, and must not reach the button too,
    // which would open it again at once.
    if (!rect().contains(event->position().toPoint())) {
        if (const QWidget* anchor = parentWidget();
            anchor && anchor->rect().contains(anchor->mapFromGlobal(event->globalPosition().toPoint())))
            setAttribute(Qt::WA_NoMouseReplay);
    }
    QWidget::mousePressEvent(event);
}

bool SourcePickerPopover::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QWidget::event(event);
}
