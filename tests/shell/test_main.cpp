#include <QApplication>
#include <cstdlib>
#include <gtest/gtest.h>

#include "shell/selection_mode.h"
#include "shell/wizards.h"
#include "tools/tool_manager.h"

// Window tests need an application object; listing the tests (done at build time, without a display) must not
// make one. Without a chosen platform the tests draw offscreen.
int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    // The large button asks for a method first; window tests that press it go on with the contour method. The
    // method dialog's own test puts the real dialog back.
    selmode::SetMethodChooser([](QWidget*) { return uint32_t(kMethodInOut); });
    // The question after opening a picture is left unanswered, as a user closing it would.
    SetAfterOpenHook([](CAfterOpenDlg&) {});
    return RUN_ALL_TESTS();
}
