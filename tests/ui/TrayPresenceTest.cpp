#include "ui/TrayPresence.h"

#include "support/TableRows.h"
#include "ui/PanelWindow.h"
#include "ui/TrayHostWatching.h"

#include <gtest/gtest.h>

namespace {

using ::PrintTo;

class FakeTrayHost : public TrayHostWatching {
public:
    bool isAvailable() const override { return available; }
    void set(bool value) {
        available = value;
        Q_EMIT availabilityChanged(value);
    }
    bool available = false;
};

// A session's trays coming and going: "S+" a StatusNotifierWatcher appears, "X-" the XEmbed
// tray goes. `made` lists each icon made, in order; `window` whether the panel ends as a shown
// window.
struct HostRow {
    const char* name;
    bool statusNotifierAtStart;
    const char* steps;
    QString made;
    TrayPresence::Host host;
    bool window;
};

class TrayHosts : public ::testing::TestWithParam<HostRow> {};

TEST_P(TrayHosts, giveAnIconOrTheWindowAndNeverNeither) {
    FakeTrayHost statusNotifier;
    FakeTrayHost xembed;
    statusNotifier.available = GetParam().statusNotifierAtStart;
    PanelWindow panel([] { return new QWidget; });
    QString made;
    TrayPresence presence(statusNotifier, xembed, panel, [&made](TrayPresence::Host host) {
        made += host == TrayPresence::Host::statusNotifier ? "S" : "X";
        return std::make_unique<QObject>();
    });
    for (const QString& step : QString(GetParam().steps).split(' ', Qt::SkipEmptyParts)) {
        (step[0] == 'S' ? statusNotifier : xembed).set(step[1] == '+');
        EXPECT_TRUE(presence.host() != TrayPresence::Host::none || panel.isVisible())
            << "after " << step.toStdString();
    }
    EXPECT_EQ(made, GetParam().made);
    EXPECT_EQ(presence.host(), GetParam().host);
    EXPECT_EQ(panel.isVisible(), GetParam().window);
    EXPECT_EQ(panel.isTrayMode(), GetParam().host != TrayPresence::Host::none);
}

using Host = TrayPresence::Host;

INSTANTIATE_TEST_SUITE_P(Sessions, TrayHosts,
                         ::testing::Values(HostRow{"noTray", false, "", "", Host::none, true},
                                           HostRow{"watcherFirstAndBackAfterARestart", true,
                                                   "S- S+", "SS", Host::statusNotifier, false},
                                           HostRow{"xembedTakesOverFromAGoneWatcher", false,
                                                   "S+ X+ S-", "SX", Host::xembed, false},
                                           HostRow{"watcherPreferredOverXEmbedTillEverythingGoes",
                                                   false, "X+ S+ X- S-", "XS", Host::none, true}),
                         rowName);

} // namespace
