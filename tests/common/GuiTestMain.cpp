// Test main for widget tests: a QApplication for the whole run, on Qt's
// offscreen platform unless the caller chose one (a test run under Xvfb may).
// gtest_discover_tests runs the binary without the test's environment, so the
// platform is chosen here rather than in CMake.
#include <QApplication>

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
