#include "system/Login1SessionResumeWatcher.h"

Login1SessionResumeWatcher::Login1SessionResumeWatcher(QDBusConnection bus, QObject* parent)
    : SessionResumeWatching(parent) {
    // Matched on the well-known name, so only logind's own signal counts, not anyone's look-alike.
    bus.connect(QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"),
                this, SLOT(onPrepareForSleep(bool)));
}

void Login1SessionResumeWatcher::onPrepareForSleep(bool sleeping) {
    if (!sleeping) {
        Q_EMIT resumed();
    }
}
