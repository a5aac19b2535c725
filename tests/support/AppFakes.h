#pragma once

#include "api/DeviceAuthorizing.h"
#include "api/TodaySummaryPolling.h"
#include "app/AppState.h"
#include "app/ApplicationControlling.h"
#include "app/ClipboardWriting.h"
#include "app/WorkspaceOpening.h"
#include "core/PlatformError.h"
#include "support/FakeSleeper.h"
#include "support/FakeSupervisor.h"
#include "support/InMemoryCredentialStore.h"
#include "system/DefaultsStoring.h"
#include "system/HostNaming.h"
#include "system/InstallationDescribing.h"
#include "system/LegacyTrackerMigrating.h"
#include "system/LoginItemManaging.h"
#include "system/SecretServiceAwaiting.h"
#include "system/TrackerConfigWriting.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QVariant>

#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <ostream>
#include <variant>

// Readable failure messages for compared texts.
inline void PrintTo(const QString& value, std::ostream* os) {
    *os << '"' << value.toStdString() << '"';
}

// Fakes for the application state's collaborators. Asynchronous ones answer on a later turn of
// the event loop, as the real ones do.

class FakeLoginItemManager : public LoginItemManaging {
public:
    void setEnabled(bool enabled) override {
        calls.append(enabled);
        if (failure) {
            throw PlatformError(*failure);
        }
    }
    QList<bool> calls;
    std::optional<QString> failure; // thrown as a PlatformError
};

class FakeMigration : public LegacyTrackerMigrating {
public:
    QCoro::Task<LegacyMigrationResult> migrateIfNeeded() override;
    // With gate.hold set, migrateIfNeeded waits until gate.releaseOne().
    FakeSleeper gate;

    LegacyMigrationResult result;
    std::exception_ptr failure;
    int calls = 0;
};

class FakeSecretServiceAwaiter : public SecretServiceAwaiting {
public:
    QCoro::Task<void> awaitSecretService() override { co_await gate.sleep(0, CancellationToken()); }
    // With gate.hold set, the wait lasts until gate.releaseOne().
    FakeSleeper gate;
};

class FakeDeviceAuthorizer : public DeviceAuthorizing {
public:
    template <typename T>
    using Outcome = std::variant<T, std::exception_ptr>;

    QCoro::Task<DeviceAuthorizationSession> start(QString serverURL, QUuid deviceID,
                                                  QString deviceName, QString clientVersion,
                                                  CancellationToken token) override;
    QCoro::Task<DeviceAuthorizationPollResult>
    poll(QString serverURL, DeviceAuthorizationSession session, CancellationToken token) override;
    QCoro::Task<void> revoke(QString serverURL, QString apiKey, CancellationToken token) override;

    QList<QUuid> startCalls; // the device IDs asked with
    QList<QString> pollURLs;
    QList<std::pair<QString, QString>> revokes;

    std::deque<Outcome<DeviceAuthorizationSession>> startOutcomes;
    // Played in order; the last one repeats.
    std::deque<Outcome<DeviceAuthorizationPollResult>> pollOutcomes;
    std::exception_ptr revokeFailure;
    // With pollGate.hold set, each poll stays in flight until pollGate.releaseOne(), and answers
    // even when its token was cancelled meanwhile (a reply already on its way).
    FakeSleeper pollGate;
};

class FakeTodaySummaryPoller : public TodaySummaryPolling {
public:
    void start(QString serverURL, QString apiKey,
               std::function<void(const TodaySummary&)> callback) override {
        starts.append({serverURL, apiKey});
        onUpdate = std::move(callback);
    }
    void stop() override { onUpdate = nullptr; }
    void refreshNow() override {}

    QList<std::pair<QString, QString>> starts;
    std::function<void(const TodaySummary&)> onUpdate;
};

class FakeDefaults : public DefaultsStoring {
public:
    std::optional<QString> string(const QString& key) const override {
        return values.contains(key) ? std::optional(values[key].toString()) : std::nullopt;
    }
    bool boolean(const QString& key) const override { return values.value(key).toBool(); }
    void setString(const QString& key, const QString& value) override { values.insert(key, value); }
    void setBoolean(const QString& key, bool value) override { values.insert(key, value); }
    std::optional<QString> readProblem() const override { return problem; }
    void commit() override {
        if (commitFailure) {
            throw PlatformError(*commitFailure);
        }
        ++commits;
        problem.reset();
    }
    QHash<QString, QVariant> values;
    std::optional<QString> problem;
    std::optional<QString> commitFailure; // thrown as a PlatformError
    int commits = 0;
};

class FakeConfigFile : public TrackerConfigWriting {
public:
    void setValue(const QString& value, const QString& key) override {
        if (failure) {
            throw PlatformError(*failure);
        }
        writes.append({key, value});
    }
    QList<std::pair<QString, QString>> writes; // (key, value)
    std::optional<QString> failure;
};

class FakeWorkspace : public WorkspaceOpening {
public:
    void openURL(const QUrl& url) override { opened.append(url); }
    void revealFiles(const QStringList& paths) override { revealed.append(paths); }
    QList<QUrl> opened;
    QList<QStringList> revealed;
};

class FakeApplication : public ApplicationControlling {
public:
    void activate() override { ++activations; }
    void showSettingsWindow() override { ++settingsWindowsShown; }
    void terminate() override { ++terminations; }
    int activations = 0;
    int settingsWindowsShown = 0;
    int terminations = 0;
};

class FakeClipboard : public ClipboardWriting {
public:
    void setText(const QString& value) override { text = value; }
    QString text;
};

class FakeInstallation : public InstallationDescribing {
public:
    std::optional<QString> helperExecutablePath() const override { return helper; }
    QString expectedHelperPath() const override { return expected; }
    std::optional<QString> shortVersion() const override { return version; }
    std::optional<QString> buildVersion() const override { return build; }

    std::optional<QString> helper = QStringLiteral("/opt/vantrel/libexec/vantrel/vantrel-tracker");
    QString expected = QStringLiteral("/opt/vantrel/libexec/vantrel/vantrel-tracker");
    std::optional<QString> version;
    std::optional<QString> build;
};

class FakeHost : public HostNaming {
public:
    std::optional<QString> localizedName() const override { return name; }
    QString hostName() const override { return host; }
    std::optional<QString> name = QStringLiteral("Anna’s Laptop");
    QString host = QStringLiteral("anna-laptop");
};

// All fakes, wired into one AppState.
struct AppHarness {
    std::unique_ptr<AppState> make(bool startAutomatically = false);

    QString home = QStringLiteral("/home/tester");
    InMemoryCredentialStore credentials;
    FakeSecretServiceAwaiter secretService;
    FakeSupervisor supervisor;
    FakeLoginItemManager loginItems;
    FakeMigration migration;
    FakeDeviceAuthorizer authorizer;
    FakeTodaySummaryPoller poller;
    FakeSleeper sleeper;
    FakeSleeper taskSleeper;
    FakeDefaults defaults;
    FakeConfigFile configFile;
    FakeWorkspace workspace;
    FakeApplication application;
    FakeClipboard clipboard;
    FakeInstallation installation;
    FakeHost host;
    QDateTime now = QDateTime(QDate(2026, 5, 1), QTime(10, 0), Qt::UTC);
};

// A status report with every required field, for tests that need "some" report.
TrackerStatus sampleTrackerStatus();
