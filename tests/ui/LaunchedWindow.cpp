#include "LaunchedWindow.h"

#include "DesktopTestMain.h"
#include "ui/AppDelegate.h"

#include <QMainWindow>
#include <QSettings>

#include <gtest/gtest.h>

std::unique_ptr<AppDelegate> launchWindow(const QString& clipsFolder, const QString& socketPath)
{
    QSettings().clear();
    QSettings settings;
    settings.setValue(QStringLiteral("vt2.savePath"), clipsFolder);
    settings.setValue(QStringLiteral("vt2.playSound"), false);
    settings.setValue(QStringLiteral("vt2.systemAudio.enabled"), false);
    settings.setValue(QStringLiteral("vt2.bufferSeconds"), 3);
    settings.sync();
    auto delegate = std::make_unique<AppDelegate>(
        AppSession::Options { .headless = false, .source = {}, .socketPath = socketPath });
    QString error;
    if (!delegate->applicationDidFinishLaunching(&error)) {
        ADD_FAILURE() << "the window did not start: " << qPrintable(error);
        return nullptr;
    }
    if (!showUnderTheWindowManager(delegate->window())) {
        ADD_FAILURE() << "the window was never exposed";
        return nullptr;
    }
    return delegate;
}
