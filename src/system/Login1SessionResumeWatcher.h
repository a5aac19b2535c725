#pragma once

#include "system/SessionResumeWatching.h"

#include <QDBusConnection>

// Follows logind's PrepareForSleep on the system bus; its "false" is the wake. Without a system
// bus, or without logind, nothing is ever reported.
class Login1SessionResumeWatcher : public SessionResumeWatching {
    Q_OBJECT
public:
    explicit Login1SessionResumeWatcher(QDBusConnection bus, QObject* parent = nullptr);

private Q_SLOTS:
    void onPrepareForSleep(bool sleeping);
};
