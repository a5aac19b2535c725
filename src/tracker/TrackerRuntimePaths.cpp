#include "tracker/TrackerRuntimePaths.h"

namespace {

QString appended(const QString& directory, const QString& component) {
    return directory.endsWith(QLatin1Char('/')) ? directory + component
                                                : directory + QLatin1Char('/') + component;
}

} // namespace

TrackerRuntimePaths::TrackerRuntimePaths(QString homeURL)
    : m_homeURL(std::move(homeURL)) {
    // "/home/a" and "/home/a/" name the same directory and must compare equal.
    while (m_homeURL.size() > 1 && m_homeURL.endsWith(QLatin1Char('/'))) {
        m_homeURL.chop(1);
    }
}

QString TrackerRuntimePaths::dataDirectoryURL() const {
    return appended(m_homeURL, QStringLiteral(".vantrel"));
}

QString TrackerRuntimePaths::configURL() const {
    return appended(dataDirectoryURL(), QStringLiteral("config.toml"));
}

QString TrackerRuntimePaths::trackerDirectoryURL() const {
    return appended(dataDirectoryURL(), QStringLiteral("tracker"));
}

QString TrackerRuntimePaths::stdoutLogURL() const {
    return appended(trackerDirectoryURL(), QStringLiteral("stdout.log"));
}

QString TrackerRuntimePaths::stderrLogURL() const {
    return appended(trackerDirectoryURL(), QStringLiteral("stderr.log"));
}

QStringList TrackerRuntimePaths::legacyServicePlistURLs() const {
    const QString agents =
        appended(appended(m_homeURL, QStringLiteral("Library")), QStringLiteral("LaunchAgents"));
    return {appended(agents, QStringLiteral("com.vantrel.tracker.plist")),
            appended(agents, QStringLiteral("com.vantrel.quillon-tracker.plist"))};
}
