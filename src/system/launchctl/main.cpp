// vantrel-launchctl: the two launchctl commands the legacy tracker migration relies on, answered
// from systemd user units.
//
//   vantrel-launchctl bootout gui/<uid>/<label>
//       Disables and stops the user unit "<label>.service" without waiting for it to exit.
//       Exits with systemctl's status (non-zero when the unit is not loaded).
//   vantrel-launchctl print gui/<uid>/<label>
//       Exits 0 and describes the unit while it is active, activating, deactivating or
//       reloading; exits 113 ("could not find service") when it is inactive, failed or unknown.
//
// Without systemd (no systemctl, no user manager or bus, or one that does not answer) nothing can
// be running under it: "print" reports the service as absent and "bootout" fails without effect.
// Usage errors exit 64; a target for another user's session exits 1.

#include <QCoreApplication>
#include <QHash>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTextStream>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int exitUsage = 64;
constexpr int exitServiceNotFound = 113;
constexpr int systemctlTimeoutMilliseconds = 10000;

struct Target {
    QString text;
    QString uid;
    QString label;
    QString unit;
};

struct Outcome {
    bool ran = false;
    int exitStatus = 1;
    QByteArray standardOutput;
    QByteArray standardError;
    QString failure;
};

QTextStream& err() {
    static QTextStream stream(stderr);
    return stream;
}

int usage() {
    err() << "usage: vantrel-launchctl bootout|print gui/<uid>/<label>\n";
    err().flush();
    return exitUsage;
}

std::optional<Target> parseTarget(const QString& text) {
    // Labels become unit names, so only characters a unit name may hold are accepted, and never
    // a leading "-" that systemctl would take for an option.
    static const QRegularExpression pattern(
        QStringLiteral("^gui/([0-9]{1,10})/([A-Za-z0-9][A-Za-z0-9:_.-]{0,239})$"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    return Target{text, match.captured(1), match.captured(2),
                  match.captured(2) + QStringLiteral(".service")};
}

Outcome systemctl(const QStringList& arguments) {
    Outcome outcome;
    const QString program = QStandardPaths::findExecutable(QStringLiteral("systemctl"));
    if (program.isEmpty()) {
        outcome.failure = QStringLiteral("systemctl was not found");
        return outcome;
    }
    QProcess process;
    process.start(program, QStringList{QStringLiteral("--user")} + arguments);
    if (!process.waitForStarted(systemctlTimeoutMilliseconds)) {
        outcome.failure = process.errorString();
        return outcome;
    }
    process.closeWriteChannel();
    if (!process.waitForFinished(systemctlTimeoutMilliseconds)) {
        process.kill();
        process.waitForFinished(-1);
        outcome.failure = QStringLiteral("systemctl did not answer in time");
        return outcome;
    }
    outcome.ran = true;
    outcome.exitStatus = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : 1;
    outcome.standardOutput = process.readAllStandardOutput();
    outcome.standardError = process.readAllStandardError();
    return outcome;
}

void forwardErrors(const Outcome& outcome) {
    if (!outcome.ran) {
        err() << outcome.failure << '\n';
    } else if (!outcome.standardError.isEmpty()) {
        err() << QString::fromUtf8(outcome.standardError);
    }
}

int bootout(const Target& target) {
    // Disabled first, so nothing pulls the unit back in at the next login; the stop is queued
    // without waiting, and the caller watches it finish with "print".
    forwardErrors(systemctl({QStringLiteral("disable"), QStringLiteral("--quiet"), target.unit}));
    const Outcome stop =
        systemctl({QStringLiteral("stop"), QStringLiteral("--no-block"), target.unit});
    forwardErrors(stop);
    if (!stop.ran) {
        err() << "Boot-out failed: no systemd user manager holds " << target.text << '\n';
        return 1;
    }
    return stop.exitStatus;
}

int print(const Target& target) {
    const Outcome show =
        systemctl({QStringLiteral("show"),
                   QStringLiteral("--property=LoadState,ActiveState,SubState,MainPID,FragmentPath"),
                   target.unit});
    QHash<QString, QString> properties;
    if (show.ran && show.exitStatus == 0) {
        for (const QString& line :
             QString::fromUtf8(show.standardOutput).split(QLatin1Char('\n'))) {
            const qsizetype equals = line.indexOf(QLatin1Char('='));
            if (equals > 0) {
                properties.insert(line.first(equals), line.sliced(equals + 1));
            }
        }
    } else {
        forwardErrors(show);
    }
    const QString active = properties.value(QStringLiteral("ActiveState"));
    const bool present =
        properties.value(QStringLiteral("LoadState")) != QStringLiteral("not-found") &&
        !active.isEmpty() && active != QStringLiteral("inactive") &&
        active != QStringLiteral("failed");
    if (!present) {
        err() << "Could not find service \"" << target.label
              << "\" in domain for user gui: " << target.uid << '\n';
        return exitServiceNotFound;
    }
    QTextStream out(stdout);
    out << target.text << " = {\n"
        << "\tunit = " << target.unit << '\n'
        << "\tstate = " << active << " (" << properties.value(QStringLiteral("SubState")) << ")\n"
        << "\tpid = " << properties.value(QStringLiteral("MainPID")) << '\n'
        << "\tpath = " << properties.value(QStringLiteral("FragmentPath")) << '\n'
        << "}\n";
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.size() != 2) {
        return usage();
    }
    const QString& command = arguments[0];
    const std::optional<Target> target = parseTarget(arguments[1]);
    if (!target || (command != QStringLiteral("bootout") && command != QStringLiteral("print"))) {
        return usage();
    }
    // A systemd user manager only ever answers for its own user.
    if (target->uid != QString::number(::getuid())) {
        err() << "Domain gui/" << target->uid << " does not belong to this user.\n";
        err().flush();
        return 1;
    }
    const int status = command == QStringLiteral("bootout") ? bootout(*target) : print(*target);
    err().flush();
    return status;
}
