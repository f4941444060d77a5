#pragma once

class TestDesktop;

// The desktop that the interface tests run on (see DesktopTestMain.cpp); null while ctest only
// lists the tests.
TestDesktop* testDesktop();
