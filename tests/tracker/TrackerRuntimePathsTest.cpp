#include "tracker/TrackerRuntimePaths.h"

#include <gtest/gtest.h>

namespace {

TEST(TrackerRuntimePaths, DerivesEveryLocationFromTheHomeDirectoryWithOrWithoutASlash) {
    for (const char* home : {"/Users/a", "/Users/a/"}) {
        const TrackerRuntimePaths paths{QString::fromLatin1(home)};
        EXPECT_EQ(paths.configURL(), "/Users/a/.vantrel/config.toml");
        EXPECT_EQ(paths.stdoutLogURL(), "/Users/a/.vantrel/tracker/stdout.log");
        EXPECT_EQ(paths.stderrLogURL(), "/Users/a/.vantrel/tracker/stderr.log");
        EXPECT_EQ(paths.legacyServicePlistURLs(),
                  QStringList({"/Users/a/Library/LaunchAgents/com.vantrel.tracker.plist",
                               "/Users/a/Library/LaunchAgents/com.vantrel.quillon-tracker.plist"}));
    }
    EXPECT_EQ(TrackerRuntimePaths("/").configURL(), "/.vantrel/config.toml");
}

} // namespace
