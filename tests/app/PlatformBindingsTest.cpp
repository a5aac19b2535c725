#include "app/HostnamedHostNamer.h"
#include "app/InstallLayout.h"
#include "app/QSettingsDefaultsStore.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

void writeFile(const QString& path, const QByteArray& contents, bool executable) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(contents);
    file.close();
    if (executable) {
        file.setPermissions(file.permissions() | QFile::ExeOwner);
    }
}

TEST(QSettingsDefaultsStore, KeepsStringsAndBooleansAcrossInstances) {
    QTemporaryDir dir;
    const QString file = dir.filePath("Vantrel.conf");
    {
        QSettingsDefaultsStore defaults(file);
        EXPECT_EQ(defaults.string("serverURL"), std::nullopt);
        EXPECT_FALSE(defaults.boolean("launchAtLogin"));
        defaults.setString("serverURL", "https://self.example/api/vantrel/v1");
        defaults.setBoolean("launchAtLogin", false);
        defaults.setBoolean("launchAtLoginInitialized", true);
    }
    QSettingsDefaultsStore reread(file);
    EXPECT_EQ(reread.string("serverURL"), "https://self.example/api/vantrel/v1");
    EXPECT_FALSE(reread.boolean("launchAtLogin"));
    EXPECT_TRUE(reread.boolean("launchAtLoginInitialized"));
}

TEST(QSettingsDefaultsStore, LeavesAFileItCannotParseAsItIs) {
    QTemporaryDir dir;
    const QString file = dir.filePath("Vantrel.conf");
    const QByteArray broken = "[General\nserverURL=\"https://unterminated\n\xff\xfe";
    writeFile(file, broken, false);
    QSettingsDefaultsStore defaults(file);
    defaults.setBoolean("launchAtLogin", true);
    QFile reread(file);
    ASSERT_TRUE(reread.open(QIODevice::ReadOnly));
    EXPECT_EQ(reread.readAll(), broken);
}

TEST(InstallLayout, FindsTheHelperInLibexecForAnInstalledApplication) {
    QTemporaryDir prefix;
    const QString helper = prefix.filePath("libexec/vantrel/vantrel-tracker");
    ASSERT_TRUE(QDir().mkpath(prefix.filePath("libexec/vantrel")));
    ASSERT_TRUE(QDir().mkpath(prefix.filePath("bin")));
    const InstallLayout layout(prefix.filePath("bin"));
    EXPECT_EQ(layout.expectedHelperPath(), helper);
    EXPECT_EQ(layout.helperExecutablePath(), std::nullopt);

    writeFile(helper, "#!/bin/sh\n", false);
    EXPECT_EQ(layout.helperExecutablePath(), std::nullopt) << "present but not executable";

    QFile(helper).setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    EXPECT_EQ(layout.helperExecutablePath(), helper);
}

TEST(InstallLayout, FindsTheHelperBesideTheApplicationInABuildTree) {
    QTemporaryDir build;
    EXPECT_EQ(InstallLayout(build.filePath("bin")).expectedHelperPath(),
              build.filePath("bin/vantrel-tracker"));
    writeFile(build.filePath("bin/vantrel-tracker"), "#!/bin/sh\n", true);
    EXPECT_EQ(InstallLayout(build.filePath("bin")).helperExecutablePath(),
              build.filePath("bin/vantrel-tracker"));
    writeFile(build.filePath("out/vantrel-tracker"), "#!/bin/sh\n", true);
    EXPECT_EQ(InstallLayout(build.filePath("out")).helperExecutablePath(),
              build.filePath("out/vantrel-tracker"));
}

TEST(InstallLayout, ReportsTheBuildsVersion) {
    const InstallLayout layout("/nowhere");
    EXPECT_EQ(layout.shortVersion(), "0.6.1");
}

TEST(HostnamedHostNamer, ReadsThePrettyNameFromMachineInfo) {
    using Namer = HostnamedHostNamer;
    EXPECT_EQ(Namer::prettyNameFromMachineInfo("PRETTY_HOSTNAME=\"Anna's \\\"Laptop\\\"\"\n"),
              "Anna's \"Laptop\"");
    EXPECT_EQ(Namer::prettyNameFromMachineInfo("CHASSIS=laptop\nPRETTY_HOSTNAME=Studio\n"),
              "Studio");
    EXPECT_EQ(Namer::prettyNameFromMachineInfo("PRETTY_HOSTNAME=\"\"\n"), std::nullopt);
    EXPECT_EQ(Namer::prettyNameFromMachineInfo("CHASSIS=laptop\n"), std::nullopt);
    EXPECT_FALSE(HostnamedHostNamer("/nonexistent").hostName().isEmpty());
}

} // namespace
