#include "support/AppFakes.h"

#include "core/CancellableSleep.h"
#include "core/PlatformError.h"

namespace {

QCoro::Task<void> nextTurn() {
    co_await cancellableSleep(std::chrono::milliseconds(1), CancellationToken());
}

template <typename T>
T take(std::deque<std::variant<T, std::exception_ptr>>& outcomes, bool repeatLast) {
    if (outcomes.empty()) {
        throw PlatformError(QStringLiteral("no scripted outcome"));
    }
    auto outcome = outcomes.front();
    if (!repeatLast || outcomes.size() > 1) {
        outcomes.pop_front();
    }
    if (auto* error = std::get_if<std::exception_ptr>(&outcome)) {
        std::rethrow_exception(*error);
    }
    return std::get<T>(outcome);
}

} // namespace

QCoro::Task<LegacyMigrationResult> FakeMigration::migrateIfNeeded() {
    ++calls;
    co_await gate.sleep(0, CancellationToken());
    if (failure) {
        std::rethrow_exception(failure);
    }
    co_return result;
}

QCoro::Task<DeviceAuthorizationSession>
FakeDeviceAuthorizer::start(QString, QUuid deviceID, QString, QString, CancellationToken) {
    startCalls.append(deviceID);
    co_await nextTurn();
    co_return take(startOutcomes, false);
}

QCoro::Task<DeviceAuthorizationPollResult>
FakeDeviceAuthorizer::poll(QString serverURL, DeviceAuthorizationSession, CancellationToken) {
    pollURLs.append(serverURL);
    co_await pollGate.sleep(0, CancellationToken());
    co_return take(pollOutcomes, true);
}

QCoro::Task<void> FakeDeviceAuthorizer::revoke(QString serverURL, QString apiKey,
                                               CancellationToken) {
    revokes.append({serverURL, apiKey});
    co_await nextTurn();
    if (revokeFailure) {
        std::rethrow_exception(revokeFailure);
    }
}

std::unique_ptr<AppState> AppHarness::make(bool startAutomatically) {
    return std::make_unique<AppState>(
        AppStateCollaborators{
            .paths = TrackerRuntimePaths(home),
            .credentialStore = &credentials,
            .secretService = &secretService,
            .supervisor = &supervisor,
            .loginItemManager = &loginItems,
            .migration = &migration,
            .deviceAuthorizer = &authorizer,
            .todaySummaryPoller = &poller,
            .sleeper = &sleeper,
            .defaults = &defaults,
            .configFile = &configFile,
            .workspace = &workspace,
            .application = &application,
            .clipboard = &clipboard,
            .installation = &installation,
            .host = &host,
            .taskSleeper = &taskSleeper,
            // Virtual time: the clock advances by what the application's tasks slept.
            .now = [this] { return now.addMSecs(static_cast<qint64>(taskSleeper.elapsed * 1000)); },
        },
        startAutomatically);
}

TrackerStatus sampleTrackerStatus() {
    TrackerStatus status;
    status.schemaVersion = 1;
    status.trackerVersion = QStringLiteral("2.3.0");
    status.vantrelConfigPath = QStringLiteral("/home/tester/.vantrel/config.toml");
    status.deviceId = QStringLiteral("6F9619FF-8B86-D011-B42D-00C04FC964FF");
    status.deviceName = QStringLiteral("anna-laptop");
    status.presenceCoverage = QStringLiteral("full");
    status.presenceReason = QStringLiteral("sampling");
    status.serviceState = QStringLiteral("running");
    return status;
}
