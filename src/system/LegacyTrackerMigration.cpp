#include "system/LegacyTrackerMigration.h"

#include "core/CancellationError.h"
#include "core/PlatformError.h"
#include "core/SleepScheduling.h"
#include "system/CredentialStoring.h"
#include "system/LegacyTrackerMigrationError.h"
#include "system/SystemCommandRunning.h"
#include "system/TrackerConfigFile.h"

#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace {

const QStringList& legacyServiceLabels() {
    static const QStringList labels{QStringLiteral("com.vantrel.tracker"),
                                    QStringLiteral("com.vantrel.quillon-tracker")};
    return labels;
}

constexpr double statusCheckInterval = 0.1;

} // namespace

LegacyTrackerMigration::LegacyTrackerMigration(TrackerRuntimePaths paths,
                                               CredentialStoring& credentialStore,
                                               SystemCommandRunning& commandRunner,
                                               SleepScheduling& sleeper, QString launchctlURL,
                                               quint32 userID, int maximumStatusChecks)
    : m_paths(std::move(paths))
    , m_credentialStore(&credentialStore)
    , m_commandRunner(&commandRunner)
    , m_sleeper(&sleeper)
    , m_launchctlURL(std::move(launchctlURL))
    , m_userID(userID)
    , m_maximumStatusChecks(std::max(0, maximumStatusChecks)) {}

QString LegacyTrackerMigration::serviceTarget(const QString& label) const {
    return QStringLiteral("gui/") + QString::number(m_userID) + QLatin1Char('/') + label;
}

QCoro::Task<bool> LegacyTrackerMigration::isStillLoaded(QString target) {
    const QStringList arguments{QStringLiteral("print"), target};
    const SystemCommandResult printed = co_await m_commandRunner->run(m_launchctlURL, arguments);
    co_return printed.exitStatus == 0;
}

QCoro::Task<LegacyMigrationResult> LegacyTrackerMigration::migrateIfNeeded() {
    // The owner may go away while a status check sleeps.
    const QPointer<LegacyTrackerMigration> self(this);
    LegacyMigrationResult result;

    TrackerConfigFile config(m_paths.configURL());
    const std::optional<QString> key = config.readAPIKey();
    if (key && !key->isEmpty()) {
        co_await m_credentialStore->saveAPIKey(*key, CancellationToken());
        if (!self) {
            throw CancellationError();
        }
        // Only a key that reads back exactly as the file had it may leave the file; otherwise the
        // old service keeps the only working copy.
        const std::optional<QString> stored =
            co_await m_credentialStore->loadAPIKey(CancellationToken());
        if (!self) {
            throw CancellationError();
        }
        if (stored != key) {
            throw LegacyTrackerMigrationError::credentialVerificationFailed();
        }
        config.setValue(QString(), QStringLiteral("api_key"));
        result.importedCredential = true;
    }

    for (const QString& label : legacyServiceLabels()) {
        const QString target = serviceTarget(label);
        // Booting out a service that is not loaded fails; that is the usual case, and only a
        // command that cannot start at all matters here.
        const QStringList bootout{QStringLiteral("bootout"), target};
        co_await m_commandRunner->run(m_launchctlURL, bootout);
        if (!self) {
            throw CancellationError();
        }
        bool stopped = false;
        for (int check = 0; check < m_maximumStatusChecks && !stopped; ++check) {
            const bool loaded = co_await isStillLoaded(target);
            if (!self) {
                throw CancellationError();
            }
            if (!loaded) {
                stopped = true;
                break;
            }
            co_await m_sleeper->sleep(statusCheckInterval, CancellationToken());
            if (!self) {
                throw CancellationError();
            }
        }
        if (!stopped) {
            throw LegacyTrackerMigrationError::serviceStillRunning(label);
        }
    }

    for (const QString& path : m_paths.legacyServicePlistURLs()) {
        if (!QFileInfo::exists(path)) {
            continue;
        }
        if (::unlink(QFile::encodeName(path).constData()) != 0) {
            throw PlatformError::fromErrno(QStringLiteral("Could not delete ") + path, errno);
        }
        ++result.stoppedServiceCount;
    }
    co_return result;
}
