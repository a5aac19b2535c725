#pragma once

#include "app/ApplicationControlling.h"

#include <functional>

// The Qt application object: raising our windows, opening Settings through whoever owns the
// windows, and leaving the event loop.
class QApplicationController : public ApplicationControlling {
public:
    void activate() override;
    void showSettingsWindow() override;
    void terminate() override;

    // Set by the user interface once its Settings window exists.
    std::function<void()> settingsWindowOpener;
};
