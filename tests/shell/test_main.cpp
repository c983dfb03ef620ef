#include <QApplication>
#include <cstdlib>
#include <gtest/gtest.h>

// Window tests need an application object; listing the tests (done at build time, without a display) must not
// make one. Without a chosen platform the tests draw offscreen.
int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
