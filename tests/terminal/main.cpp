// One QApplication for every case; each case runs in a process of its own
// (gtest_discover_tests), so the directories bind afresh for each.
#include <gtest/gtest.h>

#include <QApplication>

#if defined(__SANITIZE_ADDRESS__)
// Fontconfig keeps its caches to the end of the process by design; the leak
// checker of sanitizer builds is told so, and nothing else.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
#endif

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    // The application lives until the process ends: the offscreen platform
    // of Qt 5.15 loses its screen objects when the application is destroyed,
    // which the leak checker would report as ours.
    static int appArgc = argc;
    static QApplication* app = new QApplication(appArgc, argv);
    Q_UNUSED(app);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
