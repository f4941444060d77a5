// A small application on a real X display for the hotkey tests: a window with a text field and a
// menu action on Ctrl+Shift+R, and the save hotkey registered on the same combination. It says
// what happened on stdout, one line each: "ready <window id>", "focused", "save", "menu", and
// "text:<field>" when asked with "text" on stdin.
#include "app/hotkeys/GlobalHotkeys.h"
#include "platform/x11/X11HotkeyMonitor.h"

#include <QAction>
#include <QApplication>
#include <QLineEdit>
#include <QSocketNotifier>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>
#include <QWindow>

#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

void say(const QString& line)
{
    std::fputs((line + QLatin1Char('\n')).toUtf8().constData(), stdout);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);

    QWidget window;
    window.setWindowTitle(QStringLiteral("velotape-hotkey-probe"));
    auto* field = new QLineEdit(&window);
    auto* layout = new QVBoxLayout(&window);
    layout->addWidget(field);
    auto* menuAction = new QAction(QStringLiteral("Save"), &window);
    menuAction->setShortcut(QKeySequence(QStringLiteral("Ctrl+Shift+R")));
    window.addAction(menuAction);
    QObject::connect(menuAction, &QAction::triggered, [] { say(QStringLiteral("menu")); });

    GlobalHotkeys hotkeys([]() -> std::unique_ptr<GlobalKeyMonitor> { return X11HotkeyMonitor::create(); });
    hotkeys.onSaveHotkey = [] { say(QStringLiteral("save")); };
    hotkeys.registerHotkey(HotkeyBinding::defaultSave());

    QObject::connect(&app, &QGuiApplication::focusWindowChanged, [](QWindow* focused) {
        if (focused) say(QStringLiteral("focused"));
    });
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char buffer[256];
        const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (n <= 0) {
            app.quit();
            return;
        }
        if (std::string(buffer, static_cast<size_t>(n)).find("text") != std::string::npos)
            say(QStringLiteral("text:") + field->text());
    });

    window.resize(300, 80);
    window.show();
    field->setFocus();
    QTimer::singleShot(0, [&] { say(QStringLiteral("ready %1").arg(window.winId())); });
    return app.exec();
}
