// The browser sign-in: ask the service for a code, show it, open the approval page, poll until
// the user decides, then store the key and start tracking with it.
#include "api/DeviceAuthorizationClientError.h"
#include "api/DeviceAuthorizing.h"
#include "app/AppState.h"
#include "app/AppStateError.h"
#include "app/WorkspaceOpening.h"
#include "core/CancellationError.h"
#include "core/SleepScheduling.h"
#include "system/CredentialStoring.h"
#include "system/InstallationDescribing.h"
#include "tracker/TrackerSupervising.h"
#include "tracker/TrackerSupervisorError.h"

#include <QPointer>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>

namespace {

const QString fallbackClientVersion = QStringLiteral("0.6.1");

bool isStandardUUID(const QString& text) {
    // Anchored as a whole: "$" alone would let a trailing line feed through.
    static const QRegularExpression form(QRegularExpression::anchoredPattern(QStringLiteral(
        "[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}")));
    return form.match(text).hasMatch();
}

// A polling interval from the service, in seconds, as long as the task sleep can wait: at most
// 2^64 - 1 nanoseconds. Anything else (NaN, infinity, centuries) is a broken answer; taken as it
// is, NaN would poll without pause and infinity would never poll again.
double usableInterval(double seconds) {
    constexpr double longest = 18446744073.709551615;
    if (!std::isfinite(seconds) || seconds > longest) {
        throw DeviceAuthorizationClientError::invalidResponse();
    }
    return seconds;
}

bool isNetworkUnavailable(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const DeviceAuthorizationClientError& clientError) {
        return clientError.code() == DeviceAuthorizationClientError::Code::networkUnavailable;
    } catch (...) {
        return false;
    }
}

} // namespace

void AppState::beginDeviceAuthorization() {
    if (m_isAuthorizingDevice) {
        return;
    }
    TaskHandle task;
    m_deviceAuthorizationTask = task;
    // Runs at once up to its first suspension, so the panel shows the first progress line (and
    // a second click finds the attempt running) before this call returns.
    runDeviceAuthorization(task);
}

void AppState::cancelDeviceAuthorization() {
    if (m_deviceAuthorizationTask) {
        m_deviceAuthorizationTask->cancel();
    }
    m_deviceAuthorizationTask.reset();
    setIsAuthorizingDevice(false);
    clearDeviceAuthorizationFields();
    setDeviceAuthorizationMessage(std::nullopt);
}

void AppState::openDeviceAuthorizationPage() {
    if (m_deviceAuthorizationURL) {
        m_c.workspace->openURL(*m_deviceAuthorizationURL);
    }
}

QString AppState::clientVersion() const {
    return m_c.installation->shortVersion().value_or(fallbackClientVersion);
}

void AppState::clearDeviceAuthorizationFields() {
    setDeviceAuthorizationCode(std::nullopt);
    setDeviceAuthorizationExpiresAt(std::nullopt);
    m_deviceAuthorizationURL.reset();
}

QCoro::Task<void> AppState::runDeviceAuthorization(TaskHandle task) {
    const QPointer<AppState> self(this);
    const CancellationToken token = task.token();
    setIsAuthorizingDevice(true);
    setPresentedError(std::nullopt);
    setDeviceAuthorizationMessage(QStringLiteral("Preparing a secure browser sign in…"));

    std::exception_ptr failure;
    try {
        auto [serverURL, session] = co_await startDeviceAuthorizationSession(token);
        co_await pollDeviceAuthorization(std::move(serverURL), std::move(session), token);
    } catch (...) {
        failure = std::current_exception();
    }
    // An attempt that was cancelled (and perhaps replaced by a new one) leaves the state alone:
    // cancelDeviceAuthorization has already cleared it, and it may belong to the new attempt.
    if (!self || m_deviceAuthorizationTask != task) {
        co_return;
    }
    if (failure && !token.isCancelled()) {
        clearDeviceAuthorizationFields();
        setDeviceAuthorizationMessage(std::nullopt);
        setPresentedError(VantrelError::describe(failure));
    }
    setIsAuthorizingDevice(false);
    m_deviceAuthorizationTask.reset();
}

