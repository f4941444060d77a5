#pragma once

#include <QWidget>

class ClipJournalStore;
class QPushButton;
class V3Segmented;
class V3Text;

// The journal: a bar of three sub-tabs (Overview, Stats, Simulations), the unit the figures are
// shown in, the symbol and setup tag they are narrowed to, and the sub-tab on show. Coming up, it lists the save folder
// again; then each sub-tab follows the store by itself. Switching sub-tabs drops the one left behind with its local
// state.
class JournalScreen : public QWidget {
    Q_OBJECT
public:
    enum class SubTab { overview, stats, simulations };

    explicit JournalScreen(ClipJournalStore* store, QWidget* parent = nullptr);

    SubTab tab() const { return shownTab; }
    void setTab(SubTab tab);
    // The widget of the sub-tab on show.
    QWidget* tabWidget() const { return page; }
    V3Segmented* tabBar() const { return tabs; }
    // The button that opens the unit menu.
    QPushButton* unitButton() const { return unitMenuButton; }
    // The buttons of the symbol and tag menus; their first entry lets everything through.
    QPushButton* symbolButton() const { return symbolMenuButton; }
    QPushButton* tagButton() const { return tagMenuButton; }

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void showUnit();
    void showFilter();
    // The menu's entries again from the journal: one for all, then each choice.
    void fillFilterMenu(QPushButton* button, const QString& all, const QStringList& choices, bool symbol);

    ClipJournalStore* store;
    V3Segmented* tabs;
    QPushButton* unitMenuButton;
    QPushButton* symbolMenuButton;
    QPushButton* tagMenuButton;
    V3Text* unitSentence;
    QWidget* page = nullptr;
    SubTab shownTab = SubTab::overview;
};
