#include <QCoreApplication>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Every test runs on a Qt event loop's thread, like the application: coroutines, timers and
// child-process notifications all need one.
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
