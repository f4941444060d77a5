#include "ui/ContentView.h"

#include "app/session/SessionActions.h"
#include "app/session/SessionModels.h"
#include "app/session/SessionStatus.h"
#include "core/Publisher.h"
#include "ui/AboutHero.h"
#include "ui/D1Sidebar.h"
#include "ui/RecorderHero.h"
#include "ui/ToastView.h"
#include "ui/clips/ClipsScreen.h"
#include "ui/journal/JournalScreen.h"
#include "ui/settings/SettingsView.h"

#include <QHBoxLayout>
#include <QResizeEvent>
#include <QScrollArea>

ContentView::ContentView(const SessionModels& m, QWidget* parent)
    : D1AmbientBackground(parent)
    , models(m)
{
    setMinimumSize(minimumContentSize);
    row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);
    bar = new D1Sidebar(this);
    row->addWidget(bar);
    connect(bar, &D1Sidebar::selectedChanged, this, &ContentView::showScreen);

    // A screen taller than a small window scrolls rather than squeezing its lines together.
    screenArea = new QScrollArea(this);
    screenArea->setFrameShape(QFrame::NoFrame);
    screenArea->setWidgetResizable(true);
    screenArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    screenArea->setAutoFillBackground(false);
    screenArea->viewport()->setAutoFillBackground(false);
    row->addWidget(screenArea, 1);
    shownScreen = makeScreen(current);
    screenArea->setWidget(shownScreen);
    shownScreen->setAutoFillBackground(false);

    toastView = new ToastView(this);
    toastView->setGeometry(rect());
    toastView->raise();
    observe(models.status, &SessionStatus::toast, &SessionStatus::toastChanged)
        .sink(this, [this](const std::optional<QString>& text) { toastView->setText(text); });
}

void ContentView::showScreen(D1Screen screen)
{
    bar->setSelected(screen);
    if (screen == current) return;
    current = screen;
    delete screenArea->takeWidget();
    shownScreen = makeScreen(screen);
    screenArea->setWidget(shownScreen);
    // The backdrop shows through the screens.
    shownScreen->setAutoFillBackground(false);
    toastView->raise();
    emit screenChanged(screen);
}

QWidget* ContentView::makeScreen(D1Screen screen)
{
    switch (screen) {
    case D1Screen::recorder:
        return new RecorderHero(models);
    case D1Screen::clips:
        return new ClipsScreen(models);
    case D1Screen::journal:
        return new JournalScreen(models.journal);
    case D1Screen::settings:
        return new SettingsView(models.settings, models.mic, models.camera, models.keyGrabCheck, models.desktopWords);
    case D1Screen::about:
        return new AboutHero;
    }
    return nullptr;
}

void ContentView::resizeEvent(QResizeEvent* event)
{
    D1AmbientBackground::resizeEvent(event);
    toastView->setGeometry(rect());
}
