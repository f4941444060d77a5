#pragma once

#include "ui/AppDelegate.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>
#include <memory>

// What both screenshot tours do with the window.

// Lets the window paint and the session answer for `milliseconds`.
inline void settle(int milliseconds)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < milliseconds)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

// The application named as the program names itself, and its window launched with a control socket
// at `socketPath`; null, having said why on standard error, when it does not launch. Needs the
// QApplication.
inline std::unique_ptr<AppDelegate> launchTourWindow(const QString& socketPath)
{
    QCoreApplication::setApplicationName(QStringLiteral("Velotape"));
    QCoreApplication::setOrganizationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELOTAPE_VERSION));
    auto delegate = std::make_unique<AppDelegate>(
        AppSession::Options { .headless = false, .source = {}, .socketPath = socketPath });
    QString error;
    if (!delegate->applicationDidFinishLaunching(&error)) {
        std::fprintf(stderr, "screenshot_tour: %s\n", qPrintable(error));
        return nullptr;
    }
    return delegate;
}
