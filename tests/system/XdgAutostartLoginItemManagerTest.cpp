#include "system/XdgAutostartLoginItemManager.h"

#include "SystemTestFiles.h"
#include "support/TableRows.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace SystemTestFiles;

namespace {

const QString application = "/opt/vantrel/bin/vantrel";

class AutostartTest : public testing::Test {
public:
    QString configHome() const { return m_root.filePath("config"); }
    QString entry() const { return configHome() + "/autostart/vantrel.desktop"; }
    XdgAutostartLoginItemManager manager(const QString& executable = application) const {
        return XdgAutostartLoginItemManager(configHome(), executable);
    }

    QTemporaryDir m_root;
};

// The desktop must accept the file whatever characters the install path holds. Each path is a
// move the entry follows; enabling again with the same path leaves the file alone.
TEST_F(AutostartTest, EntryPassesDesktopFileValidateStartsThePathAndGoesWhenDisabled) {
    for (const QString path : {"/home/anna/My Apps (beta)/$dir/`x`/\"q\"/back\\slash/100%/vantrel",
                               "/home/anna/Programme/Zürich ☂/vantrel"}) {
        manager(path).setEnabled(true);
        // What the desktop's validator says of the entry (nothing), then the program GLib would
        // start at login, read as it reads the entry.
        QProcess process;
        process.start("/usr/bin/python3",
                      {"-c",
                       "import subprocess, sys\nfrom gi.repository import GLib\n"
                       "subprocess.run(['desktop-file-validate', sys.argv[1]], check=True)\n"
                       "entry = GLib.KeyFile()\n"
                       "entry.load_from_file(sys.argv[1], GLib.KeyFileFlags.NONE)\n"
                       "line = entry.get_string('Desktop Entry', 'Exec').replace('%%', '%')\n"
                       "sys.stdout.buffer.write(GLib.shell_parse_argv(line)[1][0].encode())",
                       entry()});
        ASSERT_TRUE(process.waitForFinished(30000));
        EXPECT_EQ(QString::fromUtf8(process.readAllStandardOutput()), path)
            << process.readAllStandardError().toStdString() << read(entry()).toStdString();
        const auto before = identity(entry());
        manager(path).setEnabled(true);
        EXPECT_EQ(identity(entry()), before);
    }
    manager().setEnabled(false);
    EXPECT_FALSE(QFile::exists(entry()));
    EXPECT_NO_THROW(manager().setEnabled(false));
}

// A file at the entry's path that is not our live entry: enabling replaces it with ours, and
// disabling leaves it, since the user or another program put it there.
struct ExistingEntryRow {
    const char* name;
    QByteArray contents;
};

class AutostartExistingEntry : public AutostartTest,
                               public testing::WithParamInterface<ExistingEntryRow> {};

TEST_P(AutostartExistingEntry, EnablingRewritesItAndDisablingKeepsIt) {
    const QByteArray contents =
        QByteArray(GetParam().contents).replace("<ours>", manager().entryContents());
    write(entry(), contents);
    manager().setEnabled(true);
    EXPECT_EQ(read(entry()), manager().entryContents());

    write(entry(), contents);
    manager().setEnabled(false);
    EXPECT_EQ(read(entry()), contents);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, AutostartExistingEntry,
    testing::Values(ExistingEntryRow{"OursHiddenByTheUser", "<ours>Hidden=true\n"},
                    ExistingEntryRow{"OursSwitchedOffInGnome",
                                     "[Desktop Entry]\nName=V\nX-GNOME-Autostart-enabled=false\n"
                                     "X-Vantrel-LoginItem=true\n"},
                    ExistingEntryRow{"SomebodyElsesEntry",
                                     "[Desktop Entry]\nType=Application\nName=V\n"
                                     "Exec=\"/opt/vantrel/bin/vantrel\"\n"}),
    rowName);

// Something in the way of the entry. Either request fails with the platform's words for it, and
// a failed one leaves everything as it was: a registered entry stays registered.
struct BlockedRow {
    const char* name;
    std::function<void(AutostartTest&)> setup;
    // Substrings of each request's error; empty for success.
    QString enableError;
    QString disableError;
    bool needsNonRoot = false; // root ignores mode bits
};

class AutostartBlocked : public AutostartTest, public testing::WithParamInterface<BlockedRow> {};

TEST_P(AutostartBlocked, FailsClearlyAndLosesNothing) {
    const BlockedRow& row = GetParam();
    if (row.needsNonRoot && ::geteuid() == 0) {
        GTEST_SKIP() << "root writes into read-only folders";
    }
    row.setup(*this);
    for (const bool enabled : {true, false}) {
        const QByteArray before = snapshot(m_root.path());
        const QString error = errorText([&] { manager().setEnabled(enabled); });
        const QString& expected = enabled ? row.enableError : row.disableError;
        EXPECT_TRUE(matches(error, expected)) << enabled << " " << error.toStdString();
        if (!error.isEmpty()) {
            EXPECT_EQ(snapshot(m_root.path()), before) << enabled;
        }
    }
    QFile::setPermissions(configHome() + "/autostart",
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, AutostartBlocked,
    testing::Values(BlockedRow{"FileInPlaceOfTheFolder",
                               [](AutostartTest& fixture) {
                                   write(fixture.configHome() + "/autostart", "not a folder");
                               },
                               "/autostart: Not a directory", ""},
                    BlockedRow{
                        "ReadOnlyFolder",
                        [](AutostartTest& fixture) {
                            fixture.manager().setEnabled(true);
                            QFile::setPermissions(fixture.configHome() + "/autostart",
                                                  QFile::ReadOwner | QFile::ExeOwner);
                        },
                        // Enabling finds the entry already there; removing it needs the folder.
                        "", "Could not remove", true}),
    rowName);

} // namespace
