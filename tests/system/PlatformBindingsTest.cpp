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
            EXPECT_EQ(SystemTestFiles::permissions(path), folders.contains(path) ? 0700u : 0600u)
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
    EXPECT_EQ(SystemTestFiles::permissions(home.filePath("elsewhere")), 0644u);
    ::umask(previous);
}

// What may sit where the preferences file belongs: a file the store reads; one it cannot read,
// which it leaves alone until the user saves and then keeps beside the new one; or a place it
// cannot write to at all, which only the save reports.
struct PreferencesRow {
    const char* name;
    std::function<void(const QString& path)> setup;
    bool readable;
    std::optional<QString> storedURL = {};
    // Where the save keeps what could not be read, beside the file.
    QString aside = QSettingsDefaultsStore::unreadableSuffix();
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
    const QString path = dir.filePath("Vantrel/Vantrel.conf");
    row.setup(path);
    const QByteArray original = describe(path);

    // (Opening only tightens modes.)
    QSettingsDefaultsStore defaults(path);
    const QByteArray before = SystemTestFiles::snapshot(dir.path());
    EXPECT_EQ(defaults.readProblem().has_value(), !row.readable);
    EXPECT_EQ(defaults.string("serverURL"), row.storedURL) << "nothing half read";

    // What start-up writes by itself: it reads back, and an unreadable file stays as it is.
    defaults.setString("serverURL", "https://new.example");
    defaults.setBoolean("launchAtLogin", false);
    EXPECT_EQ(defaults.string("serverURL"), "https://new.example");
    if (!row.readable) {
        EXPECT_EQ(SystemTestFiles::snapshot(dir.path()), before);
    } else if (!row.saveFails) {
        EXPECT_EQ(QSettingsDefaultsStore(path).string("serverURL"), "https://new.example");
        // What the file already holds is not written again (each write is a new file).
        const auto unchanged = SystemTestFiles::identity(path);
        defaults.setString("serverURL", "https://new.example");
        defaults.setBoolean("launchAtLogin", false);
        EXPECT_EQ(SystemTestFiles::identity(path), unchanged);
        defaults.setBoolean("launchAtLogin", true);
        EXPECT_TRUE(QSettingsDefaultsStore(path).boolean("launchAtLogin"));
        defaults.setBoolean("launchAtLogin", false);
    }

    // The user's save.
    if (row.saveFails) {
        EXPECT_THROW(defaults.commit(), VantrelError);
        EXPECT_EQ(SystemTestFiles::snapshot(dir.path()), before);
        return;
    }
    defaults.commit();
    EXPECT_EQ(defaults.readProblem(), std::nullopt);
    const QSettingsDefaultsStore reread(path);
    EXPECT_EQ(reread.readProblem(), std::nullopt);
    EXPECT_EQ(reread.string("serverURL"), "https://new.example");
    if (!row.readable) {
        EXPECT_EQ(describe(path + row.aside), original);
    }
}

const auto writes = [](const QByteArray& contents) {
    return [contents](const QString& path) { SystemTestFiles::write(path, contents); };
};

INSTANTIATE_TEST_SUITE_P(
    Rows, PreferencesOnDisk,
    testing::Values(
        PreferencesRow{"Absent", [](const QString&) {}, true},
        PreferencesRow{"Written", writes("[General]\nserverURL=https://old.example\n"), true,
                       "https://old.example"},
        PreferencesRow{"NotINI", writes("}{ not ini at all\nfoo"), false},
        PreferencesRow{"Folder", [](const QString& path) { writes("kept")(path + "/keep.txt"); },
                       false},
        PreferencesRow{"EarlierUnreadableKept",
                       [](const QString& path) {
                           writes("older")(path + QSettingsDefaultsStore::unreadableSuffix());
                           writes("[General]\nserverURL=https://old.example\nx=\xc3\x28\n")(path);
                       },
                       false,
                       {},
                       QSettingsDefaultsStore::unreadableSuffix() + "-2"},
        PreferencesRow{
            "FileInPlaceOfItsFolder",
            [](const QString& path) { writes("not a folder")(QFileInfo(path).absolutePath()); },
            true,
            {},
            {},
            true}),
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
