#include "PanelTestSupport.h"

PanelFixture::PanelFixture() {
    harness.now = now;
    harness.supervisor.statusOnRefresh = sampleTrackerStatus();
    state = harness.make(false);
    presenter = std::make_unique<MenuBarPresenter>(
        *state, harness.supervisor, [this] { return now; },
        [this] {
            auto ticker = std::make_unique<FakeTicker>();
            tickers.append(ticker.get());
            return ticker;
        },
        [this](const QString& identifier) { openedWindows.append(identifier); });
    presenter->setLocale(QLocale(QLocale::English, QLocale::UnitedStates), QTimeZone::utc());
}

PanelFixture::~PanelFixture() {
    presenter.reset();
    state.reset(); // ends an unfinished sign-in while the fakes it waits on still exist
    AsyncTest::spin(std::chrono::milliseconds(20));
}

void PanelFixture::signIn(const QString& key) {
    harness.credentials.stored = key;
    AsyncTest::run(state->start());
}

void PanelFixture::reportStatus(const std::function<void(TrackerStatus&)>& edit) {
    TrackerStatus status = sampleTrackerStatus();
    edit(status);
    harness.supervisor.setTrackerStatus(status);
}

void PanelFixture::beginSignInWithCode(qint64 expiresInSeconds) {
    DeviceAuthorizationSession session;
    session.userCode = QStringLiteral("WDJB-MJHT");
    session.verificationURLComplete = QUrl(QStringLiteral("https://vantrel.app/device?code=WDJB"));
    session.expiresAt = now.addSecs(expiresInSeconds);
    session.interval = 5;
    harness.authorizer.startOutcomes.push_back(session);
    // Polling waits on a held sleep, so the code stays up.
    harness.taskSleeper.hold = true;
    state->beginDeviceAuthorization();
    AsyncTest::waitUntil([this] { return harness.taskSleeper.pendingCount() == 1; });
}
