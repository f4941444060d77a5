#pragma once

#include "platform/MicrophoneBackend.h"

#include <mutex>

// A sound system that lists the microphones a test gives it and records what is opened and closed;
// a test can make an opening fail, feed buffers to the open device or pull it out.
class ScriptedMicrophones : public MicrophoneBackend {
public:
    struct Open {
        QString id;
        BufferSink onBuffer;
        LostSink onLost;
        bool closed = false;
    };

    std::mutex mutex;
    std::vector<MicrophoneDevice> devices; // guarded by mutex
    std::optional<QString> defaultID; // guarded by mutex
    QString failOpenWith; // guarded by mutex
    std::vector<std::shared_ptr<Open>> opens; // guarded by mutex
    std::function<void()> watcher; // guarded by mutex

    Listing listDevices() override
    {
        std::lock_guard lock(mutex);
        return { devices, defaultID, {} };
    }

    Opened open(const QString& id, BufferSink onBuffer, LostSink onLost) override
    {
        std::lock_guard lock(mutex);
        if (!failOpenWith.isEmpty()) return { nullptr, failOpenWith };
        auto record = std::make_shared<Open>(Open { id, std::move(onBuffer), std::move(onLost) });
        opens.push_back(record);
        struct Stream : MicrophoneStream {
            std::shared_ptr<Open> record;
            ~Stream() override { record->closed = true; }
        };
        auto stream = std::make_unique<Stream>();
        stream->record = record;
        return { std::move(stream), {} };
    }

    void watchDevices(std::function<void()> changed) override
    {
        std::lock_guard lock(mutex);
        watcher = std::move(changed);
    }

    // The ids opened so far, in order, and whether the last one is still open.
    std::vector<QString> openedIDs()
    {
        std::lock_guard lock(mutex);
        std::vector<QString> ids;
        for (const auto& o : opens)
            ids.push_back(o->id);
        return ids;
    }
    std::shared_ptr<Open> last()
    {
        std::lock_guard lock(mutex);
        return opens.empty() ? nullptr : opens.back();
    }
};
