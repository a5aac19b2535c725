#include "ui/WindowDirectory.h"

#include <QCoreApplication>
#include <QPointer>

#include <gtest/gtest.h>
#include <memory>

namespace {

// A window released on close is made afresh on the next opening; one kept is raised again. The
// directory takes its open windows with it.
TEST(WindowDirectory, RaisesTheOpenWindowMakesAReleasedOneAfreshAndTakesThemWithIt) {
    for (const bool releasedOnClose : {false, true}) {
        auto windows = std::make_unique<WindowDirectory>();
        int made = 0;
        windows->add("diagnostics", [&made, releasedOnClose] {
            auto* window = new QWidget;
            window->setAttribute(Qt::WA_DeleteOnClose, releasedOnClose);
            ++made;
            return window;
        });
        ASSERT_TRUE(windows->open("diagnostics"));
        ASSERT_TRUE(windows->open("diagnostics"));
        EXPECT_EQ(made, 1);
        windows->window("diagnostics")->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        windows->open("diagnostics");
        EXPECT_EQ(made, releasedOnClose ? 2 : 1);
        EXPECT_FALSE(windows->open("settings"));
        const QPointer<QWidget> window = windows->window("diagnostics");
        windows.reset();
        EXPECT_EQ(window, nullptr);
    }
}

} // namespace
