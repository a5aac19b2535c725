#include "ui/WindowDirectory.h"

#include <QCoreApplication>
#include <QTest>

#include <gtest/gtest.h>
#include <memory>

namespace {

struct Directory {
    explicit Directory(bool releasedOnClose) {
        windows->add("diagnostics", [this, releasedOnClose] {
            auto* window = new QWidget;
            window->setAttribute(Qt::WA_DeleteOnClose, releasedOnClose);
            ++made;
            return window;
        });
    }
    std::unique_ptr<WindowDirectory> windows = std::make_unique<WindowDirectory>();
    int made = 0;
};

TEST(WindowDirectory, RaisesTheOpenWindowAndMakesAReleasedOneAfresh) {
    Directory kept(false);
    Directory released(true);
    for (Directory* directory : {&kept, &released}) {
        ASSERT_TRUE(directory->windows->open("diagnostics"));
        ASSERT_TRUE(directory->windows->open("diagnostics"));
        EXPECT_EQ(directory->made, 1);
        directory->windows->window("diagnostics")->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        directory->windows->open("diagnostics");
    }
    EXPECT_EQ(kept.made, 1);
    EXPECT_EQ(released.made, 2);
    EXPECT_FALSE(released.windows->open("settings"));
}

TEST(WindowDirectory, TakesItsOpenWindowsWithIt) {
    Directory directory(true);
    directory.windows->open("diagnostics");
    const QPointer<QWidget> window = directory.windows->window("diagnostics");
    directory.windows.reset();
    EXPECT_EQ(window, nullptr);
}

} // namespace
