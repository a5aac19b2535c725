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

// What may stand at the entry's place: enabling puts our live entry there instead of anything
// else, and disabling removes only our live entry, since the user or another program put the
// rest there. A request that fails says so in the platform's words and leaves everything as it
// was: a registered entry stays registered.
struct InTheWayRow {
    const char* name;
    // Run by a shell in the test's folder, where $e is the entry, after our live entry was
    // written when `ours` is set.
    bool ours;
    QByteArray setup;
    // Substrings of each request's error; empty for success.
    QString enableError;
    QString disableError;
    bool needsNonRoot = false; // root ignores mode bits
};

class AutostartInTheWay : public AutostartTest, public testing::WithParamInterface<InTheWayRow> {};

TEST_P(AutostartInTheWay, EnablingPutsOursThereAndDisablingTakesOnlyOurs) {
    const InTheWayRow& row = GetParam();
    if (row.needsNonRoot && ::geteuid() == 0) {
        GTEST_SKIP() << "root writes into read-only folders";
    }
    for (const bool enabled : {true, false}) {
        if (row.ours) {
            manager().setEnabled(true);
        }
        ASSERT_EQ(
            QProcess::execute(
                "sh", {"-c", "cd \"$0\" && e=config/autostart/vantrel.desktop && " + row.setup,
                       m_root.path()}),
            0);
        const QByteArray before = snapshot(m_root.path());
        const QString& expected = enabled ? row.enableError : row.disableError;
        EXPECT_TRUE(failsAs([&] { manager().setEnabled(enabled); }, expected)) << enabled;
        if (enabled && expected.isEmpty()) {
            EXPECT_EQ(read(entry()), manager().entryContents());
        } else {
            EXPECT_EQ(snapshot(m_root.path()), before) << enabled;
        }
    }
    QFile::setPermissions(configHome() + "/autostart",
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, AutostartInTheWay,
    testing::Values(
        InTheWayRow{"OursHiddenByTheUser", true, "echo Hidden=true >>$e", "", ""},
        InTheWayRow{"OursSwitchedOffInGnome", true,
                    "sed -i s/X-GNOME-Autostart-enabled=true/X-GNOME-Autostart-enabled=false/ $e",
                    "", ""},
        InTheWayRow{"SomebodyElsesEntry", true, "sed -i /X-Vantrel-LoginItem/d $e", "", ""},
        InTheWayRow{"FileInPlaceOfTheFolder", false, "mkdir -p config && echo >config/autostart",
                    "/autostart: Not a directory", ""},
        // Enabling finds the entry already there; removing it needs the folder.
        InTheWayRow{"ReadOnlyFolder", true, "chmod 500 config/autostart", "", "Could not remove",
                    true}),
    rowName);

} // namespace
