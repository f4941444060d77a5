#pragma once

#include <QObject>

#include <functional>
#include <memory>

class CaptureEngine;
class DesktopIntegration;
class DesktopNotifications;
class SessionStatus;
struct SessionModels;

// What the user must hear of while no window shows the toast: a saved clip ("Saved: …", with
// "Open" and "Show in Folder") and the errors of an export or of the capture. The line on standard
// output of a headless instance, and the toast of the window, stay as they are.
//
// Main thread.
class EventNotifications : public QObject {
    Q_OBJECT
public:
    static constexpr auto openAction = "open";
    static constexpr auto showInFolderAction = "show-in-folder";

    // `userSeesWindow`: whether the window is on the screen now (null: there is none, headless).
    EventNotifications(const SessionModels& models, std::unique_ptr<DesktopNotifications> notifications,
        std::function<bool()> userSeesWindow, QObject* parent = nullptr);
    ~EventNotifications() override;

private:
    bool shouldNotify() const;
    void clipSaved(const QString& path);
    void error(const QString& text);

    SessionStatus* status;
    DesktopIntegration* desktop; // null: the actions do nothing
    std::unique_ptr<DesktopNotifications> notifications;
    std::function<bool()> userSeesWindow;
};
