#pragma once

#include "platform/TextRecognizer.h"

#include <QObject>
#include <QString>

#include <functional>
#include <optional>

class AreaMonitor;
class CaptureEngine;
class ClipJournalStore;
class QThreadPool;
class SourceMemory;

// The last step of a save: reads the P&L off the saved clip, inside the watched area, on a worker
// thread, and tags the clip with it unless the user has tagged it already. Every outcome ends in a
// toast. One clip at a time, so that recording keeps the other core.
//
// Main thread; the reading runs on its own pool and comes back by a queued call.
class AutoPnLDetect : public QObject {
    Q_OBJECT
public:
    // `recognizers` null: no P&L is ever read.
    AutoPnLDetect(RecognizerFactory recognizers, const AreaMonitor& monitor, const SourceMemory& sources,
        const CaptureEngine& engine, ClipJournalStore& journal, std::function<void(const QString&)> toast,
        QObject* parent = nullptr);
    // Waits for a reading under way: it would call back into a session that is going.
    ~AutoPnLDetect() override;

    void run(const QString& clip);

private:
    struct Reading;
    // Back on the main thread: writes the detected figure and says what was found.
    void finish(const QString& clip, const Reading& reading);

    RecognizerFactory recognizers;
    const AreaMonitor& monitor;
    const SourceMemory& sources;
    const CaptureEngine& engine;
    ClipJournalStore& journal;
    std::function<void(const QString&)> toast;
    QThreadPool* pool;
};
