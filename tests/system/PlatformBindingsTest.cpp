#include "system/HostnamedHostNamer.h"
#include "system/InstallLayout.h"
#include "system/QSettingsDefaultsStore.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

void writeFile(const QString& path, const QByteArray& contents, QFile::Permissions permissions) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(contents);
    file.setPermissions(permissions);
}

TEST(QSettingsDefaultsStore, KeepsStringsAndBooleansAcrossInstances) {
    QTemporaryDir dir;
    {
        QSettingsDefaultsStore defaults(dir.filePath("Vantrel.conf"));
        EXPECT_EQ(defaults.string("serverURL"), std::nullopt);
        defaults.setString("serverURL", "https://self.example/api/vantrel/v1");
        defaults.setBoolean("launchAtLogin", false);
        defaults.setBoolean("launchAtLoginInitialized", true);
    }
    QSettingsDefaultsStore reread(dir.filePath("Vantrel.conf"));
    EXPECT_EQ(reread.string("serverURL"), "https://self.example/api/vantrel/v1");
    EXPECT_FALSE(reread.boolean("launchAtLogin"));
    EXPECT_TRUE(reread.boolean("launchAtLoginInitialized"));
}

TEST(QSettingsDefaultsStore, ReadsThePreferencesFileWhereTheDocumentationPutsIt) {
    // The store the application uses, not one given a file name: only the configuration home is
    // redirected, so a developer's own preferences are never touched.
    QTemporaryDir configHome;
    qputenv("XDG_CONFIG_HOME", configHome.path().toUtf8());
    writeFile(configHome.filePath("Vantrel/Vantrel.conf"),
              "[General]\nserverURL=https://self.example/api/vantrel/v1\n",
              QFile::ReadOwner | QFile::WriteOwner);
    QSettingsDefaultsStore defaults;
    EXPECT_EQ(defaults.string("serverURL"), "https://self.example/api/vantrel/v1");
    defaults.setBoolean("launchAtLogin", false);
    EXPECT_EQ(QDir(configHome.filePath("Vantrel")).entryList(QDir::Files),
              QStringList{"Vantrel.conf"});
}

TEST(QSettingsDefaultsStore, LeavesAFileItCannotParseAsItIs) {
    QTemporaryDir dir;
    const QByteArray broken = "[General\nserverURL=\"https://unterminated\n\xff\xfe";
    writeFile(dir.filePath("Vantrel.conf"), broken, QFile::ReadOwner | QFile::WriteOwner);
    QSettingsDefaultsStore(dir.filePath("Vantrel.conf")).setBoolean("launchAtLogin", true);
    QFile reread(dir.filePath("Vantrel.conf"));
    ASSERT_TRUE(reread.open(QIODevice::ReadOnly));
    EXPECT_EQ(reread.readAll(), broken);
}

TEST(InstallLayout, FindsAnExecutableHelperInLibexecWhenInstalledAndElseBesideTheApplication) {
    QTemporaryDir prefix;
    const QString helper = prefix.filePath("libexec/vantrel/vantrel-tracker");
    ASSERT_TRUE(QDir().mkpath(prefix.filePath("libexec/vantrel")));
    const InstallLayout installed(prefix.filePath("bin"));
    EXPECT_EQ(installed.expectedHelperPath(), helper);
    EXPECT_EQ(installed.helperExecutablePath(), std::nullopt);
    writeFile(helper, "#!/bin/sh\n", QFile::ReadOwner);
    EXPECT_EQ(installed.helperExecutablePath(), std::nullopt) << "present but not executable";
    QFile(helper).setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    EXPECT_EQ(installed.helperExecutablePath(), helper);

    QTemporaryDir build;
    writeFile(build.filePath("bin/vantrel-tracker"), "#!/bin/sh\n",
              QFile::ReadOwner | QFile::ExeOwner);
    EXPECT_EQ(InstallLayout(build.filePath("bin")).helperExecutablePath(),
              build.filePath("bin/vantrel-tracker"));
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
