#include <QApplication>

#include <gtest/gtest.h>

// Every test binary runs inside a QApplication on the offscreen platform, so that QObject signals,
// QTimer, QImage and QPainter behave as in the program. Integration tests talk to their private X
// server through the platform backends, not through Qt's window system.
int main(int argc, char** argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
