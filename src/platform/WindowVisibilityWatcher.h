#pragma once

#include <functional>

// Tells whether a top-level window can be seen: false while it is minimised or wholly covered by
// other windows, true once any of it shows again. Made by Platform for the session type;
// where nothing can tell, there is no watcher and the window counts as visible while shown.
//
// Reports arrive on the main thread, only on a change.
class WindowVisibilityWatcher {
public:
    using Report = std::function<void(bool visible)>;
    virtual ~WindowVisibilityWatcher() = default;
};
