// The Settings window's one "Save Changes" action.
#include "app/AppState.h"
#include "app/AppStateError.h"
#include "system/CredentialStoring.h"
#include "system/DefaultsStoring.h"
#include "system/TrackerConfigWriting.h"
#include "tracker/TrackerSupervising.h"

void AppState::saveSettings(const QString& serverURL, const QString& apiKey, bool launchAtLogin) {
    const QString normalized = normalizedServerURL(serverURL);

    const QString replacementKey = apiKey.trimmed();
    if (!replacementKey.isEmpty()) {
        cancelDeviceAuthorization();
        m_c.credentialStore->saveAPIKey(replacementKey);
        const std::optional<QString> stored = m_c.credentialStore->loadAPIKey();
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

    setHasCredential(m_c.credentialStore->loadAPIKey().has_value());
    if (const std::optional<QString> key = m_c.credentialStore->loadAPIKey()) {
        startTracker(*key);
    } else {
        m_c.supervisor->stop(true);
    }

    applyLaunchAtLogin(launchAtLogin);
}
