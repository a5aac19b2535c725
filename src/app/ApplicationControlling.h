#pragma once

// The application object: bringing it forward, its Settings window, and quitting.
class ApplicationControlling {
public:
    virtual ~ApplicationControlling() = default;

    virtual void activate() = 0;
    virtual void showSettingsWindow() = 0;
    virtual void terminate() = 0;
};
