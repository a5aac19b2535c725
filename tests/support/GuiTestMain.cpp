#include <QApplication>

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Tests of GUI-side bindings and views: a real QApplication, offscreen unless the caller chose
// a platform (for example Xvfb for the tray).
int main(int argc, char** argv) {
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
