#pragma once

#include "system/InstallationDescribing.h"

// Where an installed or freshly built Vantrel keeps its programs. Installed, the application is
// <prefix>/bin/vantrel and its helpers live in <prefix>/libexec/vantrel/; in a build tree every
// program sits next to the application.
class InstallLayout : public InstallationDescribing {
public:
    // `applicationDirectory` is the directory holding the running application binary.
    explicit InstallLayout(QString applicationDirectory);

    std::optional<QString> helperExecutablePath() const override;
    QString expectedHelperPath() const override;
    std::optional<QString> shortVersion() const override;
    std::optional<QString> buildVersion() const override;

    // A program of ours (the tracker helper, the service-control substitute): where it is
    // expected, and whether it is there and executable.
    QString expectedProgramPath(const QString& name) const;
    std::optional<QString> programPath(const QString& name) const;

private:
    QString m_applicationDirectory;
};
