#pragma once

#include <QString>

// The screenshot tour's pictures of the window on Wayland, in a process of its own (the platform
// Qt runs on is chosen once per process): the real window on a headless weston, capturing through
// the real desktop portal and PipeWire from the test portal backend, which sends a painted test
// card. Writes recorder-wayland-APPEARANCE-WxH.png and picker-wayland-APPEARANCE-WxH.png, as the
// compositor shows them. 0 on success; says what failed on standard error otherwise.
int waylandTour(int argc, char** argv, const QString& outDir);
