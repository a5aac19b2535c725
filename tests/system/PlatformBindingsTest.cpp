#include "SystemTestFiles.h"
#include "core/VantrelError.h"
#include "support/TableRows.h"
#include "system/BoundedFileReader.h"
#include "system/HostnamedHostNamer.h"
#include "system/InstallLayout.h"
#include "system/OwnerOnlyAccess.h"
#include "system/QSettingsDefaultsStore.h"
#include "system/TrackerConfigFile.h"
#include "tracker/TrackerRuntimePaths.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using ::PrintTo;

const QString conf = "Vantrel/Vantrel.conf";

void writeFile(const QString& path, const QByteArray& contents, QFile::Permissions permissions) {
    SystemTestFiles::write(path, contents);
    QFile::setPermissions(path, permissions);
}

// Our folders 0700 and files 0600 whatever the umask (none at all here); looser modes found at
// start are tightened, but never through a link.
TEST(PrivateFiles, AreOwnerOnlyWhateverTheUmask) {
    QTemporaryDir home;
    const TrackerRuntimePaths paths(home.path());
    const QString preferences = home.filePath("config/Vantrel/Vantrel.conf");
    const QStringList folders{paths.dataDirectoryURL(), home.filePath("config/Vantrel")};
    const QStringList files{paths.configURL(), preferences};
    const auto expectPrivate = [&](const char* when) {
        for (const QString& path : folders + files) {
            EXPECT_EQ((SystemTestFiles::status(path).st_mode & 07777),
                      folders.contains(path) ? 0700u : 0600u)
                << when << " " << path.toStdString();
        }
    };
    const mode_t previous = ::umask(0);
    TrackerConfigFile(paths.configURL()).setValue("https://x.test", "api_url");
    QSettingsDefaultsStore(preferences).setString("serverURL", "https://x.test");
    expectPrivate("written");

    for (const QString& path : folders + files) {
        ::chmod(QFile::encodeName(path).constData(), folders.contains(path) ? 0777 : 0666);
    }
    OwnerOnlyAccess::tightenTrackerFiles(paths);
    QSettingsDefaultsStore reopened(preferences);
    expectPrivate("at start");

    // The link is the user's own doing, and what it points at is not ours to change.
    writeFile(home.filePath("elsewhere"), "",
              QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    QFile::remove(paths.configURL());
    QFile::link(home.filePath("elsewhere"), paths.configURL());
    OwnerOnlyAccess::tightenTrackerFiles(paths);
    EXPECT_EQ(SystemTestFiles::status(home.filePath("elsewhere")).st_mode & 07777, 0644u);
    ::umask(previous);
}

// Each write is a new file: what the file already holds is not written again, what differs is.
// Booleans come back from the file as words.
TEST(Preferences, ReadBackAndAreWrittenOnlyWhenTheyChange) {
    QTemporaryDir dir;
    const QString path = dir.filePath(conf);
    QSettingsDefaultsStore defaults(path);
    defaults.setString("serverURL", "https://old.example");
    defaults.setString("serverURL", "https://new.example");
    defaults.setBoolean("launchAtLogin", true);
    const auto written = SystemTestFiles::identity(path);
    defaults.setString("serverURL", "https://new.example");
    defaults.setBoolean("launchAtLogin", true);
    EXPECT_EQ(SystemTestFiles::identity(path), written);
    const QSettingsDefaultsStore reread(path);
    EXPECT_EQ(reread.readProblem(), std::nullopt);
    EXPECT_EQ(reread.string("serverURL"), "https://new.example");
    EXPECT_TRUE(reread.boolean("launchAtLogin"));
}

// What may sit where the preferences file belongs: one the store cannot read, which it leaves
// alone until the user saves and then keeps beside the new one; or a place it cannot write to
// at all, which only the save reports.
struct PreferencesRow {
    const char* name;
    // What is there, by path below the configuration folder.
    QList<std::pair<QString, QByteArray>> files;
    // Where the save keeps what could not be read, beside the file.
    QString aside = ".unreadable";
    bool saveFails = false;
};

// A file's bytes or a folder's listing, to tell that it moved unchanged.
QByteArray describe(const QString& path) {
    return QFileInfo(path).isDir()
               ? "folder: " + QDir(path).entryList(QDir::Files).join(' ').toUtf8()
               : SystemTestFiles::read(path);
}

class PreferencesOnDisk : public testing::TestWithParam<PreferencesRow> {};

TEST_P(PreferencesOnDisk, UsesTheDefaultsAndLosesNothing) {
    const PreferencesRow& row = GetParam();
    QTemporaryDir dir;
    const QString path = dir.filePath(conf);
    for (const auto& [name, contents] : row.files) {
        SystemTestFiles::write(dir.filePath(name), contents);
    }
    const QByteArray original = describe(path);

    // (Opening only tightens modes.)
    QSettingsDefaultsStore defaults(path);
    const QByteArray before = SystemTestFiles::snapshot(dir.path());
    EXPECT_EQ(defaults.readProblem().has_value(), !row.saveFails);
    EXPECT_EQ(defaults.string("serverURL"), std::nullopt) << "nothing half read";
    // What start-up writes by itself reads back, and nothing on disk changes.
    defaults.setString("serverURL", "https://new.example");
    EXPECT_EQ(defaults.string("serverURL"), "https://new.example");
    EXPECT_EQ(SystemTestFiles::snapshot(dir.path()), before);

    // The user's save.
    if (row.saveFails) {
        EXPECT_THROW(defaults.commit(), VantrelError);
        EXPECT_EQ(SystemTestFiles::snapshot(dir.path()), before);
        return;
    }
    defaults.commit();
    EXPECT_EQ(defaults.readProblem(), std::nullopt);
    EXPECT_EQ(QSettingsDefaultsStore(path).string("serverURL"), "https://new.example");
    EXPECT_EQ(describe(path + row.aside), original);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PreferencesOnDisk,
    testing::Values(
        PreferencesRow{"NotINI", {{conf, "}{ not ini at all\nfoo"}}},
        PreferencesRow{"Folder", {{conf + "/keep.txt", "kept"}}},
        PreferencesRow{"EarlierUnreadableKept",
                       {{conf + ".unreadable", "older"},
                        {conf, "[General]\nserverURL=https://old.example\nx=\xc3\x28\n"}},
                       ".unreadable-2"},
        PreferencesRow{"FileInPlaceOfItsFolder", {{"Vantrel", "not a folder"}}, "", true}),
    rowName);

TEST(InstallLayout, FindsAnExecutableHelperInLibexecWhenInstalledAndElseBesideTheApplication) {
    QTemporaryDir prefix;
    const QString helper = prefix.filePath("libexec/vantrel/vantrel-tracker");
    ASSERT_TRUE(QDir().mkpath(prefix.filePath("libexec/vantrel")));
    const InstallLayout installed(prefix.filePath("bin"));
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
}

} // namespace
