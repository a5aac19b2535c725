#pragma once

#include "tracker/TrackerRuntimePaths.h"

#include <QDateTime>

#include <functional>

class ApplicationControlling;
class ClipboardWriting;
class CredentialStoring;
class DefaultsStoring;
class DeviceAuthorizing;
class HostNaming;
class InstallationDescribing;
class LegacyTrackerMigrating;
class LoginItemManaging;
class SecretServiceAwaiting;
class SleepScheduling;
class TodaySummaryPolling;
class TrackerConfigWriting;
class TrackerSupervising;
class WorkspaceOpening;

// Everything AppState works with, seen only through interfaces. The composition root owns the
// objects and keeps them alive longer than the AppState and any task it starts.
struct AppStateCollaborators {
    TrackerRuntimePaths paths;
    CredentialStoring* credentialStore = nullptr;
    // Start-up waits on it before the credential store is first read.
    SecretServiceAwaiting* secretService = nullptr;
    TrackerSupervising* supervisor = nullptr;
    LoginItemManaging* loginItemManager = nullptr;
    LegacyTrackerMigrating* migration = nullptr;
    DeviceAuthorizing* deviceAuthorizer = nullptr;
    TodaySummaryPolling* todaySummaryPoller = nullptr;
    // Shared by the poller and the migration; held here so that one sleeper serves them both.
    SleepScheduling* sleeper = nullptr;
    DefaultsStoring* defaults = nullptr;
    // The tracker configuration file at paths.configURL().
    TrackerConfigWriting* configFile = nullptr;
    WorkspaceOpening* workspace = nullptr;
    ApplicationControlling* application = nullptr;
    ClipboardWriting* clipboard = nullptr;
    InstallationDescribing* installation = nullptr;
    HostNaming* host = nullptr;
    // The task's own sleep and the wall clock of the browser sign-in's polling loop.
    SleepScheduling* taskSleeper = nullptr;
    std::function<QDateTime()> now = [] { return QDateTime::currentDateTimeUtc(); };
};
