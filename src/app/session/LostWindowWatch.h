#pragma once

#include "core/TaskScheduler.h"

#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

class CaptureEngine;
class CaptureSource;
class SourceMemory;

// What becomes of a stream that ends by itself. A captured window that closed gives way to the
// display it was on, at the same picture size so that the ring and a running recording go on, and
// comes back once a window of the same application and title shows; the toast says both. Any other
// end is only said.
//
// Main thread.
class LostWindowWatch : public QObject {
    Q_OBJECT

public:
    // How often the window list is asked for a closed window while it stays away.
    static constexpr auto checkInterval = std::chrono::seconds(2);

    // `startStream` streams the engine's selected source at the given size with the settings' frame
    // rate, cursor, hide-self and system audio.
    LostWindowWatch(CaptureEngine& engine, const SourceMemory& sources, TaskScheduler& scheduler,
        std::function<void(const QString&)> showToast, std::function<void(int width, int height)> startStream,
        QObject* parent = nullptr);

    void handleStreamStopped(const QString& reason);
    // True while the watch itself changes the selected source: a stand-in for a closed window, or
    // the window back, is not the user's choice.
    bool isSwitchingSource() const { return switchingSource; }
    // A source chosen by anyone else ends the wait for a closed window.
    void stopWaiting();

private:
    // Streams `source` at the size the stream runs at now.
    void switchSourceKeepingRing(const CaptureSource& source);
    // While a captured window is away: a refresh of the window list now and then, until it is back.
    void scheduleCheck();
    void check();

    CaptureEngine* engine;
    const SourceMemory* sources;
    TaskScheduler* scheduler;
    std::function<void(const QString&)> showToast;
    std::function<void(int width, int height)> startStream;

    // The captured window that closed and is waited for, by what it shows.
    struct LostWindow {
        QString descriptor;
        QString title;
    };
    std::optional<LostWindow> lostWindow;
    std::optional<TaskScheduler::Handle> checkTask;
    bool switchingSource = false;
};
