#pragma once

class QWidget;
class SessionBus;
class TestDesktop;

// The desktop that the interface tests run on (see DesktopTestMain.cpp); null while ctest only
// lists the tests.
TestDesktop* testDesktop();
// The private session bus of the binaries built with VELOTAPE_TEST_SESSION_BUS; null otherwise.
SessionBus* testSessionBus();

// Waits until `window` (already shown) is exposed. Now and then openbox here leaves a new window's
// first map request unanswered (the window stays unmapped, never reparented); showing it again
// asks again.
bool showUnderTheWindowManager(QWidget* window);
