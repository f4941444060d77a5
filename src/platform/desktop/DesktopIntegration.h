#pragma once

#include <QString>

#include <memory>

// What a saved clip does on the desktop: the "complete" sound of the freedesktop sound theme, and
// showing the file in the file manager.
class DesktopIntegration {
public:
    virtual ~DesktopIntegration() = default;
    // Silent when no sound theme or sound server is available.
    virtual void playCompleteSound() = 0;
    // org.freedesktop.FileManager1.ShowItems; without a file manager on the bus, opens the folder.
    virtual void revealInFileManager(const QString& path) = 0;

    static std::unique_ptr<DesktopIntegration> create();
};
