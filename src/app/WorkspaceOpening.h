#pragma once

#include <QStringList>
#include <QUrl>

// The desktop's file manager and default browser.
class WorkspaceOpening {
public:
    virtual ~WorkspaceOpening() = default;

    // Opens a web page in the default browser, or a folder in the file manager.
    virtual void openURL(const QUrl& url) = 0;
    // Shows the files selected in the file manager.
    virtual void revealFiles(const QStringList& paths) = 0;
};
