#pragma once

#include "system/HostNaming.h"

// The machine's names: the "pretty" name the user gave it (systemd-hostnamed, else
// /etc/machine-info), and the network host name.
class HostnamedHostNamer : public HostNaming {
public:
    explicit HostnamedHostNamer(QString machineInfoPath = QStringLiteral("/etc/machine-info"));

    std::optional<QString> localizedName() const override;
    QString hostName() const override;

    // PRETTY_HOSTNAME from the text of a machine-info file (shell-style assignments).
    static std::optional<QString> prettyNameFromMachineInfo(const QString& contents);

private:
    QString m_machineInfoPath;
};
