#pragma once

#include "core/LaunchConfiguration.h"
#include "tracker/TrackerStatus.h"

#include <QCoroTask>
#include <QObject>

#include <optional>

// Keeps one tracker helper alive and publishes what the views show about it. Lives on the GUI
// thread; every property change is signalled there.
class TrackerSupervising : public QObject {
    Q_OBJECT
    Q_PROPERTY(
        std::optional<TrackerStatus> trackerStatus READ trackerStatus NOTIFY trackerStatusChanged)
    Q_PROPERTY(bool helperRunning READ helperRunning NOTIFY helperRunningChanged)
    Q_PROPERTY(bool crashLocked READ crashLocked NOTIFY crashLockedChanged)
    Q_PROPERTY(std::optional<QString> lastError READ lastError NOTIFY lastErrorChanged)

public:
    using QObject::QObject;

    virtual std::optional<TrackerStatus> trackerStatus() const = 0;
    virtual bool helperRunning() const = 0;
    virtual bool crashLocked() const = 0;
    virtual std::optional<QString> lastError() const = 0;
    virtual std::optional<LaunchConfiguration> launchConfiguration() const = 0;

    // Supervise a helper with this configuration, replacing whatever ran before.
    virtual void start(const LaunchConfiguration& configuration) = 0;
    // Stop the helper and all supervision; `clearConfiguration` forgets the configuration.
    virtual void stop(bool clearConfiguration) = 0;
    // Read the status report now for the current configuration. The returned task completes once
    // the published properties reflect the result; a caller that does not need to wait drops it.
    virtual QCoro::Task<void> refreshStatus() = 0;
    // The same for an explicitly given helper and configuration file, supervised or not.
    virtual QCoro::Task<void> refreshStatus(QString executableURL, QString configURL) = 0;

Q_SIGNALS:
    void trackerStatusChanged();
    void helperRunningChanged();
    void crashLockedChanged();
    void lastErrorChanged();
};
