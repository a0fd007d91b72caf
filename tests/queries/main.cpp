#include <QApplication>
#include <gtest/gtest.h>

// The confirmation dialog is a widget: tests run inside a GUI application.
int main(int argc, char** argv)
{
    // Without a display (test discovery, CI) the offscreen platform serves.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
