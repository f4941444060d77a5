#pragma once

#include <QString>

#include <memory>
#include <optional>

// What the program asks of the desktop for its clips: the "complete" sound of the freedesktop sound
// theme, showing a file in the file manager, opening a file or folder with the user's default
// application, and the freedesktop trash.
class DesktopIntegration {
public:
    virtual ~DesktopIntegration() = default;
    // Silent when no sound theme or sound server is available.
    virtual void playCompleteSound() = 0;
    // org.freedesktop.FileManager1.ShowItems; without a file manager on the bus, opens the folder.
    virtual void revealInFileManager(const QString& path) = 0;
    // The default application for the file's type (a folder opens in the file manager); false when
    // none could be started.
    virtual bool open(const QString& path) = 0;
    // Moves the file into the user's trash, where the file manager can restore it. The error's text
    // when it could not.
    virtual std::optional<QString> moveToTrash(const QString& path) = 0;

    static std::unique_ptr<DesktopIntegration> create();
};
