// The Settings window's one "Save Changes" action.
#include "app/AppState.h"
#include "app/AppStateError.h"
#include "system/CredentialStoring.h"
#include "system/DefaultsStoring.h"
#include "system/TrackerConfigWriting.h"
#include "tracker/TrackerSupervising.h"

#include <QPointer>

QCoro::Task<void> AppState::saveSettings(QString serverURL, QString apiKey, bool launchAtLogin) {
    // The store answers later; the object may be gone by then.
    const QPointer<AppState> self(this);
    const QString normalized = normalizedServerURL(serverURL);

    const QString replacementKey = apiKey.trimmed();
    if (!replacementKey.isEmpty()) {
        cancelDeviceAuthorization();
        co_await m_c.credentialStore->saveAPIKey(replacementKey, CancellationToken());
        if (!self) {
            co_return;
        }
        const std::optional<QString> stored =
            co_await m_c.credentialStore->loadAPIKey(CancellationToken());
        if (!self) {
            co_return;
        }
        if (!stored || *stored != replacementKey) {
            throw AppStateError(AppStateError::Code::credentialVerificationFailed);
        }
    }

    // The helper reads its API URL from the configuration file, so the file is written before
    // the helper is restarted below.
    setServerURL(normalized);
    m_c.defaults->setString(QStringLiteral("serverURL"), normalized);
    // Only the user's save may replace preferences that could not be read; once it has, the
    // notice about them is out of date.
    const std::optional<QString> unreadablePreferences = m_c.defaults->readProblem();
    m_c.defaults->commit();
    if (unreadablePreferences && m_presentedError == unreadablePreferences) {
        setPresentedError(std::nullopt);
    }
    m_c.configFile->setValue(normalized, QStringLiteral("api_url"));

    const bool found = (co_await m_c.credentialStore->loadAPIKey(CancellationToken())).has_value();
    if (!self) {
        co_return;
    }
    setHasCredential(found);
    const std::optional<QString> key =
        co_await m_c.credentialStore->loadAPIKey(CancellationToken());
    if (!self) {
        co_return;
    }
    if (key) {
        startTracker(*key);
    } else {
        m_c.supervisor->stop(true);
    }

    applyLaunchAtLogin(launchAtLogin);
}
