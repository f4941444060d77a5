#include <QApplication>
#include <QWidget>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    // Without a display Qt would abort with a long xcb plug-in message; say it in one line instead.
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        std::fprintf(stderr, "velotape: no display found (DISPLAY and WAYLAND_DISPLAY are unset)\n");
        return 1;
    }
    QApplication app(argc, argv);
    QWidget window;
    window.setWindowTitle(QStringLiteral("Velotape"));
    window.resize(960, 640);
    window.show();
    return app.exec();
}
