#include "ui/journal/JournalScreen.h"

#include "journal/ClipJournalStore.h"
#include "ui/journal/JournalOverview.h"
#include "ui/journal/JournalSimulations.h"
#include "ui/journal/JournalStats.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Segmented.h"
#include "ui/kit/V3Text.h"

#include <QActionGroup>
#include <QHBoxLayout>
#include <QMenu>
#include <QResizeEvent>
#include <QVBoxLayout>

namespace {

QString tabValue(JournalScreen::SubTab tab)
{
    switch (tab) {
    case JournalScreen::SubTab::overview:
        return QStringLiteral("overview");
    case JournalScreen::SubTab::stats:
        return QStringLiteral("stats");
    case JournalScreen::SubTab::simulations:
        return QStringLiteral("simulations");
    }
    return {};
}

} // namespace

JournalScreen::JournalScreen(ClipJournalStore* journal, QWidget* parent)
    : QWidget(parent)
    , store(journal)
{
    setAccessibleName(QStringLiteral("Journal"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(28, 22, 28, 28);
    column->setSpacing(10);
    column->addWidget(new V3Text(QStringLiteral("Journal"), 22, QFont::DemiBold, V3::fg, this));

    tabs = new V3Segmented(
        { { tabValue(SubTab::overview), QStringLiteral("Overview"), QStringLiteral("square.grid.2x2") },
            { tabValue(SubTab::stats), QStringLiteral("Stats"), QStringLiteral("chart.bar.xaxis") },
            { tabValue(SubTab::simulations), QStringLiteral("Simulations"), QStringLiteral("wand.and.stars") } },
        this);
    tabs->setSelection(tabValue(shownTab));
    column->addWidget(tabs, 0, Qt::AlignLeft);

    auto* unitRow = new QHBoxLayout;
    unitRow->addWidget(new V3Text(QStringLiteral("View P&L in"), 12, QFont::Normal, V3::fgMute, this));
    auto* unitButton = new V3Button(V3Button::Kind::secondary, {}, this);
    unitMenuButton = unitButton;
    auto* menu = new QMenu(unitButton);
    auto* group = new QActionGroup(menu);
    for (PnLUnit unit : allPnLUnits) {
        QAction* action = menu->addAction(menuLabel(unit));
        action->setCheckable(true);
        action->setData(rawValue(unit));
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, unit] { store->setDisplayUnit(unit); });
    }
    unitButton->setMenu(menu);
    unitRow->addWidget(unitButton);
    unitRow->addStretch();
    column->addLayout(unitRow);
    // On a line of their own, so that the smallest window still has room for them.
    auto* filterRow = new QHBoxLayout;
    // The menus are filled as they open, from the journal as it is then.
    symbolMenuButton = new V3Button(V3Button::Kind::secondary, {}, this);
    symbolMenuButton->setAccessibleName(QStringLiteral("Symbol"));
    symbolMenuButton->setMenu(new QMenu(symbolMenuButton));
    connect(symbolMenuButton->menu(), &QMenu::aboutToShow, this, [this] {
        fillFilterMenu(symbolMenuButton, QStringLiteral("All symbols"),
            JournalFilter::symbols(store->clips(), store->tradesWithoutClip()), true);
    });
    filterRow->addWidget(symbolMenuButton);
    tagMenuButton = new V3Button(V3Button::Kind::secondary, {}, this);
    tagMenuButton->setAccessibleName(QStringLiteral("Tag"));
    tagMenuButton->setMenu(new QMenu(tagMenuButton));
    connect(tagMenuButton->menu(), &QMenu::aboutToShow, this, [this] {
        fillFilterMenu(tagMenuButton, QStringLiteral("All tags"), JournalFilter::tags(store->clips()), false);
    });
    filterRow->addWidget(tagMenuButton);
    filterRow->addStretch();
    unitSentence = new V3Text({}, 11, QFont::Normal, V3::fgFaint, this);
    column->addWidget(unitSentence);
    column->addLayout(filterRow);
    column->addSpacing(4);

    connect(tabs, &V3Segmented::selectionChanged, this, [this](const QString& value) {
        for (SubTab tab : { SubTab::overview, SubTab::stats, SubTab::simulations })
            if (tabValue(tab) == value) setTab(tab);
    });
    connect(store, &ClipJournalStore::displayUnitChanged, this, &JournalScreen::showUnit);
    connect(store, &ClipJournalStore::filterChanged, this, &JournalScreen::showFilter);
    showUnit();
    showFilter();

    page = new JournalOverview(store, this);
    column->addWidget(page, 1);
    // The folder may have changed while the screen was away.
    store->rescan();
}

void JournalScreen::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    // Beside a small window's sidebar every pixel of width counts: the margins narrow with it.
    const int side = width() < 360 ? 12 : 28;
    layout()->setContentsMargins(side, 22, side, 28);
}

void JournalScreen::setTab(SubTab tab)
{
    tabs->setSelection(tabValue(tab));
    if (tab == shownTab) return;
    shownTab = tab;
    QWidget* next = nullptr;
    switch (tab) {
    case SubTab::overview:
        next = new JournalOverview(store, this);
        break;
    case SubTab::stats:
        next = new JournalStats(store, this);
        break;
    case SubTab::simulations:
        next = new JournalSimulations(store, this);
        break;
    }
    layout()->replaceWidget(page, next);
    delete page;
    page = next;
}

void JournalScreen::showUnit()
{
    const PnLUnit unit = store->displayUnit();
    unitMenuButton->setText(menuLabel(unit));
    for (QAction* action : unitMenuButton->menu()->actions())
        action->setChecked(action->data().toString() == rawValue(unit));
    unitSentence->setText(QStringLiteral("Only clips tagged in %1 count toward these stats.").arg(shortLabel(unit)));
}

void JournalScreen::fillFilterMenu(QPushButton* button, const QString& all, const QStringList& choices, bool symbol)
{
    QMenu* menu = button->menu();
    menu->clear();
    const std::optional<QString>& current = symbol ? store->filter().symbol : store->filter().tag;
    const auto choose = [this, symbol](std::optional<QString> value) {
        JournalFilter filter = store->filter();
        (symbol ? filter.symbol : filter.tag) = std::move(value);
        store->setFilter(filter);
    };
    QAction* everything = menu->addAction(all);
    everything->setCheckable(true);
    everything->setChecked(!current);
    connect(everything, &QAction::triggered, this, [choose] { choose(std::nullopt); });
    if (!choices.isEmpty()) menu->addSeparator();
    for (const QString& choice : choices) {
        QAction* action = menu->addAction(choice);
        action->setCheckable(true);
        action->setChecked(current && current->compare(choice, Qt::CaseInsensitive) == 0);
        connect(action, &QAction::triggered, this, [choose, choice] { choose(choice); });
    }
}

void JournalScreen::showFilter()
{
    const JournalFilter& filter = store->filter();
    symbolMenuButton->setText(filter.symbol.value_or(QStringLiteral("All symbols")));
    tagMenuButton->setText(filter.tag.value_or(QStringLiteral("All tags")));
}
