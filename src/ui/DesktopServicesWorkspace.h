#pragma once

#include "app/WorkspaceOpening.h"

#include <QObject>

// The default browser through QDesktopServices (xdg-open or the desktop portal), and the file
// manager through org.freedesktop.FileManager1; without a file manager service, revealing files
// opens their folder instead.
class DesktopServicesWorkspace : public QObject, public WorkspaceOpening {
    Q_OBJECT
public:
    using QObject::QObject;

    void openURL(const QUrl& url) override;
    void revealFiles(const QStringList& paths) override;
};
