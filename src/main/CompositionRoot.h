#pragma once

#include <QNetworkAccessManager>

#include <memory>

class ActionRequiredAnnouncer;
class AppState;
class QApplicationController;

// The one place that chooses concrete classes: it creates the production collaborators with
// their fixed settings and hands them to the one AppState. It owns them all, and keeps them alive
// longer than the AppState (declared after them, destroyed before them).
class CompositionRoot {
public:
    CompositionRoot();
    ~CompositionRoot();

    // Called once per process.
    AppState& makeAppState(bool startAutomatically);

    QApplicationController& applicationController();

    // The fixed settings.
    static constexpr const char* credentialService = "com.keldor.vantrel";
    static constexpr const char* credentialAccount = "tracker-api-key";
    static constexpr int maximumRestartAttempts = 4;
    static constexpr double todaySummaryRefreshInterval = 60;
    static constexpr int legacyServiceStatusChecks = 20;

private:
    struct Collaborators;
    std::unique_ptr<Collaborators> m_collaborators;
    std::unique_ptr<AppState> m_appState;
    std::unique_ptr<ActionRequiredAnnouncer> m_announcer;
};
