#include "PanelTestSupport.h"

#include "core/PlatformError.h"

#include <QAbstractButton>
#include <QLabel>
#include <QMultiMap>

#include <gtest/gtest.h>

QStringList drawnTexts(const QWidget& root) {
    QMultiMap<std::pair<int, int>, QString> found; // by top, then left
    for (const QWidget* widget : root.findChildren<QWidget*>()) {
        const auto* label = qobject_cast<const QLabel*>(widget);
        const auto* button = qobject_cast<const QAbstractButton*>(widget);
        const QString text = label ? label->text() : button ? button->text() : QString();
        if (!text.isEmpty() && widget->isVisibleTo(&root)) {
            const QRect rect(widget->mapTo(&root, QPoint(0, 0)), widget->size());
            EXPECT_TRUE(!rect.isEmpty() && root.rect().contains(rect)) << text.toStdString();
            found.insert({rect.top(), rect.left()}, widget->isEnabled() ? text : "[" + text + "]");
        }
    }
    return found.values();
}

QStringList menuTexts(const QMenu& menu) {
    QStringList texts;
    for (const QAction* action : menu.actions()) {
        texts.append(action->isSeparator() ? QString("-")
                     : action->isEnabled() ? action->text()
                                           : "[" + action->text() + "]");
    }
    return texts;
}

PanelFixture::PanelFixture() {
    harness.now = now;
    harness.supervisor.statusOnRefresh = sampleTrackerStatus();
    state = harness.make(false);
    presenter = std::make_unique<MenuBarPresenter>(
        *state, harness.supervisor, [this] { return now; }, ticker(),
        [this](const QString& identifier) { openedWindows.append(identifier); });
    presenter->setLocale(QLocale(QLocale::English, QLocale::UnitedStates), QTimeZone::utc());
}

std::function<std::unique_ptr<Ticking>()> PanelFixture::ticker() {
    return [this] {
        auto made = std::make_unique<FakeTicker>();
        tickers.append(made.get());
        return made;
    };
}

PanelFixture::~PanelFixture() {
    presenter.reset();
    state.reset(); // ends an unfinished sign-in while the fakes it waits on still exist
    AsyncTest::spin(std::chrono::milliseconds(20));
}

void PanelFixture::signIn(const QString& key) {
    harness.credentials.stored = key;
    AsyncTest::run(state->start());
}

void PanelFixture::reportStatus(const std::function<void(TrackerStatus&)>& edit) {
    TrackerStatus status = sampleTrackerStatus();
    edit(status);
    harness.supervisor.setTrackerStatus(status);
}

void PanelFixture::beginSignInWithCode(qint64 expiresInSeconds) {
    DeviceAuthorizationSession session;
    session.userCode = QStringLiteral("WDJB-MJHT");
    session.verificationURLComplete = QUrl(QStringLiteral("https://vantrel.app/device?code=WDJB"));
    session.expiresAt = now.addSecs(expiresInSeconds);
    session.interval = 5;
    harness.authorizer.startOutcomes.push_back(session);
    // Polling waits on a held sleep, so the code stays up.
    harness.taskSleeper.hold = true;
    state->beginDeviceAuthorization();
    AsyncTest::waitUntil([this] { return harness.taskSleeper.pendingCount() == 1; });
}

void PanelFixture::failSignIn(const QString& message) {
    harness.authorizer.startOutcomes.push_back(std::make_exception_ptr(PlatformError(message)));
    state->beginDeviceAuthorization();
    AsyncTest::waitUntil([this] { return state->presentedError().has_value(); });
}
