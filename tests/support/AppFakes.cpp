#include "support/AppFakes.h"

#include "app/CancellableSleep.h"
#include "app/PlatformError.h"

#include <QCoroSignal>

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

void FakeLoginItemManager::setEnabled(bool enabled) {
    calls.append(enabled);
    if (failure) {
        throw PlatformError(*failure);
    }
}

QCoro::Task<LegacyMigrationResult> FakeMigration::migrateIfNeeded() {
    ++calls;
    if (hold) {
        co_await qCoro(this, &FakeMigration::released);
    } else {
        co_await nextTurn();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    co_return result;
}

void FakeMigration::release() {
    Q_EMIT released();
}

QCoro::Task<DeviceAuthorizationSession>
FakeDeviceAuthorizer::start(QString serverURL, QUuid deviceID, QString deviceName,
                            QString clientVersion, CancellationToken) {
    startCalls.append({serverURL, deviceID, deviceName, clientVersion});
    co_await nextTurn();
    co_return take(startOutcomes, false);
}

QCoro::Task<DeviceAuthorizationPollResult>
FakeDeviceAuthorizer::poll(QString serverURL, DeviceAuthorizationSession, CancellationToken) {
    pollURLs.append(serverURL);
    if (pollGate.hold) {
        co_await pollGate.sleep(0, CancellationToken());
    } else {
        co_await nextTurn();
    }
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

void FakeTodaySummaryPoller::start(QString serverURL, QString apiKey,
                                   std::function<void(const TodaySummary&)> callback) {
    starts.append({serverURL, apiKey});
    onUpdate = std::move(callback);
}

void FakeTodaySummaryPoller::stop() {
    ++stops;
    onUpdate = nullptr;
}

std::optional<QString> FakeDefaults::string(const QString& key) const {
    const QVariant value = values.value(key);
    if (value.typeId() != QMetaType::QString) {
        return std::nullopt;
    }
    return value.toString();
}

bool FakeDefaults::boolean(const QString& key) const {
    const QVariant value = values.value(key);
    return value.typeId() == QMetaType::Bool && value.toBool();
}

void FakeDefaults::setString(const QString& key, const QString& value) {
    values.insert(key, value);
}

void FakeDefaults::setBoolean(const QString& key, bool value) {
    values.insert(key, value);
}

void FakeConfigFile::setValue(const QString& value, const QString& key) {
    if (failure) {
        throw PlatformError(*failure);
    }
    writes.append({key, value});
}

AppHarness::AppHarness() = default;

AppStateCollaborators AppHarness::collaborators() {
    return AppStateCollaborators{
        .paths = TrackerRuntimePaths(home),
        .credentialStore = &credentials,
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
        .now = [this] { return now; },
    };
}

std::unique_ptr<AppState> AppHarness::make(bool startAutomatically) {
    return std::make_unique<AppState>(collaborators(), startAutomatically);
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