QCoro::Task<std::pair<QString, DeviceAuthorizationSession>>
AppState::startDeviceAuthorizationSession(CancellationToken token) {
    const QPointer<AppState> self(this);
    const std::optional<QString> helper = helperExecutableURL();
    if (!helper) {
        throw TrackerSupervisorError::helperMissing(m_c.installation->expectedHelperPath());
    }
    co_await m_c.supervisor->refreshStatus(*helper, m_c.paths.configURL());
    if (!self) {
        throw CancellationError();
    }
    const std::optional<TrackerStatus> status = m_c.supervisor->trackerStatus();
    if (!status || !isStandardUUID(status->deviceId)) {
        throw AppStateError(AppStateError::Code::deviceIdentityUnavailable);
    }
    const QString serverURL = normalizedServerURL(m_serverURL);

    DeviceAuthorizationSession session =
        co_await m_c.deviceAuthorizer->start(serverURL, QUuid::fromString(status->deviceId),
                                             currentDeviceName(), clientVersion(), token);
    if (!self || token.isCancelled()) {
        throw CancellationError();
    }
    setDeviceAuthorizationCode(session.userCode);
    setDeviceAuthorizationExpiresAt(session.expiresAt);
    m_deviceAuthorizationURL = session.verificationURLComplete;
    setDeviceAuthorizationMessage(QStringLiteral("Approve this Mac in your browser."));
    m_c.workspace->openURL(session.verificationURLComplete);
    co_return std::pair{serverURL, std::move(session)};
}

QCoro::Task<void> AppState::pollDeviceAuthorization(QString serverURL,
                                                    DeviceAuthorizationSession session,
                                                    CancellationToken token) {
    const QPointer<AppState> self(this);
    double interval = std::max(usableInterval(session.interval), 1.0);
    while (!token.isCancelled() && m_c.now() < session.expiresAt) {
        co_await m_c.taskSleeper->sleep(interval, token);
        if (!self || token.isCancelled()) {
            throw CancellationError();
        }

        std::optional<DeviceAuthorizationPollResult> result;
        std::exception_ptr failure;
        try {
            result = co_await m_c.deviceAuthorizer->poll(serverURL, session, token);
        } catch (...) {
            failure = std::current_exception();
        }
        // An answer that arrives after the attempt was abandoned is dropped whatever it says: the
        // fields are cleared, a typed key may have replaced the stored one, and a new attempt may
        // own the progress line by now. (The client reports its own cancellation as a network
        // failure, which would otherwise show the connection message again.)
        if (!self || token.isCancelled()) {
            throw CancellationError();
        }
        if (failure && !isNetworkUnavailable(failure)) {
            std::rethrow_exception(failure);
        }
        if (!result) {
            // The code stays valid while the network is away; keep trying until it expires.
            setDeviceAuthorizationMessage(
                QStringLiteral("Waiting for a connection. Your code is still active."));
            continue;
        }

        switch (result->kind()) {
        case DeviceAuthorizationPollResult::Kind::pending:
            interval = std::max(interval, usableInterval(result->interval()));
            setDeviceAuthorizationMessage(QStringLiteral("Waiting for browser approval…"));
            break;
        case DeviceAuthorizationPollResult::Kind::slowDown:
            interval = std::max(interval, usableInterval(result->interval()));
            break;
        case DeviceAuthorizationPollResult::Kind::authorized:
            co_await completeDeviceAuthorization(result->apiKey(), token);
            co_return;
        case DeviceAuthorizationPollResult::Kind::denied:
            throw AppStateError(AppStateError::Code::deviceAuthorizationDenied);
        case DeviceAuthorizationPollResult::Kind::expired:
            throw AppStateError(AppStateError::Code::deviceAuthorizationExpired);
        case DeviceAuthorizationPollResult::Kind::claimed:
            throw AppStateError(AppStateError::Code::deviceAuthorizationClaimed);
        }
    }
    if (!token.isCancelled()) {
        throw AppStateError(AppStateError::Code::deviceAuthorizationExpired);
    }
}

QCoro::Task<void> AppState::completeDeviceAuthorization(QString apiKey, CancellationToken token) {
    const QPointer<AppState> self(this);
    co_await m_c.credentialStore->saveAPIKey(apiKey, token);
    if (!self || token.isCancelled()) {
        throw CancellationError();
    }
    const std::optional<QString> stored = co_await m_c.credentialStore->loadAPIKey(token);
    if (!self || token.isCancelled()) {
        throw CancellationError();
    }
    if (!stored || *stored != apiKey) {
        throw AppStateError(AppStateError::Code::credentialVerificationFailed);
    }
    setHasCredential(true);
    clearDeviceAuthorizationFields();
    setDeviceAuthorizationMessage(QStringLiteral("Connected. Starting the tracker…"));
    startTracker(apiKey);
}
